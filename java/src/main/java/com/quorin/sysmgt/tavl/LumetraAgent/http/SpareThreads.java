package com.quorin.sysmgt.tavl.LumetraAgent.http;

import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.CountDownLatch;

/**
 * Idle threads that keep room for those that come later, so that what starts meanwhile does not take the last
 * ones. Their release leaves their room free.
 */
public final class SpareThreads {

    private final CountDownLatch over = new CountDownLatch(1);
    private final List<Thread> threads = new ArrayList<>();

    private SpareThreads() {}

    /**
     * Starts so many idle threads.
     *
     * @throws OutOfMemoryError when so many cannot be started; none of them stays then
     */
    public static SpareThreads hold(int count) {
        SpareThreads spare = new SpareThreads();
        try {
            for (int i = 0; i < count; i++) {
                Thread thread = new Thread(spare::idle, "lumetra-spare-" + (i + 1));
                thread.setDaemon(true);
                thread.start();
                spare.threads.add(thread);
            }
            return spare;
        } catch (OutOfMemoryError e) {
            spare.release();
            throw e;
        }
    }

    private void idle() {
        try {
            over.await();
        } catch (InterruptedException e) {
            // ends as well
        }
    }

    /** Ends the threads and waits for their end. */
    public void release() {
        over.countDown();
        for (Thread thread : threads) {
            try {
                thread.join();
            } catch (InterruptedException e) {
                Thread.currentThread().interrupt();
                return;
            }
        }
    }
}
