package com.quorin.sysmgt.tavl.LumetraAgent;

import static org.junit.jupiter.api.Assertions.assertEquals;

import java.time.Duration;
import org.junit.jupiter.api.Test;

class MetricsCyclesTest {

    private final MetricsCycles cycles = new MetricsCycles(Duration.ofSeconds(10));

    private void assertMeasured(long count, double sum) {
        assertEquals(count, cycles.count());
        assertEquals(sum, cycles.sum(), 1e-9);
    }

    @Test
    void aCycleTakesTheDistanceLessThePause() {
        cycles.take(1, 1000);
        assertMeasured(0, 0);
        cycles.take(1, 1010.25);
        assertMeasured(1, 0.25);
        cycles.take(1, 1021.25);
        assertMeasured(2, 1.25);
    }

    @Test
    void withoutANewLineNothingIsMeasured() {
        cycles.take(0, Double.NaN);
        cycles.take(1, 1000);
        cycles.take(0, 1000);
        cycles.take(0, 1005);
        cycles.take(1, 1011);
        assertMeasured(1, 1);
    }

    @Test
    void severalLinesAtOnceAreAsManyCycles() {
        cycles.take(1, 1000);
        cycles.take(3, 1031.5);
        assertMeasured(3, 1.5);
    }

    @Test
    void linesWhoseMomentIsUnknownWaitForTheNext() {
        cycles.take(1, 1000);
        cycles.take(1, Double.NaN);
        cycles.take(1, 1021);
        assertMeasured(2, 1);
    }

    @Test
    void aClockThatIsSetBackTakesNothingAway() {
        cycles.take(1, 1000);
        cycles.take(1, 1010.5);
        cycles.take(1, 500);
        assertMeasured(2, 0.5);
        cycles.take(1, 510.25);
        assertMeasured(3, 0.75);
    }
}
