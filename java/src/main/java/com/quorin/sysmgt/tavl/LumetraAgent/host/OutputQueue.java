package com.quorin.sysmgt.tavl.LumetraAgent.host;

import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.OutputStream;
import java.io.PrintStream;
import java.nio.charset.Charset;
import java.nio.charset.StandardCharsets;
import java.time.Duration;
import java.util.ArrayDeque;
import java.util.Deque;

/**
 * Prints whole lines on a thread of its own, so that an output that nobody reads (a paused pager, a stopped
 * terminal, a stuck journal) keeps nobody waiting. Lines wait in a queue of bounded size. Those that find it
 * full are left out, and their number is told when output flows again.
 *
 * <p>All methods may be called from any thread.
 */
final class OutputQueue {

    /** So many bytes may wait. */
    static final int MOST_WAITING = 2 * 1024 * 1024;

    /** A line that is longer goes out in pieces. */
    private static final int LONGEST_PIECE = 8 * 1024;

    /** What a line takes beside its bytes. */
    private static final int OF_ONE_LINE = 64;

    private record Line(OutputStream target, byte[] bytes) {}

    /** Cuts what is printed into lines. */
    private final class Lines extends OutputStream {
        private final OutputStream target;
        private final ByteArrayOutputStream begun = new ByteArrayOutputStream();

        Lines(OutputStream target) {
            this.target = target;
        }

        @Override
        public void write(int b) {
            write(new byte[] {(byte) b}, 0, 1);
        }

        @Override
        public synchronized void write(byte[] bytes, int from, int count) {
            for (int i = from; i < from + count; i++) {
                begun.write(bytes[i]);
                if (bytes[i] == '\n' || begun.size() >= LONGEST_PIECE) {
                    offer(target, begun.toByteArray());
                    begun.reset();
                }
            }
        }
    }

    private final Deque<Line> lines = new ArrayDeque<>();
    private int waiting;
    private long leftOut;
    private OutputStream lastLeftOut;
    private boolean isWriting;

    private OutputQueue() {}

    /**
     * Starts a queue.
     *
     * @throws OutOfMemoryError when there is no thread to be had
     */
    static OutputQueue start() {
        OutputQueue queue = new OutputQueue();
        Thread thread = new Thread(queue::work, "lumetra-output");
        thread.setDaemon(true);
        thread.start();
        return queue;
    }

    /** A stream whose lines wait in this queue until they go to the target. It never blocks and never fails. */
    PrintStream to(OutputStream target, Charset charset) {
        return new PrintStream(new Lines(target), true, charset);
    }

    /** Waits until everything is written, at most so long; false when nobody reads it. */
    synchronized boolean drain(Duration longest) {
        long end = System.nanoTime() + longest.toNanos();
        while (isWriting || !lines.isEmpty() || leftOut > 0) {
            long left = end - System.nanoTime();
            if (left <= 0) {
                return false;
            }
            try {
                wait(left / 1_000_000 + 1);
            } catch (InterruptedException e) {
                Thread.currentThread().interrupt();
                return false;
            }
        }
        return true;
    }

    /** Once lines are left out, they are until half of the queue is free: one gap is easier to read than many. */
    private synchronized void offer(OutputStream target, byte[] bytes) {
        if (waiting + bytes.length + OF_ONE_LINE > (leftOut > 0 ? MOST_WAITING / 2 : MOST_WAITING)) {
            leftOut++;
            lastLeftOut = target;
            return;
        }
        tellLeftOut();
        add(target, bytes);
    }

    private void add(OutputStream target, byte[] bytes) {
        lines.addLast(new Line(target, bytes));
        waiting += bytes.length + OF_ONE_LINE;
        notifyAll();
    }

    private void tellLeftOut() {
        if (leftOut == 0) {
            return;
        }
        String text = leftOut + (leftOut == 1 ? " line was" : " lines were")
                + " left out here, as nobody read the output.\n";
        add(lastLeftOut, text.getBytes(StandardCharsets.US_ASCII));
        leftOut = 0;
    }

    private void work() {
        while (true) {
            try {
                write(next());
            } catch (IOException | RuntimeException | OutOfMemoryError e) {
                // an output that is gone or full takes no line, and there is nowhere to say so
            }
        }
    }

    private static void write(Line line) throws IOException {
        line.target.write(line.bytes);
        line.target.flush();
    }

    private synchronized Line next() {
        isWriting = false;
        notifyAll();
        while (lines.isEmpty()) {
            try {
                tellLeftOut();
            } catch (OutOfMemoryError e) {
                // told with the next line
            }
            if (lines.isEmpty()) {
                await();
            }
        }
        isWriting = true;
        Line line = lines.removeFirst();
        waiting -= line.bytes.length + OF_ONE_LINE;
        return line;
    }

    private void await() {
        try {
            wait();
        } catch (InterruptedException e) {
            // nobody has a reason to interrupt this thread; lines go on
        }
    }
}
