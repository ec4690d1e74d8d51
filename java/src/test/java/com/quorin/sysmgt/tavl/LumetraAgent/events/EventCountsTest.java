package com.quorin.sysmgt.tavl.LumetraAgent.events;

import static org.junit.jupiter.api.Assertions.assertEquals;

import com.quorin.sysmgt.tavl.LumetraAgent.TrendReader;
import java.util.List;
import org.junit.jupiter.api.Test;

class EventCountsTest {

    private final EventCounts counts = new EventCounts();

    private static final Event.Moment NOW = new Event.Moment("t", 1);

    private void tell(Event.Type type, String resource, String instance) {
        Event.Subject subject = new Event.Subject(resource, instance);
        counts.add(switch (type) {
            case EXHAUSTION -> new Event.Exhaustion(NOW, subject, 1.0, null, List.of(), null,
                    Event.Background.NONE);
            case UPPER_TOLERANCE, INNER_TOLERANCE -> new Event.LimitReached(NOW, type, subject, 100.0);
            case FATAL -> new Event.Failure(NOW, resource);
        });
    }

    private long of(Event.Type type, String resource, String instance) {
        return counts.of(type, new TrendReader.Resource(resource, instance));
    }

    @Test
    void eachTypeOfEachResourceCountsForItself() {
        tell(Event.Type.EXHAUSTION, "Swap", "_Total");
        tell(Event.Type.EXHAUSTION, "Swap", "_Total");
        tell(Event.Type.UPPER_TOLERANCE, "Swap", "_Total");
        tell(Event.Type.EXHAUSTION, "Space", "/dev/vda /");
        assertEquals(2, of(Event.Type.EXHAUSTION, "Swap", "_Total"));
        assertEquals(1, of(Event.Type.UPPER_TOLERANCE, "Swap", "_Total"));
        assertEquals(0, of(Event.Type.INNER_TOLERANCE, "Swap", "_Total"));
        assertEquals(1, of(Event.Type.EXHAUSTION, "Space", "/dev/vda /"));
        assertEquals(0, of(Event.Type.EXHAUSTION, "Space", "/dev/vdb /"));
        assertEquals(0, counts.fatal());
        assertEquals(4, counts.told());
    }

    @Test
    void failuresCountTogetherWhateverTheyTell() {
        tell(Event.Type.FATAL, "a", "b");
        tell(Event.Type.FATAL, null, null);
        assertEquals(2, counts.fatal());
    }

    @Test
    void noInstanceIsNoInstanceHoweverItIsTold() {
        tell(Event.Type.EXHAUSTION, "Swap", null);
        tell(Event.Type.EXHAUSTION, "Swap", "Null");
        assertEquals(2, of(Event.Type.EXHAUSTION, "Swap", "Null"));
        assertEquals(2, of(Event.Type.EXHAUSTION, "Swap", ""));
    }

    @Test
    void namesWithoutEndDoNotFillTheMemory() {
        for (int i = 0; i < 10_100; i++) {
            tell(Event.Type.EXHAUSTION, "Space", "/dev/" + i);
        }
        tell(Event.Type.EXHAUSTION, "Space", "/dev/0");
        assertEquals(2, of(Event.Type.EXHAUSTION, "Space", "/dev/0"));
        assertEquals(1, of(Event.Type.EXHAUSTION, "Space", "/dev/9999"));
        assertEquals(0, of(Event.Type.EXHAUSTION, "Space", "/dev/10000"));
        assertEquals(10_101, counts.told());
    }

    @Test
    void aFailureCountsHoweverManyNamesThereWereBeforeIt() {
        for (int i = 0; i < 10_100; i++) {
            tell(Event.Type.EXHAUSTION, "Space", "/dev/" + i);
        }
        tell(Event.Type.FATAL, null, null);
        tell(Event.Type.FATAL, null, null);
        assertEquals(2, counts.fatal());
    }
}
