package com.quorin.sysmgt.tavl.LumetraAgent.host;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.OutputStream;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.time.Duration;
import java.util.List;
import java.util.concurrent.CountDownLatch;
import org.junit.jupiter.api.Test;

class OutputQueueTest {

    private static final Duration LONG = Duration.ofDays(1);

    private final OutputQueue queue = OutputQueue.start();

    /** Takes bytes once somebody reads. */
    private static final class Pipe extends OutputStream {
        private final CountDownLatch touched = new CountDownLatch(1);
        private final CountDownLatch read = new CountDownLatch(1);
        private final ByteArrayOutputStream bytes = new ByteArrayOutputStream();

        @Override
        public void write(int b) throws IOException {
            write(new byte[] {(byte) b}, 0, 1);
        }

        @Override
        public void write(byte[] block, int from, int count) throws IOException {
            touched.countDown();
            try {
                read.await();
            } catch (InterruptedException e) {
                throw new IOException(e);
            }
            synchronized (bytes) {
                bytes.write(block, from, count);
            }
        }

        List<String> lines() {
            synchronized (bytes) {
                return bytes.toString(StandardCharsets.UTF_8).lines().toList();
            }
        }
    }

    private PrintStream to(OutputStream target) {
        return queue.to(target, StandardCharsets.UTF_8);
    }

    @Test
    void linesOfSeveralStreamsGoOutInTheirOrder() {
        ByteArrayOutputStream bytes = new ByteArrayOutputStream();
        PrintStream first = to(bytes);
        PrintStream second = to(bytes);
        first.println("ä");
        second.printf("%d%n", 2);
        first.print("with");
        first.println("out");
        assertTrue(queue.drain(LONG));
        assertEquals("ä\n2\nwithout\n", bytes.toString(StandardCharsets.UTF_8));
    }

    @Test
    void nobodyWaitsForAReaderAndWhatWasLeftOutIsCounted() throws InterruptedException {
        Pipe pipe = new Pipe();
        PrintStream out = to(pipe);
        out.println("first");
        pipe.touched.await();
        String line = "x".repeat(1000);
        int printed = 2 * OutputQueue.MOST_WAITING / line.length();
        for (int i = 0; i < printed; i++) {
            out.println(line);
        }
        assertFalse(queue.drain(Duration.ZERO));
        pipe.read.countDown();
        assertTrue(queue.drain(LONG));
        out.println("last");
        assertTrue(queue.drain(LONG));
        List<String> lines = pipe.lines();
        int kept = lines.size() - 3;
        assertEquals("first", lines.get(0));
        assertEquals(line, lines.get(1));
        assertEquals(printed - kept + " lines were left out here, as nobody read the output.", lines.get(kept + 1));
        assertEquals("last", lines.get(kept + 2));
        assertTrue(kept > OutputQueue.MOST_WAITING / line.length() / 2 && kept < printed, kept + " kept");
    }

    @Test
    void theGapStandsWhereTheLinesWereLeftOut() throws InterruptedException {
        Pipe pipe = new Pipe();
        PrintStream out = to(pipe);
        out.println("first");
        pipe.touched.await();
        String piece = "x".repeat(8000);
        for (int i = 0; i < OutputQueue.MOST_WAITING / piece.length(); i++) {
            out.println(piece);
        }
        out.println(piece);
        pipe.read.countDown();
        assertTrue(queue.drain(LONG));
        out.println("last");
        assertTrue(queue.drain(LONG));
        List<String> lines = pipe.lines();
        assertEquals("last", lines.get(lines.size() - 1));
        assertTrue(lines.get(lines.size() - 2).matches("\\d+ lines? (was|were) left out here, .*"),
                lines.get(lines.size() - 2));
    }

    @Test
    void anOutputThatFailsTakesNoOtherAlong() {
        ByteArrayOutputStream bytes = new ByteArrayOutputStream();
        PrintStream broken = to(new OutputStream() {
            @Override
            public void write(int b) throws IOException {
                throw new IOException("Broken pipe");
            }
        });
        broken.println("lost");
        to(bytes).println("kept");
        assertTrue(queue.drain(LONG));
        assertEquals("kept\n", bytes.toString(StandardCharsets.UTF_8));
    }

    @Test
    void aLineWithoutEndIsNotGatheredForEver() {
        ByteArrayOutputStream bytes = new ByteArrayOutputStream();
        PrintStream out = to(bytes);
        out.print("x".repeat(20000));
        assertTrue(queue.drain(LONG));
        assertTrue(bytes.size() > 16000, bytes.size() + " bytes");
    }
}
