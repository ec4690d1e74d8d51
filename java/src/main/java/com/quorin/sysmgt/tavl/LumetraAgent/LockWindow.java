package com.quorin.sysmgt.tavl.LumetraAgent;

import java.time.Duration;

/**
 * When the trend-file lock may be taken. The agent takes it right after it appended a line to its archive and
 * keeps it for the whole forecast; an agent that finds it taken sleeps a second. So the lock is left alone
 * outside of the pause between two cycles. An agent without a pause, or with one below two seconds, is
 * disturbed for at most 2 per cent of the time.
 *
 * <p>One thread uses it. Times are those of {@link System#nanoTime}.
 */
final class LockWindow {

    /** How long after a line the agent has surely taken the lock. */
    static final Duration AFTER_LINE = Duration.ofMillis(100);

    private static final Duration SHORT_PAUSE = Duration.ofSeconds(2);
    private static final long MARGIN = Duration.ofMillis(500).toNanos();
    private static final long SECOND = Duration.ofSeconds(1).toNanos();
    private static final int SHARE = 50; // one part in so many may be spent under the lock

    private final long pause;
    private final boolean isRationed;
    private final long lag;
    private boolean hasLine;
    private long line;
    private long heldSinceBreak;
    private long nextTurn;
    private boolean resting;

    /**
     * A window for one agent.
     *
     * @param pause the agent's pause between two cycles
     * @param lag   how long after it was appended a line may be noticed
     */
    LockWindow(Duration pause, Duration lag) {
        this.pause = pause.toNanos();
        this.isRationed = pause.compareTo(SHORT_PAUSE) < 0;
        this.lag = isRationed ? 0 : lag.toNanos();
    }

    /**
     * A line was noticed in the archive.
     *
     * @param nanoTime the present time
     */
    void lineSeen(long nanoTime) {
        line = nanoTime;
        hasLine = true;
    }

    /**
     * Whether the lock may be taken now.
     *
     * @param nanoTime the present time
     * @return false before the first line
     */
    boolean isOpen(long nanoTime) {
        if (!hasLine || resting && nanoTime - nextTurn < 0) {
            return false;
        }
        resting = false;
        long since = nanoTime - line;
        return pause == 0 || since >= AFTER_LINE.toNanos() && since <= pause - MARGIN - lag;
    }

    /**
     * The lock was taken and given back. What a call waited for the lock does not count: it waits whole
     * seconds.
     *
     * @param from before the call
     * @param to   after the call
     */
    void used(long from, long to) {
        heldSinceBreak += (to - from) % SECOND;
        if (isRationed && heldSinceBreak >= SECOND / SHARE) {
            rest(to);
        }
    }

    /**
     * A series of calls is over.
     *
     * @param nanoTime the present time
     */
    void rest(long nanoTime) {
        if (isRationed && heldSinceBreak > 0) {
            nextTurn = nanoTime + heldSinceBreak * (SHARE - 1);
            resting = true;
        }
        heldSinceBreak = 0;
    }
}
