package com.quorin.sysmgt.tavl.LumetraAgent.watch;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;

import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.TrendView;
import java.util.List;
import org.junit.jupiter.api.Test;

class SampleHistoryTest {

    private final SampleHistory history = new SampleHistory(2048);

    private TrendView.Curve all() {
        return history.between(0, Double.MAX_VALUE);
    }

    @Test
    void theNewestSamplesAreKept() {
        for (int i = 0; i < 5000; i++) {
            history.add(i, i / 2.0);
        }
        TrendView.Curve curve = all();
        assertEquals(2048, curve.times().length);
        for (int i = 0; i < 2048; i++) {
            assertEquals(5000 - 2048 + i, curve.times()[i]);
            assertEquals((5000 - 2048 + i) / 2.0, curve.values()[i]);
        }
    }

    @Test
    void aSmallHistoryKeepsItsOrderToo() {
        SampleHistory small = new SampleHistory(3);
        for (int i = 0; i < 50; i++) {
            small.add(i, i);
            int kept = Math.min(3, i + 1);
            assertEquals(kept, small.between(0, 100).times().length);
            assertEquals(i, small.between(0, 100).times()[kept - 1]);
        }
        assertArrayEquals(new double[] {47, 48, 49}, small.between(0, 100).values());
    }

    @Test
    void whatIsToKeepLessKeepsTheNewest() {
        for (int i = 0; i < 5000; i++) {
            history.add(i, i);
        }
        history.limit(3);
        assertArrayEquals(new double[] {4997, 4998, 4999}, all().values());
        history.limit(5);
        history.add(5000, 5000);
        assertArrayEquals(new double[] {4998, 4999, 5000}, all().values());
    }

    @Test
    void aTimeIsKeptUpToTheEndOf32Bits() {
        history.add(0x8000_0000L, 1);
        history.add(0xffff_ffffL, 2);
        history.add(0x1_0000_0000L, 3);
        history.add(-1, 4);
        assertArrayEquals(new double[] {0x8000_0000L, 0xffff_ffffL}, all().times());
    }

    @Test
    void allTimesMoveWithTheClock() {
        SampleHistory small = new SampleHistory(3);
        for (int i = 0; i < 5; i++) {
            small.add(1000 + i, i);
        }
        small.move(-500);
        assertArrayEquals(new double[] {502, 503, 504}, small.between(0, 2000).times());
        assertArrayEquals(new double[] {2, 3, 4}, small.between(0, 2000).values());
        small.add(505, 5);
        assertArrayEquals(new double[] {503, 504, 505}, small.between(0, 2000).times());
        small.move(-504);
        assertEquals(0, small.between(0, Double.MAX_VALUE).length());
        history.add(0xffff_fffeL, 1);
        history.move(1);
        assertArrayEquals(new double[] {0xffff_ffffL}, all().times());
        history.move(1);
        assertEquals(0, all().length());
    }

    @Test
    void whatStandsForNoSampleIsLeftOut() {
        history.add(1, SampleHistory.NO_SAMPLE);
        history.add(2, -0.99);
        assertArrayEquals(new double[] {2}, all().times());
    }

    @Test
    void aCurveBeginsAndEndsWhereItIsAskedFor() {
        for (int i = 0; i < 10; i++) {
            history.add(100 + i, i);
        }
        assertArrayEquals(new double[] {108, 109}, history.between(108, 200).times());
        assertArrayEquals(new double[] {106, 107}, history.between(106, 108).times());
        assertEquals(0, history.between(200, 300).length());
    }

    @Test
    void theShortHistoryHasTheMeansOfItsStretches() {
        for (int i = 0; i <= 120; i++) {
            history.add(1000 + i, i < 60 ? 10 : 20);
        }
        Snapshot.Recent recent = history.recent(1120, 500);
        assertEquals(1000, recent.from());
        assertEquals(1120, recent.to());
        assertEquals(60, recent.values().size());
        assertEquals(10.0, recent.values().get(29));
        assertEquals(20.0, recent.values().get(30));
        assertEquals(20.0, recent.values().get(59));
    }

    @Test
    void theShortHistoryReachesNoFartherThanTheWindow() {
        history.add(0, 99);
        history.add(900, 1);
        history.add(1000, 3);
        Snapshot.Recent recent = history.recent(1000, 200);
        assertEquals(900, recent.from());
        assertEquals(1.0, recent.values().get(0));
        assertNull(recent.values().get(30));
        assertEquals(3.0, recent.values().get(59));
    }

    @Test
    void oneMomentIsOneStretch() {
        history.add(1000, 3.14159);
        assertEquals(new Snapshot.Recent(1000, 1000, List.of(3.142)), history.recent(1000, 60));
        assertEquals(1, new SampleHistory(5).recent(7, 60).values().size());
        assertNull(new SampleHistory(5).recent(7, 60).values().get(0));
    }

    @Test
    void whatIsNoNumberIsLeftOut() {
        history.add(1, Double.NaN);
        history.add(2, Double.POSITIVE_INFINITY);
        assertEquals(0, all().times().length);
        history.add(3, Double.MAX_VALUE);
        history.add(3, Double.MAX_VALUE);
        assertNull(history.recent(3, 10).values().get(0));
    }
}
