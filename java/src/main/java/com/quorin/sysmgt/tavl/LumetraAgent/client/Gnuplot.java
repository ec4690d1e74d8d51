package com.quorin.sysmgt.tavl.LumetraAgent.client;

import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.AtomicMoveNotSupportedException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.nio.file.StandardOpenOption;
import java.util.Arrays;
import java.util.Map;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.CompletionException;
import java.util.concurrent.TimeUnit;

/** Draws by the program gnuplot, which is looked for in the path. */
public final class Gnuplot {

    private static final int SECONDS = 30;
    private static final int LARGEST_PICTURE = 64 << 20;
    private static final int LONGEST_COMPLAINT = 4096;
    private static final Map<String, byte[]> BEGINNINGS = Map.of(
            "png", new byte[] {(byte) 0x89, 'P', 'N', 'G'},
            "svg", "<?xml".getBytes(StandardCharsets.US_ASCII));

    /** A picture that could not be drawn; the message is one line. */
    public static final class Failed extends Exception {
        private static final long serialVersionUID = 1L;
        private final boolean missing;

        private Failed(String message, boolean missing) {
            super(Words.printable(message));
            this.missing = missing;
        }

        /** Whether there is no gnuplot, so that nothing else can be drawn either. */
        boolean isMissing() {
            return missing;
        }
    }

    private Gnuplot() {}

    /** Draws a picture into a file, whole or not at all: under another name first. */
    public static void drawTo(Path file, String script, String format) throws Failed, IOException {
        byte[] picture = draw(script, format);
        Path next = file.resolveSibling(
                "." + file.getFileName() + "." + ProcessHandle.current().pid() + ".tmp");
        try {
            Files.write(next, picture, StandardOpenOption.CREATE_NEW, StandardOpenOption.WRITE);
            try {
                Files.move(next, file, StandardCopyOption.ATOMIC_MOVE);
            } catch (AtomicMoveNotSupportedException e) {
                Files.move(next, file, StandardCopyOption.REPLACE_EXISTING);
            }
        } finally {
            Files.deleteIfExists(next);
        }
    }

    /**
     * Draws a picture.
     *
     * @param format "png" or "svg", as the script says
     * @throws Failed when there is no gnuplot, or it draws nothing
     */
    static byte[] draw(String script, String format) throws Failed {
        Process process = start();
        try {
            return await(process, script, format);
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
            throw new Failed("interrupted", false);
        } finally {
            process.destroyForcibly();
        }
    }

    private static Process start() throws Failed {
        try {
            return new ProcessBuilder("gnuplot", "--default-settings").start();
        } catch (IOException e) {
            throw new Failed("gnuplot cannot be started; it is in the package gnuplot-nox", true);
        }
    }

    private static byte[] await(Process process, String script, String format)
            throws Failed, InterruptedException {
        CompletableFuture<byte[]> picture = reading(process.getInputStream(), LARGEST_PICTURE);
        CompletableFuture<byte[]> complaint = reading(process.getErrorStream(), LONGEST_COMPLAINT);
        CompletableFuture<Void> sent = CompletableFuture.runAsync(() -> send(process, script));
        if (!process.waitFor(SECONDS, TimeUnit.SECONDS)) {
            throw new Failed("gnuplot took more than " + SECONDS + " s", false);
        }
        sent.exceptionally(e -> null).join();
        byte[] bytes = result(picture);
        if (process.exitValue() != 0 || !begins(bytes, BEGINNINGS.get(format))) {
            String text = new String(result(complaint), StandardCharsets.UTF_8).strip();
            throw new Failed("gnuplot failed with exit code " + process.exitValue()
                    + (text.isEmpty() ? "" : ": " + text), false);
        }
        return bytes;
    }

    private static CompletableFuture<byte[]> reading(InputStream in, int most) {
        return CompletableFuture.supplyAsync(() -> {
            try (in) {
                byte[] bytes = in.readNBytes(most);
                in.transferTo(OutputStream.nullOutputStream());
                return bytes;
            } catch (IOException e) {
                throw new CompletionException(e);
            }
        }, task -> {
            Thread thread = new Thread(task, "lumetra-gnuplot");
            thread.setDaemon(true);
            thread.start();
        });
    }

    private static byte[] result(CompletableFuture<byte[]> future) {
        return future.exceptionally(e -> new byte[0]).join();
    }

    private static void send(Process process, String script) {
        try (OutputStream out = process.getOutputStream()) {
            out.write(script.getBytes(StandardCharsets.UTF_8));
        } catch (IOException e) {
            // gnuplot ended early and says why
        }
    }

    private static boolean begins(byte[] bytes, byte[] start) {
        return bytes.length > start.length
                && Arrays.equals(bytes, 0, start.length, start, 0, start.length);
    }
}
