package com.quorin.sysmgt.tavl.LumetraAgent;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;

import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.Optional;
import java.util.OptionalDouble;
import java.util.OptionalInt;
import java.util.Random;
import org.junit.jupiter.api.Test;

class ResourceJudgeTest {

    private double value = 50;
    private boolean present = true;
    private boolean readable = true;
    private boolean stale;
    private long window = 1728;
    private TrendReader.Headline headline;

    private static ResourceFacts facts(int method, ResourceFacts.Kind kind) {
        KnownResource swap = new KnownResource(
                1, 7, "PercentSwapSpaceUsed", "_Total", "PercentSwapSpaceUsed", "-2");
        return new ResourceFacts(swap, "Swap", method, -1, Optional.of(1000.0), false, kind);
    }

    private static ResourceFacts upper() {
        return facts(1, ResourceFacts.Kind.COUNTED);
    }

    private static TrendReader.Headline headline(double hours, double level) {
        return new TrendReader.Headline(1, "mean",
                hours < 0 ? OptionalDouble.empty() : OptionalDouble.of(hours),
                level < 0 ? OptionalDouble.empty() : OptionalDouble.of(level), OptionalInt.of(100), "");
    }

    private ResourceJudge.Case given(ResourceFacts facts) {
        return new ResourceJudge.Case(facts, value, present, readable, stale, window, headline);
    }

    private ResourceState state(ResourceFacts facts) {
        return ResourceJudge.state(given(facts));
    }

    @Test
    void withoutAHeadlineItCollects() {
        assertEquals(ResourceState.COLLECTING, state(upper()));
        assertNull(ResourceJudge.note(given(upper())));
        assertEquals(ResourceState.COLLECTING, state(null));
        assertEquals("its record is not in the scratch pad", ResourceJudge.note(given(null)));
    }

    @Test
    void aForecastNeedsTheValueAtItsLevel() {
        headline = headline(12, 75);
        assertEquals(ResourceState.PENDING, state(upper()));
        value = 75;
        assertEquals(ResourceState.FORECAST, state(upper()));
        headline = headline(12, -1);
        assertEquals(ResourceState.PENDING, state(upper()));
        headline = headline(0, 50);
        assertEquals(ResourceState.FORECAST, state(upper()));
        headline = headline(-1, -1);
        assertEquals(ResourceState.NO_EXHAUSTION, state(upper()));
    }

    @Test
    void theLimitIsReachedByTheMethod() {
        headline = headline(12, 75);
        ResourceState[][] wanted = {
            // value 99.95, 99.94, 0, 0.01, -1
            {ResourceState.AT_LIMIT, ResourceState.FORECAST, ResourceState.PENDING, ResourceState.PENDING,
                ResourceState.PENDING},
            {ResourceState.FORECAST, ResourceState.FORECAST, ResourceState.AT_LIMIT, ResourceState.PENDING,
                ResourceState.AT_LIMIT},
            {ResourceState.AT_LIMIT, ResourceState.FORECAST, ResourceState.AT_LIMIT, ResourceState.PENDING,
                ResourceState.AT_LIMIT}};
        double[] values = {99.95, 99.94, 0, 0.01, -1};
        for (int method = 1; method <= 3; method++) {
            for (int i = 0; i < values.length; i++) {
                value = values[i];
                assertEquals(wanted[method - 1][i], state(facts(method, ResourceFacts.Kind.COUNTED)),
                        method + " " + value);
            }
        }
        value = 155;
        assertEquals(ResourceState.AT_LIMIT, state(upper()));
    }

    @Test
    void whatCannotRunOutHasNoLimit() {
        for (int method : new int[] {0, 4, -1}) {
            assertEquals(ResourceState.NO_LIMIT, state(facts(method, ResourceFacts.Kind.COUNTED)));
            assertNull(ResourceJudge.limit(facts(method, ResourceFacts.Kind.COUNTED)));
        }
        value = 100;
        for (ResourceFacts.Kind kind : new ResourceFacts.Kind[] {ResourceFacts.Kind.NOT_MEASURED,
            ResourceFacts.Kind.COUNTS_NONE, ResourceFacts.Kind.UNLIMITED}) {
            assertEquals(ResourceState.NO_LIMIT, state(facts(1, kind)));
            assertNull(ResourceJudge.limit(facts(1, kind)));
        }
    }

    @Test
    void theMachineWithoutSwapHasNone() {
        stale = true;
        assertEquals(ResourceState.ABSENT, state(facts(1, ResourceFacts.Kind.NO_SWAP)));
        assertEquals("this machine has no swap space",
                ResourceJudge.note(given(facts(1, ResourceFacts.Kind.NO_SWAP))));
    }

    @Test
    void theFirstRuleThatHoldsDecides() {
        value = 100;
        readable = false;
        assertEquals(ResourceState.UNREADABLE, state(upper()));
        stale = true;
        assertEquals(ResourceState.STALE, state(upper()));
        assertEquals(ResourceState.NO_LIMIT, state(facts(0, ResourceFacts.Kind.COUNTED)));
        present = false;
        assertEquals(ResourceState.ABSENT, state(facts(0, ResourceFacts.Kind.COUNTED)));
        assertEquals(ResourceState.ABSENT, state(upper()));
    }

    @Test
    void aValueThatIsNoNumberIsUnreadable() {
        value = Double.NaN;
        assertEquals(ResourceState.UNREADABLE, state(upper()));
    }

    @Test
    void theNotesExplain() {
        window = 120;
        assertEquals(
                "window holds only 120 samples, a forecast needs 200", ResourceJudge.note(given(upper())));
        window = 1;
        assertEquals("window holds only 1 sample, a forecast needs 200", ResourceJudge.note(given(upper())));
        assertEquals("sampled only, never forecast (AnalyticalMethod 0)",
                ResourceJudge.note(given(facts(0, ResourceFacts.Kind.COUNTED))));
        assertEquals("no limit to forecast against (AnalyticalMethod 9)",
                ResourceJudge.note(given(facts(9, ResourceFacts.Kind.COUNTED))));
        assertEquals("no limit on this machine; set UpperLimitAbs to forecast against one of your own",
                ResourceJudge.note(given(facts(1, ResourceFacts.Kind.UNLIMITED))));
        assertEquals("not measured: the agent has no counter of this name",
                ResourceJudge.note(given(facts(1, ResourceFacts.Kind.NOT_MEASURED))));
        assertEquals("counts no inodes of its own, always reads as full",
                ResourceJudge.note(given(facts(1, ResourceFacts.Kind.COUNTS_NONE))));
    }

    @Test
    void theLimitBeforeAForecastIsTheMethods() {
        assertEquals(100.0, ResourceJudge.limit(upper()));
        assertEquals(0.0, ResourceJudge.limit(facts(2, ResourceFacts.Kind.COUNTED)));
        assertEquals(0.0, ResourceJudge.limit(facts(3, ResourceFacts.Kind.COUNTED)));
    }

    private static Snapshot.Resource row(int id, ResourceState state, Double seconds, Double value) {
        return new Snapshot.Resource(id, "r", "", null, null, value, null, state, state.words(), null, 0,
                null, seconds, null, null, null, null, null, new Snapshot.Recent(0, 0, List.of()));
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
