package com.quorin.sysmgt.tavl.LumetraAgent.tell;

import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.nio.charset.StandardCharsets;
import java.time.Duration;
import java.util.List;
import java.util.Optional;
import java.util.concurrent.TimeUnit;
import java.util.function.Predicate;

/** One run of a program that has been started: what it reads, what it says, and its end. One thread uses it. */
final class ProgramRun {

    /** So many bytes are kept of what a program says. */
    static final int MOST_OUTPUT = 8 * 1024;

    private static final Duration LOOK_EVERY = Duration.ofMillis(50);

    /** So many blocks are read at a look; a program that talks faster than that must not keep the looker. */
    private static final int MOST_BLOCKS = 256;

    /** What goes to a program's standard input, where writing may have to wait for the program. */
    record Input(OutputStream stream, byte[] bytes) {

        void write() {
            try (stream) {
                stream.write(bytes);
            } catch (IOException | OutOfMemoryError e) {
                // it need not read, and what is written is copied once more, for which memory may lack
            }
        }
    }

    private final Process process;
    private final ByteArrayOutputStream said = new ByteArrayOutputStream();
    private boolean saidMore;

    ProgramRun(Process process) {
        this.process = process;
    }

    /**
     * Waits for the end, at most so long.
     *
     * @param writer takes the input and writes it; false as long as it cannot
     * @return whether the program has ended by itself
     */
    boolean await(byte[] input, Predicate<? super Input> writer, Duration longest) throws InterruptedException {
        long end = System.nanoTime() + longest.toNanos();
        Input waiting = new Input(process.getOutputStream(), input);
        boolean isHanded = false;
        boolean hasEnded = false;
        while (!hasEnded && System.nanoTime() - end < 0) {
            isHanded = isHanded || writer.test(waiting);
            hasEnded = process.waitFor(LOOK_EVERY.toMillis(), TimeUnit.MILLISECONDS);
            listen();
        }
        return hasEnded;
    }

    /**
     * Ends the program and all that it has started and that is still below it, and waits for the program's end, at
     * most so long: a program that hangs in the kernel does not end at all.
     *
     * @return why the program or what it started may go on, in words; empty when all has ended
     */
    Optional<String> kill(Duration longest) throws InterruptedException {
        Throwable unseen = killBelow();
        process.destroyForcibly();
        boolean hasEnded = process.waitFor(longest.toNanos(), TimeUnit.NANOSECONDS);
        listen();
        if (!hasEnded) {
            return Optional.of("it is not dead " + Words.ofDuration(longest) + " later");
        }
        return Optional.ofNullable(unseen).map(e -> "what it started cannot be looked for: " + e.getMessage());
    }

    /** What is below is looked for in /proc, which cannot be opened where descriptors are short; null if it can. */
    private Throwable killBelow() {
        try {
            boolean isAnyLeft = true;
            for (int round = 0; isAnyLeft && round < 10; round++) { // they may start more meanwhile
                List<ProcessHandle> below = process.descendants().filter(ProcessHandle::isAlive).toList();
                below.forEach(ProcessHandle::destroyForcibly);
                isAnyLeft = !below.isEmpty();
            }
            return null;
        } catch (RuntimeException | OutOfMemoryError e) {
            return e;
        }
    }

    int exitStatus() {
        return process.exitValue();
    }

    /** What it said in whole lines without control characters; of very much, the beginning. */
    List<String> said() {
        String text = said.toString(StandardCharsets.ISO_8859_1);
        int end = text.lastIndexOf('\n') + 1;
        String whole = saidMore && end > 0 ? text.substring(0, end) : text;
        return whole.lines().map(Words::ofBytes).filter(line -> !line.isBlank()).toList();
    }

    /** Whether it said more than that. */
    boolean saidMore() {
        return saidMore;
    }

    /**
     * Takes what there is, without waiting for more: something that the program has left behind may hold the other end
     * for ever. The lock is that of Java, which puts another stream in this one's place when the program has ended.
     */
    private void listen() {
        InputStream stream = process.getInputStream();
        synchronized (stream) {
            try {
                for (int block = 0; block < MOST_BLOCKS && stream.available() > 0; block++) {
                    byte[] bytes = stream.readNBytes(Math.min(stream.available(), MOST_OUTPUT));
                    int kept = Math.min(bytes.length, MOST_OUTPUT - said.size());
                    said.write(bytes, 0, kept);
                    saidMore = saidMore || kept < bytes.length;
                }
            } catch (IOException e) {
                // what was said is lost, and nothing else
            }
        }
    }
}
