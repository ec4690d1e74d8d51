package com.quorin.sysmgt.tavl.LumetraAgent.host;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorin.sysmgt.tavl.LumetraAgent.resource.GivenResource;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Publication;
import java.io.ByteArrayOutputStream;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.time.Duration;
import java.util.List;
import java.util.Optional;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

class AgentMonitorTest {

    private static final long MINUTE = Duration.ofMinutes(1).toNanos();
    private static final String AWAITED =
            "The disks cannot be listed yet: df has not answered; they are taken up as soon as it does.";

    private final ByteArrayOutputStream output = new ByteArrayOutputStream();
    private final GivenResource swap = GivenResource.swap(3);
    private final GivenResource disk = GivenResource.disk(4, "/dev/vda", "/");
    private AgentMonitor monitor = new AgentMonitor(new PrintStream(output, true, StandardCharsets.UTF_8), 0);

    private void cycle(long number, GivenResource... resources) {
        monitor.accept(new Publication(number, number, Optional.of(GivenResource.state(1000, resources))));
    }

    private void cycleWithoutDisks(long number) {
        monitor.accept(new Publication(number, number, Optional.of(GivenResource.state(1000, true, swap))));
    }

    private List<String> lines() {
        return output.toString(StandardCharsets.UTF_8).lines().toList();
    }

    @Test
    void theReportComesOnceAfterTheFirstCycle() {
        cycle(0, swap);
        monitor.look(1);
        assertEquals(List.of(), lines());
        assertEquals(Optional.of(Duration.ofSeconds(10)), monitor.pause());
        cycle(1, swap);
        monitor.look(2);
        assertEquals("The agent watches 1 resource:", lines().get(0));
        assertEquals("The agent leaves out 1 disk (rule mount /\\x1b*: 1). lumetra status --skipped lists them.",
                lines().get(2));
        assertEquals(List.of("It takes a sample every 10 s. The first forecast can come in about 33 min, after 200 "
                + "samples.", "It announces an exhaustion that is forecast for 0 to 48 h ahead."),
                lines().subList(3, lines().size()));
        cycle(2, swap);
        monitor.look(3);
        assertEquals(5, lines().size());
    }

    private void resumed(long number, long samples, int resources) {
        monitor.accept(new Publication(number, number, Optional.of(
                GivenResource.resumed(GivenResource.state(1000, swap), samples, resources))));
        monitor.look(number);
    }

    @Test
    void whatItResumedWithIsToldOnceAtTheStart() {
        resumed(0, 1234, 2);
        assertEquals(List.of("Resumed with 1234 samples of 2 resources from the archive."), lines());
        resumed(1, 1234, 2);
        assertEquals("The agent watches 1 resource:", lines().get(1));
        resumed(2, 2345, 3);
        assertEquals(6, lines().size());
    }

    @Test
    void disksThatCameWithTheFirstCycleAloneAreToldOfThen() {
        resumed(0, 0, 0);
        assertEquals(List.of(), lines());
        resumed(1, 1, 1);
        assertEquals("Resumed with 1 sample of 1 resource from the archive.", lines().get(0));
    }

    @Test
    void aStatusLineComesEveryMinute() {
        cycle(1, swap, disk);
        monitor.look(MINUTE - 1);
        int before = lines().size();
        cycle(2, swap, disk);
        monitor.look(MINUTE);
        monitor.look(MINUTE + 5);
        assertEquals(before + 1, lines().size());
        assertTrue(lines().get(before).endsWith("  2 cycles, 2 resources, archive 4.0 KiB"), lines().get(before));
        monitor.look(2 * MINUTE);
        assertEquals(before + 2, lines().size());
    }

    @Test
    void aRunWithoutCyclesSaysSo() {
        monitor.look(MINUTE);
        assertTrue(lines().get(0).endsWith("  running for 60 s, no cycle yet; see log/LumetraAgent.log"));
        assertEquals(Optional.empty(), monitor.pause());
    }

    @ParameterizedTest
    @ValueSource(classes = {IllegalStateException.class, OutOfMemoryError.class})
    void aReportThatFailsIsToldAndDoesNotEndTheRun(Class<? extends Throwable> kind) throws Exception {
        Throwable failure = kind.getConstructor(String.class).newInstance("no words");
        monitor = new AgentMonitor(new PrintStream(output, true, StandardCharsets.UTF_8) {
            @Override
            public void println(String line) {
                if (line.startsWith("The agent watches")) {
                    if (failure instanceof Error error) {
                        throw error;
                    }
                    throw (RuntimeException) failure;
                }
                super.println(line);
            }
        }, 0);
        cycle(1, swap);
        try {
            monitor.look(1);
        } catch (OutOfMemoryError e) { // which would end the whole test run
            throw new AssertionError("the run would end", e);
        }
        assertEquals("The agent's resources cannot be shown: " + kind.getName() + ": no words", lines().get(0));
    }

    @Test
    void disksThatCannotBeListedYetAreToldOnceAndSoIsTheirArrival() {
        cycleWithoutDisks(1);
        monitor.look(1);
        assertEquals(1, lines().stream().filter(AWAITED::equals).count());
        int before = lines().size();
        cycleWithoutDisks(2);
        monitor.look(2);
        assertEquals(before, lines().size());
        cycle(3, swap, disk);
        monitor.look(3);
        cycle(4, swap, disk);
        monitor.look(4);
        assertEquals(before + 1, lines().size());
        assertEquals("The disks are listed now: the agent watches 1 resource of them.", lines().get(before));
    }

    @Test
    void aListingWithoutDisksEndsTheWaitWithoutAWord() {
        cycleWithoutDisks(1);
        monitor.look(1);
        int before = lines().size();
        cycle(2, swap);
        monitor.look(2);
        cycle(3, swap, disk);
        monitor.look(3);
        assertEquals(before, lines().size());
    }

    @Test
    void nothingIsSaidOfDisksThatAreThereWhileALaterListingHangs() {
        monitor.accept(new Publication(1, 1, Optional.of(GivenResource.state(1000, true, swap, disk))));
        monitor.look(1);
        assertFalse(lines().contains(AWAITED));
    }

    @Test
    void theEndHasTheLastCyclesAndSaysNothing() {
        cycle(1, swap);
        monitor.accept(new Publication(2, 2, Optional.empty()));
        assertEquals(2, monitor.cycles());
        assertEquals(Optional.of(Duration.ofSeconds(10)), monitor.pause());
        assertEquals(List.of(), lines());
    }
}
