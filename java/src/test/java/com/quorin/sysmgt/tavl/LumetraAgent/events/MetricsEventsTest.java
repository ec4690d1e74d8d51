package com.quorin.sysmgt.tavl.LumetraAgent.events;

import static org.junit.jupiter.api.Assertions.assertEquals;

import com.fasterxml.jackson.databind.ObjectMapper;
import com.quorin.sysmgt.tavl.LumetraAgent.TrendReader;
import org.junit.jupiter.api.Test;

class MetricsEventsTest {

    private final MetricsEvents counts = new MetricsEvents();

    private void tell(String type, String resource, String instance) {
        counts.add(new ObjectMapper().createObjectNode().put("type", type).put("resource", resource)
                .put("instance", instance));
    }

    private long of(String type, String resource, String instance) {
        return counts.of(type, new TrendReader.Resource(resource, instance));
    }

    @Test
    void eachTypeOfEachResourceCountsForItself() {
        tell("exhaustion", "Swap", "_Total");
        tell("exhaustion", "Swap", "_Total");
        tell("upperTolerance", "Swap", "_Total");
        tell("exhaustion", "Space", "/dev/vda /");
        assertEquals(2, of("exhaustion", "Swap", "_Total"));
        assertEquals(1, of("upperTolerance", "Swap", "_Total"));
        assertEquals(0, of("innerTolerance", "Swap", "_Total"));
        assertEquals(1, of("exhaustion", "Space", "/dev/vda /"));
        assertEquals(0, of("exhaustion", "Space", "/dev/vdb /"));
        assertEquals(0, counts.fatal());
        assertEquals(4, counts.told());
    }

    @Test
    void failuresCountTogetherWhateverTheyTell() {
        tell("fatal", "a", "b");
        tell("fatal", null, null);
        assertEquals(2, counts.fatal());
    }

    @Test
    void noInstanceIsNoInstanceHoweverItIsTold() {
        tell("exhaustion", "Swap", null);
        tell("exhaustion", "Swap", AgentEvents.NO_INSTANCE);
        assertEquals(2, of("exhaustion", "Swap", AgentEvents.NO_INSTANCE));
        assertEquals(2, of("exhaustion", "Swap", ""));
    }

    @Test
    void namesWithoutEndDoNotFillTheMemory() {
        for (int i = 0; i < 10_100; i++) {
            tell("exhaustion", "Space", "/dev/" + i);
        }
        tell("exhaustion", "Space", "/dev/0");
        assertEquals(2, of("exhaustion", "Space", "/dev/0"));
        assertEquals(1, of("exhaustion", "Space", "/dev/9999"));
        assertEquals(0, of("exhaustion", "Space", "/dev/10000"));
        assertEquals(10_101, counts.told());
    }

    @Test
    void aFailureCountsHoweverManyNamesThereWereBeforeIt() {
        for (int i = 0; i < 10_100; i++) {
            tell("exhaustion", "Space", "/dev/" + i);
        }
        tell("fatal", null, null);
        tell("fatal", null, null);
        assertEquals(2, counts.fatal());
    }
}
