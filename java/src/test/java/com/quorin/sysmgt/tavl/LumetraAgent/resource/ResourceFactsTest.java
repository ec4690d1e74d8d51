package com.quorin.sysmgt.tavl.LumetraAgent.resource;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.Optional;
import org.junit.jupiter.api.Test;

class ResourceFactsTest {

    private final GivenResource given = GivenResource.swap(3);

    private static ResourceFacts facts(GivenResource resource) {
        return ResourceFacts.of(resource.made());
    }

    private static void assertAmount(String amount, GivenResource resource) {
        assertEquals(Optional.ofNullable(amount), facts(resource).amount());
    }

    @Test
    void theLibrarysCapacityIsToldInTheUnitOfItsCounter() {
        assertAmount("2.0 GiB", given);
        assertAmount("2.0 MiB", GivenResource.disk(4, "/dev/vda", "/"));
        GivenResource inodes = GivenResource.disk(4, "/dev/vda", "/");
        inodes.counter = GivenResource.INODES;
        assertAmount("2048 inodes", inodes);
        GivenResource tasks = GivenResource.single(5, GivenResource.PROCESSES);
        tasks.measured = 28000;
        assertAmount("28000 tasks", tasks);
        GivenResource descriptors = GivenResource.single(6, GivenResource.DESCRIPTORS);
        descriptors.measured = 8192;
        assertAmount("8192 descriptors", descriptors);
    }

    @Test
    void aCapacityOfOnesOwnTakesThePlaceOfTheMachines() {
        given.configured = 1024;
        assertAmount("1.0 MiB", given);
        assertTrue(facts(given).isOwn());
        given.measured = 0;
        assertEquals(ResourceFacts.Kind.COUNTED, facts(given).kind());
    }

    @Test
    void aCapacityThatWasReadInAnEarlierCycleStaysKnown() {
        given.isMeasured = false;
        assertAmount("2.0 GiB", given);
        given.measured = 0;
        assertEquals(ResourceFacts.Kind.UNKNOWN_CAPACITY, facts(given).kind());
        assertAmount(null, given);
        assertTrue(facts(given).hasLimit());
    }

    @Test
    void aMachineWithoutSwapHasNone() {
        given.measured = 0;
        assertEquals(ResourceFacts.Kind.NONE_THERE, facts(given).kind());
        assertEquals("this machine has no swap space", facts(given).remark());
    }

    @Test
    void aFileSystemWithoutSpaceOrInodesSaysSo() {
        GivenResource disk = GivenResource.disk(4, "/dev/vda", "/");
        disk.measured = 0;
        assertEquals("counts no space of its own, always reads as full", facts(disk).remark());
        disk.counter = GivenResource.INODES;
        assertEquals("counts no inodes of its own, always reads as full", facts(disk).remark());
        assertNull(facts(disk).limit());
    }

    @Test
    void aMaximumWithoutEndIsNoLimit() {
        GivenResource descriptors = GivenResource.single(6, GivenResource.DESCRIPTORS);
        descriptors.measured = 9223372036854775807.0;
        assertEquals("no limit on this machine; set UpperLimitAbs to forecast against one of your own",
                facts(descriptors).remark());
        assertNull(facts(descriptors).limit());
    }

    @Test
    void anObjectOrADisksCounterThatTheAgentDoesNotKnowIsNotMeasured() {
        assertEquals("not measured: the agent has no counter of this name",
                facts(GivenResource.single(7, "Answers")).remark());
        GivenResource disk = GivenResource.disk(4, "/dev/vda", "/");
        disk.counter = "PercentFree";
        assertEquals(ResourceFacts.Kind.NOT_MEASURED, facts(disk).kind());
        assertFalse(facts(disk).hasLimit());
    }

    @Test
    void theLimitIsTheLibrarysTheLowerOneOfTwo() {
        assertEquals(100.0, facts(given).limit());
        given.lower = 0;
        assertEquals(0.0, facts(given).limit());
        given.upper = RunResource.NONE;
        assertEquals(0.0, facts(given).limit());
        given.lower = RunResource.NONE;
        given.method = 9;
        assertNull(facts(given).limit());
        assertEquals("no limit to forecast against (AnalyticalMethod 9)", facts(given).methodRemark());
        given.method = 0;
        assertEquals("sampled only, never forecast (AnalyticalMethod 0)", facts(given).methodRemark());
    }
}
