package com.quorin.sysmgt.tavl.LumetraAgent.host;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorin.sysmgt.tavl.LumetraAgent.resource.GivenResource;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.RunResource;
import java.util.Arrays;
import java.util.List;
import org.junit.jupiter.api.Test;

class ResourceReportTest {

    private final GivenResource swap = GivenResource.swap(3);
    private final GivenResource disk = GivenResource.disk(4, "/dev/vda", "/");

    private static List<String> report(GivenResource... resources) {
        return ResourceReport.lines(Arrays.stream(resources).map(GivenResource::made).toList());
    }

    /** The report's one line on a resource, with the columns' padding taken out. */
    private static String line(GivenResource resource) {
        return report(resource).get(1).strip().replaceAll("  +", " | ");
    }

    @Test
    void aResourceShowsItsNameInstanceValueCapacityAndLimit() {
        assertEquals("Swap | _Total | 50.00 % | of 2.0 GiB | can reach its limit of 100 %", line(swap));
        disk.value = 12.345;
        assertEquals("Space | /dev/vda / | 12.35 % | of 2.0 MiB | can reach its limit of 100 %", line(disk));
    }

    @Test
    void noSwapIsAbsent() {
        swap.measured = 0;
        assertEquals("Swap | _Total | absent | this machine has no swap space", line(swap));
    }

    @Test
    void aDescriptorMaximumWithoutEndIsNoLimit() {
        GivenResource descriptors = GivenResource.single(5, GivenResource.DESCRIPTORS);
        descriptors.measured = 9.3e18;
        descriptors.value = 0;
        assertEquals("PercentFileDescriptorsUsed | _Total | 0.00 % | "
                + "no limit on this machine; set UpperLimitAbs to forecast against one of your own",
                line(descriptors));
    }

    @Test
    void aLimitOfOnesOwnIsSaidToBeOne() {
        swap.configured = 1024;
        assertEquals("Swap | _Total | 50.00 % | of 1.0 MiB (UpperLimitAbs) | can reach its limit of 100 %",
                line(swap));
    }

    @Test
    void aFileSystemWithoutInodesIsSaidToHaveNone() {
        disk.measured = 0;
        disk.counter = GivenResource.INODES;
        disk.value = 100;
        assertEquals("Space | /dev/vda / | 100.00 % | of none | counts no inodes of its own, always reads as full",
                line(disk));
    }

    @Test
    void whatWasNotReadIsNoNumber() {
        swap.isRead = false;
        swap.isMeasured = false;
        swap.measured = 0;
        assertEquals("Swap | _Total | not read | of an unknown capacity | can reach its limit of 100 %", line(swap));
    }

    @Test
    void theLimitsAreTheLibrarys() {
        swap.reached = RunResource.Reached.UPPER;
        assertTrue(line(swap).endsWith("| is at its limit of 100 %"), line(swap));
        swap.lower = 0;
        assertTrue(line(swap).endsWith("| is at its limit of 100 %"), line(swap));
        swap.reached = RunResource.Reached.LOWER;
        assertTrue(line(swap).endsWith("| is at its limit of 0 %"), line(swap));
        swap.reached = RunResource.Reached.NONE;
        assertTrue(line(swap).endsWith("| can reach its limit of 100 %, can fall to its limit of 0 %"), line(swap));
        swap.upper = RunResource.NONE;
        assertTrue(line(swap).endsWith("| can fall to its limit of 0 %"), line(swap));
        swap.lower = RunResource.NONE;
        swap.method = 9;
        assertTrue(line(swap).endsWith("no limit to forecast against (AnalyticalMethod 9)"), line(swap));
    }

    @Test
    void anUnknownObjectIsNotMeasured() {
        assertEquals("Answers | _Total | - | not measured: the agent has no counter of this name",
                line(GivenResource.single(6, "Answers")));
    }

    @Test
    void aHostileMountNameIsShownEscaped() {
        disk.instance = "/dev/evil /mnt/\u001b[2Jx\u00ff";
        assertTrue(line(disk).startsWith("Space | /dev/evil /mnt/\\x1b[2Jx\\xff | "), line(disk));
        assertFalse(line(disk).chars().anyMatch(Character::isISOControl));
    }

    @Test
    void theHeadingCountsTheResources() {
        assertEquals(List.of("The agent found no resource to watch."), report());
        assertEquals("The agent watches 1 resource:", report(swap).get(0));
        assertEquals("The agent watches 2 resources:", report(swap, disk).get(0));
        assertEquals(3, report(swap, disk).size());
    }
}
