package com.quorin.sysmgt.tavl.LumetraAgent;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.time.Duration;
import java.util.List;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

class AgentMonitorTest {

    private static final long MINUTE = Duration.ofMinutes(1).toNanos();

    @TempDir
    Path home;
    private final ByteArrayOutputStream output = new ByteArrayOutputStream();
    private String listing = "";
    private final FakeCapacities machine = new FakeCapacities(
            () -> new MachineCapacities(home, DiskListing.parse(listing), DiskListing.empty()));
    private AgentMonitor monitor;

    @BeforeEach
    void follow() {
        String d = home + "/";
        monitor = new AgentMonitor(
                new AgentConfiguration(d, d + "archive", d + "pad", d + "res", 10000, 0, 48, 50),
                machine,
                new PrintStream(output, true, StandardCharsets.UTF_8), 0);
    }

    private void cycle(String line) throws IOException {
        Files.writeString(
                home.resolve("archive"), line, StandardOpenOption.CREATE, StandardOpenOption.APPEND);
    }

    private List<String> lines() {
        return output.toString(StandardCharsets.UTF_8).lines().toList();
    }

    @Test
    void theReportComesOnceAfterTheFirstCycle() throws IOException {
        monitor.look(1);
        assertEquals(List.of(), lines());
        cycle("1001 3 0 1.00 \n");
        monitor.look(2);
        assertEquals("The agent watches 1 resource:", lines().get(0));
        int count = lines().size();
        cycle("1002 3 0 1.00 \n");
        monitor.look(3);
        assertEquals(count, lines().size());
        assertEquals(2, monitor.cycles());
    }

    @Test
    void aStatusLineComesEveryMinute() throws IOException {
        cycle("1001 3 0 1.00 4 0 2.00 \n");
        monitor.look(MINUTE - 1);
        int before = lines().size();
        cycle("1002 3 0 1.00 4 0 2.00 \n");
        monitor.look(MINUTE);
        monitor.look(MINUTE + 5);
        assertEquals(before + 1, lines().size());
        assertTrue(lines().get(before).endsWith("  2 cycles, 2 resources, archive 48 bytes"),
                lines().get(before));
        monitor.look(2 * MINUTE);
        assertEquals(before + 2, lines().size());
    }

    @Test
    void aRunWithoutCyclesSaysSo() {
        monitor.look(MINUTE);
        assertTrue(lines().get(0).endsWith(
                "  running for 60 s, no cycle in the archive yet; see log/LumetraAgent.log"));
    }

    @ParameterizedTest
    @ValueSource(classes = {IllegalStateException.class, OutOfMemoryError.class})
    void aReportThatFailsIsToldAndDoesNotEndTheRun(Class<? extends Throwable> kind) throws Exception {
        Throwable failure = kind.getConstructor(String.class).newInstance("no machine");
        machine.failWith(failure);
        cycle("1001 3 0 1.00 \n");
        monitor.look(1);
        assertEquals("The agent's resources cannot be shown: " + kind.getName() + ": no machine", lines().get(0));
        assertEquals(1, monitor.cycles());
    }

    @Test
    void theReportWaitsForTheListingOfDisksAndNothingElseDoes() throws IOException {
        machine.hold();
        cycle("1001 3 0 1.00 \n");
        monitor.look(1);
        cycle("1002 3 0 1.00 \n");
        monitor.look(MINUTE);
        assertEquals(1, lines().size());
        assertTrue(lines().get(0).contains("2 cycles"), lines().get(0));
        machine.letGo(false);
        monitor.look(MINUTE + 1);
        assertEquals("The agent watches 1 resource:", lines().get(1));
    }

    /** Disks are declared; the scratch pad has the processes and one disk. */
    private void declareDisks() throws IOException {
        String input = "BeginResourceInput FindObject (LogicalDisk) FindInstance (*) FindCounter "
                + "(PercentFreeSpaceUsed) WindowSize -1 NameIs (Space) AnalyticalMethod 1 UpperLimitAbs 0 "
                + "UpperLimitCalc 0 LowerLimitAbs 0 LowerLimitCalc 0 CulpritMarker (none) EndResourceInput\n";
        Files.writeString(home.resolve("res"), "BeginResourceDeclaration\n" + input + "EndResourceDeclaration\n");
        String record = "\nEvent: ResourceDefinition - Informational \n";
        Files.writeString(home.resolve("pad"), record
                + "1   3   (PercentProcessesUsed)   (_Total)   (PercentProcessesUsed)   -2   \n" + record
                + "2   4   (LogicalDisk)   (/dev/vda /)   (PercentFreeSpaceUsed)   -2   \n");
        follow();
    }

    @Test
    void disksThatCannotBeListedYetAreToldOnceAndSoIsTheirArrival() throws IOException {
        declareDisks();
        cycle("1001 3 0 1.00 \n");
        monitor.look(1);
        assertEquals(1, lines().stream().filter(DiskListing.AWAITED::equals).count());
        int before = lines().size();
        cycle("1002 3 0 1.00 \n");
        monitor.look(2);
        assertEquals(before, lines().size());
        cycle("1003 3 0 1.00 4 0 2.00 \n");
        monitor.look(3);
        cycle("1004 3 0 1.00 4 0 2.00 \n");
        monitor.look(4);
        assertEquals(before + 1, lines().size());
        assertEquals("The disks are listed now: the agent watches 1 resource of them.", lines().get(before));
    }

    @Test
    void nothingIsSaidOfDisksThatAreThereOrAreNotWantedOrAreNone() throws IOException {
        cycle("1001 3 0 1.00 \n");
        monitor.look(1);
        declareDisks();
        cycle("1002 3 0 1.00 4 0 2.00 \n");
        monitor.look(2);
        listing = "Filesystem 1K-blocks Used Available Use% Mounted on\n";
        follow();
        cycle("1003 3 0 1.00 \n");
        monitor.look(3);
        assertEquals(3, lines().stream().filter(line -> line.startsWith("The agent watches")).count());
        assertFalse(lines().contains(DiskListing.AWAITED));
    }

    @Test
    void theLastCyclesAreCountedWithoutAWord() throws IOException {
        cycle("1001 3 0 1.00 \n");
        monitor.countLast();
        assertEquals(1, monitor.cycles());
        assertEquals(List.of(), lines());
    }
}
