package com.quorin.sysmgt.tavl.LumetraAgent;

import static org.junit.jupiter.api.Assertions.assertEquals;
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

class AgentMonitorTest {

    private static final long MINUTE = Duration.ofMinutes(1).toNanos();

    @TempDir
    Path home;
    private final ByteArrayOutputStream output = new ByteArrayOutputStream();
    private AgentMonitor monitor;

    @BeforeEach
    void follow() {
        String d = home + "/";
        monitor = new AgentMonitor(
                new AgentConfiguration(d, d + "archive", d + "pad", d + "res", 10000, 0, 48, 50),
                () -> new MachineCapacities(home, DiskListing.empty(), DiskListing.empty()),
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

    @Test
    void aReportThatFailsIsToldAndDoesNotEndTheRun() throws IOException {
        String d = home + "/";
        AgentConfiguration c =
                new AgentConfiguration(d, d + "archive", d + "pad", d + "res", 10000, 0, 48, 50);
        monitor = new AgentMonitor(c, () -> {
            throw new IllegalStateException("no machine");
        }, new PrintStream(output, true, StandardCharsets.UTF_8), 0);
        cycle("1001 3 0 1.00 \n");
        monitor.look(1);
        assertEquals("The agent's resources cannot be shown: java.lang.IllegalStateException: no machine",
                lines().get(0));
        assertEquals(1, monitor.cycles());
    }

    @Test
    void theLastCyclesAreCountedWithoutAWord() throws IOException {
        cycle("1001 3 0 1.00 \n");
        monitor.countLast();
        assertEquals(1, monitor.cycles());
        assertEquals(List.of(), lines());
    }
}
