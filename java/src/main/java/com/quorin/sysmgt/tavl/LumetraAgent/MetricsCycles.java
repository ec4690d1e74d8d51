package com.quorin.sysmgt.tavl.LumetraAgent;

import java.time.Duration;

/**
 * How long the agent's cycles take: the distance of the moments at which the archive was written, less the
 * pause. The first cycle of a run is not measured, as nothing says when it began.
 *
 * <p>One thread uses it at a time.
 */
final class MetricsCycles {

    private final double pauseSeconds;
    private double lastWritten = Double.NaN;
    private long waiting;
    private long count;
    private double sum;

    /**
     * Nothing is measured yet.
     *
     * @param pause the pause between two cycles
     */
    MetricsCycles(Duration pause) {
        this.pauseSeconds = pause.toMillis() / 1000.0;
    }

    /**
     * Takes up new lines of the archive.
     *
     * @param lines   how many there are
     * @param written when the archive was written, seconds since the epoch; NaN when lines came that are not
     *                counted yet, so that the moment may be theirs
     */
    void take(long lines, double written) {
        waiting += lines;
        if (waiting == 0 || Double.isNaN(written)) {
            return;
        }
        if (!Double.isNaN(lastWritten)) {
            count += waiting;
            sum += Math.max(0, written - lastWritten - waiting * pauseSeconds);
        }
        lastWritten = written;
        waiting = 0;
    }

    /**
     * How many cycles were measured.
     *
     * @return the count
     */
    long count() {
        return count;
    }

    /**
     * How long they took together.
     *
     * @return seconds
     */
    double sum() {
        return sum;
    }
}
