package com.quorin.sysmgt.tavl.LumetraAgent;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class ResourceReportTest {

    private static final String DISKS = "Filesystem 1K-blocks Used Available Use%% Mounted on\n"
            + "/dev/vda 200 1048576 1048576 50% /\n"
            + "/dev/evil 1 0 1024 0% /mnt/\u001b[2Jx\u00ff\ntmp 0 0 0 - /efi\n";

    @TempDir
    Path root;
    private final Map<Integer, KnownResource> known = new LinkedHashMap<>();
    private final Map<Integer, Double> values = new LinkedHashMap<>();
    private DeclaredResource declaration;

    private void machine(String swapKb, String descriptors) throws IOException {
        Files.createDirectories(root.resolve("proc/sys/fs"));
        Files.createDirectories(root.resolve("proc/sys/kernel"));
        Files.writeString(root.resolve("proc/meminfo"),
                "MemTotal:        2000000 kB\nSwapCached: 1 kB\nSwapTotal:       " + swapKb + " kB\n");
        Files.writeString(root.resolve("proc/sys/fs/file-nr"), "1024\t0\t" + descriptors + "\n");
        Files.writeString(root.resolve("proc/sys/kernel/threads-max"), "16000\n");
    }

    private void declare(String object, int method, double upperLimitAbs) {
        String name = "My " + object;
        declaration = new DeclaredResource(object, "_Total", object, -1, name, method, upperLimitAbs, 0);
    }

    /** The report's one line on a resource, with the columns' padding taken out. */
    private String line(KnownResource resource, double value) {
        known.put(7, resource);
        values.put(7, value);
        return report().get(1).strip().replaceAll("  +", " | ");
    }

    private List<String> report() {
        DiskListing listing = DiskListing.parse(DISKS);
        return new ResourceReport(known, declaration == null ? List.of() : List.of(declaration),
                new MachineCapacities(root, listing, listing)).lines(new ArchiveLine(1, values));
    }

    private static KnownResource single(String object) {
        return new KnownResource(1, 7, object, "_Total", object, "-2");
    }

    private static KnownResource disk(String instance, String counter) {
        return new KnownResource(2, 7, "LogicalDisk", instance, counter, "-2");
    }

    @Test
    void aResourceShowsItsNameInstanceValueCapacityAndLimit() throws IOException {
        machine("2097148", "8192");
        declare("PercentSwapSpaceUsed", 1, 0);
        assertEquals("My PercentSwapSpaceUsed | _Total | 12.50 % | of 2.0 GiB | can reach its limit of 100 %",
                line(single("PercentSwapSpaceUsed"), 12.5));
    }

    @Test
    void noSwapIsAbsent() throws IOException {
        machine("0", "8192");
        assertEquals("PercentSwapSpaceUsed | _Total | absent | this machine has no swap space",
                line(single("PercentSwapSpaceUsed"), 0));
    }

    @Test
    void aDescriptorMaximumWithoutEndIsNoLimit() throws IOException {
        machine("0", "9223372036854775807");
        assertEquals("PercentFileDescriptorsUsed | _Total | 0.00 % | "
                + "no limit on this machine; set UpperLimitAbs to forecast against one of your own",
                line(single("PercentFileDescriptorsUsed"), 0));
    }

    @Test
    void aLimitOfOnesOwnTakesThePlaceOfTheMachines() throws IOException {
        machine("0", "9223372036854775807");
        declare("PercentFileDescriptorsUsed", 1, 5000);
        assertEquals("My PercentFileDescriptorsUsed | _Total | 20.48 % | of 5000 descriptors (UpperLimitAbs)"
                + " | can reach its limit of 100 %", line(single("PercentFileDescriptorsUsed"), 20.48));
        declare("PercentSwapSpaceUsed", 1, 1024);
        assertTrue(line(single("PercentSwapSpaceUsed"), 0).contains("of 1.0 MiB (UpperLimitAbs)"));
    }

    @Test
    void processSlotsAreTheSmallerOfMemoryAndKernel() throws IOException {
        machine("0", "8192");
        assertTrue(line(single("PercentProcessesUsed"), 1).contains("of 16000 tasks"));
        Files.writeString(root.resolve("proc/sys/kernel/threads-max"), "900000\n");
        assertTrue(line(single("PercentProcessesUsed"), 1).contains("of 28000 tasks"));
    }

    @Test
    void disksShowBlocksInBytesAndInodesAsACount() {
        assertEquals("PercentFreeSpaceUsed | /dev/vda / | 50.00 % | of 2.0 GiB"
                + " | can reach its limit of 100 %", line(disk("/dev/vda /", "PercentFreeSpaceUsed"), 50));
        assertEquals("PercentFreeInodesUsed | /dev/vda / | 50.00 % | of 2097152 inodes"
                + " | can reach its limit of 100 %", line(disk("/dev/vda /", "PercentFreeInodesUsed"), 50));
    }

    @Test
    void aFileSystemWithoutInodesIsSaidToHaveNone() {
        assertEquals("PercentFreeInodesUsed | tmp /efi | 100.00 % | of none | "
                + "counts no inodes of its own, always reads as full",
                line(disk("tmp /efi", "PercentFreeInodesUsed"), 100));
    }

    @Test
    void theDeclarationOfADiskIsFoundByItsCounter() {
        declaration = new DeclaredResource("LogicalDisk", "*", "PercentFreeSpaceUsed", -1, "Space", 0, 0, 0);
        assertEquals("Space | /dev/vda / | 50.00 % | of 2.0 GiB"
                + " | sampled only, never forecast (AnalyticalMethod 0)",
                line(disk("/dev/vda /", "PercentFreeSpaceUsed"), 50));
    }

    @Test
    void theMethodDecidesOnTheLimit() throws IOException {
        machine("100", "8192");
        KnownResource swap = single("PercentSwapSpaceUsed");
        declare("PercentSwapSpaceUsed", 1, 0);
        assertTrue(line(swap, 99.95).endsWith("is at its limit of 100 %"));
        assertTrue(line(swap, 99.94).endsWith("can reach its limit of 100 %"));
        declare("PercentSwapSpaceUsed", 2, 0);
        assertTrue(line(swap, 5).endsWith("| can fall to its limit of 0 %"));
        assertTrue(line(swap, 0).endsWith("| is at its limit of 0 %"));
        declare("PercentSwapSpaceUsed", 3, 0);
        assertTrue(line(swap, 5).endsWith("| can reach its limit of 100 %, can fall to its limit of 0 %"));
        declare("PercentSwapSpaceUsed", 9, 0);
        assertTrue(line(swap, 5).endsWith("no limit to forecast against (AnalyticalMethod 9)"));
    }

    @Test
    void anUnknownObjectIsNotMeasured() {
        assertEquals("Answers | _Total | - | not measured: the agent has no counter of this name",
                line(single("Answers"), 0));
    }

    @Test
    void aHostileMountNameIsShownEscaped() {
        String line = line(disk("/dev/evil /mnt/\u001b[2Jx\u00ff", "PercentFreeSpaceUsed"), 0);
        String start = "PercentFreeSpaceUsed | /dev/evil /mnt/\\x1b[2Jx\\xff | 0.00 % | of 1.0 MiB";
        assertTrue(line.startsWith(start), line);
        assertFalse(line.chars().anyMatch(Character::isISOControl));
    }

    @Test
    void sourcesThatAreMissingLeaveTheCapacityUnknown() {
        assertTrue(line(single("PercentSwapSpaceUsed"), 1).contains("of an unknown capacity"));
        KnownResource gone = disk("/dev/gone /gone", "PercentFreeSpaceUsed");
        assertTrue(line(gone, 1).contains("of an unknown capacity"));
    }

    @Test
    void aNumberThatTheScratchPadDoesNotKnowIsStillALine() {
        values.put(9, Double.NaN);
        assertEquals("resource 9 | NaN % | its record is not in the scratch pad",
                report().get(1).strip().replaceAll("  +", " | "));
    }

    @Test
    void theHeadingCountsTheResources() {
        assertEquals(List.of("The agent found no resource to watch."), report());
        values.put(1, 0.0);
        assertEquals("The agent watches 1 resource:", report().get(0));
        values.put(2, 0.0);
        assertEquals("The agent watches 2 resources:", report().get(0));
        assertEquals(3, report().size());
    }
}
