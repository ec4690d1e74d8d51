package com.quorin.sysmgt.tavl.LumetraAgent.host;

import java.time.Duration;
import java.util.Optional;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.TimeUnit;

/**
 * One run of the agent on a thread of its own, and the way to end it.
 *
 * <p>All methods may be called from any thread; {@link #prepare} and then {@link #start} once only.
 */
final class AgentRun {

    /**
     * A request that came too early is forgotten, so it is made again at this distance until the run has
     * ended.
     */
    private static final Duration ASK_AGAIN = Duration.ofMillis(200);

    /** The two native calls, so that a test can stand in for the library. */
    interface Agent {
        /** Runs until it is asked to stop; gives back the native result. */
        int run();

        /**
         * Asks the running agent to stop; forgotten by an agent that is still setting itself up. Gives back the
         * native result.
         */
        int pleaseStop();
    }

    private final Agent agent;
    private final Thread thread;
    private final CountDownLatch begun = new CountDownLatch(1);
    private final CountDownLatch ended = new CountDownLatch(1);
    private volatile boolean stopAsked;
    private volatile boolean endedUnasked;
    private volatile int result;
    private volatile Throwable failure;

    AgentRun(Agent agent) {
        this.agent = agent;
        thread = new Thread(this::runAgent, "lumetra-agent");
        thread.setDaemon(true);
    }

    /**
     * Starts the run's thread, which then waits for {@link #start}: whatever else is started meanwhile, this
     * one is there.
     *
     * @throws OutOfMemoryError when there is no thread to be had
     */
    void prepare() {
        thread.start();
    }

    /** Starts the run, which was prepared. */
    void start() {
        begun.countDown();
    }

    private void runAgent() {
        try {
            begun.await();
            result = agent.run();
        } catch (InterruptedException e) {
            failure = e;
        } catch (RuntimeException | Error e) {
            failure = e;
        } finally {
            endedUnasked = !stopAsked;
            ended.countDown();
        }
    }

    /** Waits for the run's end, at most so long, and tells whether it has come. */
    boolean awaitEnd(Duration time) {
        try {
            return ended.await(time.toNanos(), TimeUnit.NANOSECONDS);
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
            return hasEnded();
        }
    }

    /**
     * Asks the agent to stop, again and again, and returns when it has.
     *
     * @param reminder called each time the wait has lasted another {@code remindAfter}
     */
    void stop(Runnable reminder, Duration remindAfter) {
        stopAsked = true;
        long next = System.nanoTime() + remindAfter.toNanos();
        while (!hasEnded()) {
            ask();
            awaitEnd(ASK_AGAIN);
            if (!hasEnded() && System.nanoTime() - next >= 0) {
                reminder.run();
                next += remindAfter.toNanos();
            }
        }
    }

    private void ask() {
        try {
            agent.pleaseStop();
        } catch (RuntimeException | Error e) {
            failure = e; // without this call nothing can end the agent in order
            ended.countDown();
        }
    }

    /** Whether the agent has returned. */
    boolean hasEnded() {
        return ended.getCount() == 0;
    }

    /** Whether a stop was asked for. */
    boolean isStopping() {
        return stopAsked;
    }

    /** Whether the agent has returned after it was asked to: not when it ended by itself or with an exception. */
    boolean endedAsAsked() {
        return hasEnded() && !endedUnasked && failure == null;
    }

    /** What the native call returned; 0 before the end. */
    int result() {
        return result;
    }

    /** The exception that ended the run; empty when there was none. */
    Optional<Throwable> failure() {
        return Optional.ofNullable(failure);
    }
}
