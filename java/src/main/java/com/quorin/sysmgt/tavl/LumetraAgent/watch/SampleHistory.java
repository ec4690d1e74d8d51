package com.quorin.sysmgt.tavl.LumetraAgent.watch;

import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.TrendView;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;

/**
 * The newest samples of one resource, those of earlier runs included, in bounded memory.
 *
 * <p>One thread at a time uses it.
 */
final class SampleHistory {

    /** A value that stands for none; the agent's forecast passes over it. */
    static final double NO_SAMPLE = -1.0;

    /** So many stretches make up a short history. */
    static final int STRETCHES = 60;

    private final int most;
    private long[] times = new long[16];
    private double[] values = new double[16];
    private int start;
    private int size;

    /** A history without samples that keeps at most so many. */
    SampleHistory(int most) {
        this.most = most;
    }

    /**
     * Takes up a sample. One that stands for none, or is no number, is left out.
     *
     * @param time  seconds since the epoch
     * @param value per cent
     */
    void add(long time, double value) {
        if (value == NO_SAMPLE || !Double.isFinite(value)) {
            return;
        }
        if (size == times.length && size < most) {
            grow();
        }
        int slot = (start + size) % times.length;
        times[slot] = time;
        values[slot] = value;
        if (size < Math.min(most, times.length)) {
            size++;
        } else {
            start = (start + 1) % times.length;
        }
    }

    private void grow() {
        int length = Math.min(most, 2 * times.length);
        long[] moreTimes = new long[length];
        double[] moreValues = new double[length];
        for (int i = 0; i < size; i++) {
            moreTimes[i] = time(i);
            moreValues[i] = value(i);
        }
        times = moreTimes;
        values = moreValues;
        start = 0;
    }

    /** The samples from one moment on and before another, in seconds since the epoch, oldest first. */
    TrendView.Curve between(double from, double before) {
        double[] someTimes = new double[size];
        double[] someValues = new double[size];
        int count = 0;
        for (int i = 0; i < size; i++) {
            if (time(i) >= from && time(i) < before) {
                someTimes[count] = time(i);
                someValues[count++] = value(i);
            }
        }
        return new TrendView.Curve(Arrays.copyOf(someTimes, count), Arrays.copyOf(someValues, count));
    }

    /**
     * The means of {@link #STRETCHES} stretches; of one only when all samples are of one moment.
     *
     * @param to     the end, seconds since the epoch
     * @param window how far it reaches back at most, in seconds
     */
    Snapshot.Recent recent(long to, long window) {
        long from = to;
        for (int i = 0; i < size; i++) {
            if (time(i) >= to - window && time(i) < from) {
                from = time(i);
            }
        }
        double[] sums = new double[from == to ? 1 : STRETCHES];
        int[] counts = new int[sums.length];
        for (int i = 0; i < size; i++) {
            if (time(i) >= from && time(i) <= to) {
                long at = from == to ? 0 : (time(i) - from) * STRETCHES / (to - from);
                int stretch = (int) Math.min(at, sums.length - 1);
                sums[stretch] += value(i);
                counts[stretch]++;
            }
        }
        List<Double> means = new ArrayList<>(sums.length);
        for (int i = 0; i < sums.length; i++) {
            means.add(counts[i] == 0 ? null : rounded(sums[i] / counts[i]));
        }
        return new Snapshot.Recent(from, to, means);
    }

    private static Double rounded(double mean) {
        double rounded = Math.rint(mean * 1000) / 1000;
        return Double.isFinite(rounded) ? rounded : null;
    }

    private long time(int i) {
        return times[(start + i) % times.length];
    }

    private double value(int i) {
        return values[(start + i) % values.length];
    }
}
