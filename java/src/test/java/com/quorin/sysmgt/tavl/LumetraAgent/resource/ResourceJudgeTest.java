package com.quorin.sysmgt.tavl.LumetraAgent.resource;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;

import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.Random;
import org.junit.jupiter.api.Test;

class ResourceJudgeTest {

    private final GivenResource given = GivenResource.swap(7);
    private boolean present = true;
    private boolean hasValue = true;
    private boolean stale;

    private ResourceJudge.Case asGiven() {
        RunResource made = given.made();
        return new ResourceJudge.Case(ResourceFacts.of(made), present, hasValue, stale, made.forecast(), 200);
    }

    private ResourceState state() {
        return ResourceJudge.state(asGiven());
    }

    private String note() {
        return ResourceJudge.note(asGiven());
    }

    @Test
    void withTooFewSamplesItCollects() {
        given.samples = 199;
        assertEquals(ResourceState.COLLECTING, state());
        assertEquals("collecting", ResourceJudge.words(asGiven()));
        assertNull(note());
    }

    @Test
    void withEnoughSamplesAndNoForecastItDoesNotCollectButSaysWhy() {
        given.samples = 716;
        assertEquals(ResourceState.NO_EXHAUSTION, state());
        assertEquals("no forecast", ResourceJudge.words(asGiven()));
        assertEquals("no model could be fitted", note());
        given.isRead = false;
        assertEquals("unreadable", ResourceJudge.words(asGiven()));
    }

    @Test
    void aForecastNeedsTheValueAtItsLevel() {
        given.forecast(12, 56.2f);
        assertEquals(ResourceState.PENDING, state());
        given.value = 56.2; // a little less than the shorter number, as which the agent compares it
        assertEquals(ResourceState.FORECAST, state());
        given.forecast(0.001, 50);
        assertEquals(ResourceState.FORECAST, state());
        given.forecast(0, 50);
        assertEquals(ResourceState.NO_EXHAUSTION, state());
        assertEquals("no exhaustion within the horizon", ResourceJudge.words(asGiven()));
        assertNull(note());
        given.forecast(-1, 50);
        assertEquals(ResourceState.NO_EXHAUSTION, state());
    }

    @Test
    void theLibrarySaysWhetherALimitIsReached() {
        given.forecast(12, 75);
        given.value = 100;
        assertEquals(ResourceState.FORECAST, state());
        given.value = 1;
        given.reached = RunResource.Reached.UPPER;
        assertEquals(ResourceState.AT_LIMIT, state());
        given.reached = RunResource.Reached.LOWER;
        assertEquals(ResourceState.AT_LIMIT, state());
    }

    @Test
    void whatWasNotReadInThisCycleIsUnreadable() {
        given.forecast(12, 75).isRead = false;
        given.reached = RunResource.Reached.UPPER;
        assertEquals(ResourceState.UNREADABLE, state());
        assertEquals("it could not be read in the newest cycle; the value is the last that was read", note());
        hasValue = false;
        assertEquals("it could not be read in the newest cycle", note());
        given.isRead = true;
        given.value = Double.NaN;
        assertEquals(ResourceState.UNREADABLE, state());
    }

    @Test
    void whatCannotRunOutHasNoLimit() {
        given.reached = RunResource.Reached.UPPER;
        given.measured = 9.3e18;
        assertEquals(ResourceState.NO_LIMIT, state());
        given.measured = 1000;
        given.upper = RunResource.NONE;
        given.method = 0;
        assertEquals(ResourceState.NO_LIMIT, state());
        assertEquals("sampled only, never forecast (AnalyticalMethod 0)", note());
        given.object = "Answers";
        assertEquals("not measured: the agent has no counter of this name", note());
    }

    @Test
    void theMachineWithoutSwapHasNone() {
        stale = true;
        given.measured = 0;
        given.isRead = false;
        assertEquals(ResourceState.ABSENT, state());
        assertEquals("this machine has no swap space", note());
    }

    @Test
    void theFirstRuleThatHoldsDecides() {
        given.isRead = false;
        assertEquals(ResourceState.UNREADABLE, state());
        stale = true;
        assertEquals(ResourceState.STALE, state());
        given.upper = RunResource.NONE;
        assertEquals(ResourceState.NO_LIMIT, state());
        present = false;
        assertEquals(ResourceState.ABSENT, state());
    }

    @Test
    void aWindowThatIsTooShortIsTold() {
        given.slots = 120;
        given.samples = 120;
        assertEquals(ResourceState.COLLECTING, state());
        assertEquals("window holds only 120 samples, a forecast needs 200", note());
        given.slots = 1;
        assertEquals("window holds only 1 sample, a forecast needs 200", note());
        given.slots = 0;
        assertEquals("there is no memory for its samples, so it is not forecast", note());
    }

    private static Snapshot.Resource row(int id, ResourceState state, Double seconds, Double value) {
        return new Snapshot.Resource(new Snapshot.Identity(id, "r", "", null, null, "counter", null),
                new Snapshot.Reading(value, null, null, 0, new Snapshot.Recent(0, 0, List.of())),
                new Snapshot.Standing(state, state.words(), null, null),
                new Snapshot.Forecast(null, seconds, null, null, null, null));
    }

    @Test
    void theOrderIsStateThenTimeThenValueThenNumber() {
        List<Snapshot.Resource> wanted = List.of(
                row(9, ResourceState.AT_LIMIT, null, 100.0),
                row(8, ResourceState.FORECAST, 60.0, 1.0), row(1, ResourceState.FORECAST, 90.0, 99.0),
                row(7, ResourceState.PENDING, 10.0, 5.0), row(2, ResourceState.PENDING, null, 5.0),
                row(6, ResourceState.STALE, null, 5.0), row(5, ResourceState.UNREADABLE, null, null),
                row(4, ResourceState.COLLECTING, null, 80.0), row(3, ResourceState.COLLECTING, null, 20.0),
                row(10, ResourceState.COLLECTING, null, 20.0), row(11, ResourceState.COLLECTING, null, null),
                row(12, ResourceState.NO_EXHAUSTION, null, 1.0), row(13, ResourceState.NO_LIMIT, null, 1.0),
                row(14, ResourceState.ABSENT, null, null));
        for (int i = 0; i < 20; i++) {
            List<Snapshot.Resource> mixed = new ArrayList<>(wanted);
            Collections.shuffle(mixed, new Random(i));
            mixed.sort(ResourceJudge.MOST_URGENT_FIRST);
            assertEquals(wanted, mixed);
        }
    }
}
