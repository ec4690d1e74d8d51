package com.quorin.sysmgt.tavl.LumetraAgent.watch;

import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.TrendView;
import java.util.AbstractList;
import java.util.Arrays;
import java.util.RandomAccess;

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

    /** Numbers where there are any, and null elsewhere; thousands of resources have sixty each, mostly unread. */
    private static final class Means extends AbstractList<Double> implements RandomAccess {
        private final double[] means;

        Means(double[] means) {
            this.means = means;
        }

        @Override
        public Double get(int i) {
            return Double.isFinite(means[i]) ? means[i] : null;
        }

        @Override
        public int size() {
            return means.length;
        }
    }

    private int most;
    private int[] times = new int[16];
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
     * @param time  seconds since the epoch, kept in 32 bits without a sign; another is left out
     * @param value per cent
     */
    void add(long time, double value) {
        if (value == NO_SAMPLE || !Double.isFinite(value) || time >>> Integer.SIZE != 0) {
            return;
        }
        if (size == times.length && size < most) {
            resize(Math.min(most, 2 * times.length));
        }
        int slot = slot(size);
        times[slot] = (int) time;
        values[slot] = value;
        if (size < Math.min(most, times.length)) {
            size++;
        } else {
            start = (start + 1) % times.length;
        }
    }

    /** Makes room for so many samples, of which the newest stay. */
    private void resize(int length) {
        int kept = Math.min(size, length);
        int[] newTimes = new int[length];
        double[] newValues = new double[length];
        for (int i = 0; i < kept; i++) {
            newTimes[i] = (int) time(size - kept + i);
            newValues[i] = value(size - kept + i);
        }
        times = newTimes;
        values = newValues;
        start = 0;
        size = kept;
    }

    /** Moves all times with a clock that has stepped by so many seconds; forgets all when one cannot be kept then. */
    void move(long seconds) {
        for (int i = 0; i < size; i++) {
            long moved = time(i) + seconds;
            if (moved >>> Integer.SIZE != 0) {
                size = 0;
                return;
            }
            times[slot(i)] = (int) moved;
        }
    }

    /** Keeps no more than so many samples from now on. */
    void limit(int fewer) {
        most = Math.min(most, fewer);
        if (times.length > most) {
            resize(most);
        }
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
            long time = time(i);
            if (time >= to - window && time < from) {
                from = time;
            }
        }
        double[] sums = new double[from == to ? 1 : STRETCHES];
        int[] counts = new int[sums.length];
        for (int i = 0; i < size; i++) {
            long time = time(i);
            if (time >= from && time <= to) {
                long at = from == to ? 0 : (time - from) * STRETCHES / (to - from);
                int stretch = (int) Math.min(at, sums.length - 1);
                sums[stretch] += value(i);
                counts[stretch]++;
            }
        }
        for (int i = 0; i < sums.length; i++) {
            sums[i] = Math.rint(sums[i] / counts[i] * 1000) / 1000;
        }
        return new Snapshot.Recent(from, to, new Means(sums));
    }

    private long time(int i) {
        return Integer.toUnsignedLong(times[slot(i)]);
    }

    private double value(int i) {
        return values[slot(i)];
    }

    /** Where a sample is, the oldest being 0; a division would be most of the work of a short history. */
    private int slot(int i) {
        int slot = start + i;
        return slot < times.length ? slot : slot - times.length;
    }
}
