package com.quorin.sysmgt.tavl.LumetraAgent;

/**
 * One resource as {@link WatchedFleet} keeps it. The view's thread alone changes it; what is volatile may be
 * read by any thread.
 */
final class WatchedResource {

    /** A chart and the cycle that it belongs to. */
    record Chart(long cycle, TrendView view) {}

    /** The resource's number. */
    final int id;

    /** Its samples. */
    final SampleHistory history;

    /** Whether it has been in a snapshot. */
    volatile boolean isShown;

    /** Whether it was in a line of this run. */
    boolean isListed;

    /** The resource as the library names it; null until its record is read. */
    volatile TrendReader.Resource key;

    /** Its display name, a text of bytes; empty until its record is read. */
    volatile String displayName = "";

    /** The newest chart; null before the first. */
    volatile Chart chart;

    /** How far back its analysis looks, in seconds. */
    volatile long windowSeconds = Integer.MAX_VALUE;

    /** The limit by its method; null for none. */
    volatile Double limit;

    /** Its record in the scratch pad; null until it is read. */
    KnownResource known;

    /** The state of the scratch pad when its record was last looked for; null before. */
    Object soughtIn;

    /** What else is known of it; null as long as its record is. */
    ResourceFacts facts;

    /** Whether the disks have not been listed since it appeared. */
    boolean awaitsListing;

    /** Which line of this run it was last in, 1 for the first. */
    long lastLine;

    /** Its newest value. */
    double value;

    /** Its newest forecast; null without one. */
    TrendReader.Headline headline;

    /**
     * A resource of which nothing is known yet.
     *
     * @param id      its number
     * @param samples how many samples are kept
     */
    WatchedResource(int id, int samples) {
        this.id = id;
        this.history = new SampleHistory(samples);
    }

    /**
     * Takes up its sample of a line. The agent forgets the samples of a resource that it loses sight of.
     *
     * @param time  the line's time
     * @param line  the line's place in this run, 1 for the first
     * @param value the sample
     */
    void take(long time, long line, double value) {
        if (!isListed || lastLine != line - 1) {
            history.restart();
            headline = null;
            awaitsListing = true;
        }
        isListed = true;
        lastLine = line;
        this.value = value;
        history.addInRun(time, value);
    }

    /**
     * Keeps a chart as the newest.
     *
     * @param cycle the cycle that it belongs to
     * @param view  the chart
     */
    void keep(long cycle, TrendView view) {
        chart = new Chart(cycle, view);
    }

    /**
     * Whether the agent can have made a forecast of it.
     *
     * @param window how many samples its window holds
     * @return false before its 200th sample, and for what is only sampled
     */
    boolean canHaveForecast(long window) {
        return facts != null && facts.method() != 0
                && history.usable(window) >= SamplePlan.SAMPLES_FOR_FORECAST;
    }
}
