package com.quorin.sysmgt.tavl.LumetraAgent;

import java.time.Duration;
import java.util.Collection;
import java.util.List;
import java.util.function.LongSupplier;

/**
 * Fetches headlines and charts from the agent without getting in its way. One thread uses it; a call may last
 * as long as the agent keeps the lock, three seconds at most.
 */
final class ForecastDesk {

    /** Each read from an agent without a pause may wait for the lock; no series goes on for longer. */
    static final long LONGEST_SERIES = Duration.ofSeconds(1).toNanos();

    private final TrendReader reader;
    private final LockWindow window;
    private final LongSupplier nanoTime;
    private final boolean hasPause;
    private int next;

    /**
     * A desk.
     *
     * @param reader   reads the forecasts
     * @param window   says when the lock may be taken
     * @param hasPause whether the agent pauses between two cycles
     * @param nanoTime the present time
     */
    ForecastDesk(TrendReader reader, LockWindow window, boolean hasPause, LongSupplier nanoTime) {
        this.reader = reader;
        this.window = window;
        this.hasPause = hasPause;
        this.nanoTime = nanoTime;
    }

    /** What became of the reading of headlines. */
    private enum Outcome { NEW, OLD, NONE, LATER, OVER }

    /**
     * The resources as the library names them.
     *
     * @return the resources; none when no agent runs
     */
    Collection<TrendReader.Resource> names() {
        try {
            return reader.resources();
        } catch (TrendUnavailable e) {
            return List.of();
        }
    }

    /**
     * Reads the headlines of a cycle.
     *
     * @param resources the resources that have one
     * @param cycle     the cycle's time
     * @param lastTry   whether to be content with headlines of earlier cycles
     * @return whether there is nothing more to be had of this cycle
     */
    boolean readHeadlines(List<WatchedResource> resources, long cycle, boolean lastTry) {
        int count = resources.size();
        int first = count == 0 ? 0 : next % count;
        boolean anyNew = count == 0;
        long from = nanoTime.getAsLong();
        for (int i = 0; i < count; i++) {
            WatchedResource resource = resources.get((first + i) % count);
            next = (first + i) % count;
            if (!hasPause && nanoTime.getAsLong() - from >= LONGEST_SERIES) {
                window.rest(nanoTime.getAsLong());
                return true; // the rest has its turn in a later cycle
            }
            if (resource.headline != null && resource.headline.time() >= cycle) {
                anyNew = true;
                continue;
            }
            Outcome outcome = isOpen() ? readHeadline(resource, cycle) : Outcome.LATER;
            anyNew |= outcome == Outcome.NEW;
            boolean tooEarly = outcome == Outcome.OLD && !anyNew && hasPause && !lastTry;
            if (outcome == Outcome.LATER || outcome == Outcome.OVER || tooEarly) {
                window.rest(nanoTime.getAsLong());
                return outcome == Outcome.OVER;
            }
        }
        next = 0;
        window.rest(nanoTime.getAsLong());
        return anyNew || !hasPause;
    }

    private Outcome readHeadline(WatchedResource resource, long cycle) {
        long from = nanoTime.getAsLong();
        try {
            resource.headline = hasPause ? reader.headline(resource.key) : headlineWithChart(resource);
            return resource.headline.time() >= cycle ? Outcome.NEW : Outcome.OLD;
        } catch (TrendUnavailable e) {
            return switch (e.reason()) {
                case BUSY -> Outcome.LATER;
                case NO_RESOURCES, STOPPING -> Outcome.OVER;
                case NO_FILE, MALFORMED -> {
                    resource.headline = null;
                    yield Outcome.NONE;
                }
            };
        } finally {
            window.used(from, nanoTime.getAsLong());
        }
    }

    /** An agent without a pause rarely gives the lock away: whoever asks for the chart later may not get it. */
    private TrendReader.Headline headlineWithChart(WatchedResource resource) throws TrendUnavailable {
        try {
            return keepChart(resource);
        } catch (TrendUnavailable e) {
            return switch (e.reason()) {
                case NO_FILE, MALFORMED -> reader.headline(resource.key); // a full disk may have cost a curve only
                case BUSY, NO_RESOURCES, STOPPING -> throw e;
            };
        }
    }

    private TrendReader.Headline keepChart(WatchedResource resource) throws TrendUnavailable {
        TrendReader.Trend trend = reader.read(resource.key);
        resource.keep(trend.headline().time(), Charts.of(resource.id, trend));
        return trend.headline();
    }

    /**
     * Whether forecasts may be read now.
     *
     * @return false while the lock is to be left alone
     */
    boolean isOpen() {
        return window.isOpen(nanoTime.getAsLong());
    }

    /**
     * Reads a resource's chart, which the resource keeps; without a forecast to be had it keeps the one it has.
     *
     * @param resource the resource
     */
    void readChart(WatchedResource resource) {
        long from = nanoTime.getAsLong();
        try {
            keepChart(resource);
        } catch (TrendUnavailable e) {
            // the last known chart has to do
        } finally {
            window.used(from, nanoTime.getAsLong());
        }
    }
}
