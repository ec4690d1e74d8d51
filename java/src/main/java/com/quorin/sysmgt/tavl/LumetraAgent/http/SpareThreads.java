package com.quorin.sysmgt.tavl.LumetraAgent.http;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.ConcurrentLinkedQueue;
import java.util.concurrent.CountDownLatch;

/**
 * Idle threads that keep room for those that come later, so that what starts meanwhile does not take the last
 * ones. Their release leaves their room free.
 */
public final class SpareThreads {

    private static final int MOST_MILLISECONDS_OF_AN_END = 1000;

    private final CountDownLatch over = new CountDownLatch(1);
    private final List<Thread> threads = new ArrayList<>();
    private final ConcurrentLinkedQueue<Path> tasks = new ConcurrentLinkedQueue<>();

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
            tasks.add(Files.readSymbolicLink(Path.of("/proc/thread-self")));
        } catch (IOException | OutOfMemoryError e) {
            // nobody waits until the kernel has forgotten it
        }
        try {
            over.await();
        } catch (InterruptedException e) {
            // ends as well
        }
    }

    /**
     * Ends the threads and waits for their end; then, at most a second, until the kernel no longer counts them, which
     * it does for a moment longer than Java.
     */
    public void release() {
        over.countDown();
        try {
            for (Thread thread : threads) {
                thread.join();
            }
            for (int i = 0; i < MOST_MILLISECONDS_OF_AN_END && tasks.stream().anyMatch(SpareThreads::isCounted); i++) {
                Thread.sleep(1);
            }
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }

    private static boolean isCounted(Path task) {
        return Files.exists(Path.of("/proc").resolve(task));
    }
}
