package com.quorin.sysmgt.tavl.LumetraAgent.client;

import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.AtomicMoveNotSupportedException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.nio.file.StandardOpenOption;
import java.security.SecureRandom;
import java.util.Arrays;
import java.util.HexFormat;
import java.util.Map;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.Future;
import java.util.concurrent.TimeUnit;

/** Draws by the program gnuplot, which is looked for in the path. */
public final class Gnuplot {

    private static final String THREAD = "lumetra-gnuplot";
    private static final int SECONDS = 30;
    private static final int LARGEST_PICTURE = 64 << 20;
    private static final int LONGEST_COMPLAINT = 4096;
    private static final Map<String, byte[]> BEGINNINGS = Map.of(
            "png", new byte[] {(byte) 0x89, 'P', 'N', 'G'},
            "pdf", "%PDF-".getBytes(StandardCharsets.US_ASCII),
            "svg", "<?xml".getBytes(StandardCharsets.US_ASCII));

    private Gnuplot() {}

    /** Draws a picture into a file, whole or not at all: under another name first. */
    public static void drawTo(Path file, String script, String format) throws Failed, IOException {
        byte[] picture = draw(script, format);
        // who may write the directory could keep every picture from it by a file of a name that is foreseen
        String unforeseen = HexFormat.of().toHexDigits(new SecureRandom().nextLong());
        replace(file, picture, file.resolveSibling("." + file.getFileName() + "." + unforeseen + ".tmp"));
    }

    /** Writes a file under another name first; a file that has that name already stays, and nothing is written. */
    static void replace(Path file, byte[] content, Path next) throws IOException {
        OutputStream out = Files.newOutputStream(next, StandardOpenOption.CREATE_NEW, StandardOpenOption.WRITE);
        try {
            try (out) {
                out.write(content);
            }
            move(next, file);
        } catch (IOException | RuntimeException e) {
            Files.deleteIfExists(next);
            throw e;
        }
    }

    private static void move(Path next, Path file) throws IOException {
        try {
            Files.move(next, file, StandardCopyOption.ATOMIC_MOVE);
        } catch (AtomicMoveNotSupportedException e) {
            Files.move(next, file, StandardCopyOption.REPLACE_EXISTING);
        }
    }

    /**
     * Draws a picture.
     *
     * @param format "png", "pdf" or "svg", as the script says
     * @throws Failed when there is no gnuplot, or it draws nothing
     */
    static byte[] draw(String script, String format) throws Failed {
        Process process = start();
        try {
            return await(process, script, format);
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
            throw Failed.once("interrupted");
        } finally {
            process.destroyForcibly();
        }
    }

    private static Process start() throws Failed {
        try {
            return new ProcessBuilder("gnuplot", "--default-settings").start();
        } catch (IOException e) {
            throw Failed.forAll("gnuplot cannot be started; it is in the package gnuplot-nox");
        }
    }

    private static byte[] await(Process process, String script, String format)
            throws Failed, InterruptedException {
        Future<byte[]> picture = reading(process.getInputStream(), LARGEST_PICTURE);
        Future<byte[]> complaint = reading(process.getErrorStream(), LONGEST_COMPLAINT);
        Future<byte[]> sent = Background.start(THREAD, () -> send(process, script));
        if (!process.waitFor(SECONDS, TimeUnit.SECONDS)) {
            throw Failed.once("gnuplot took more than " + SECONDS + " s");
        }
        result(sent);
        byte[] bytes = result(picture);
        if (process.exitValue() != 0 || !begins(bytes, BEGINNINGS.get(format))) {
            String text = new String(result(complaint), StandardCharsets.UTF_8).strip();
            throw Failed.once("gnuplot failed with exit code " + process.exitValue()
                    + (text.isEmpty() ? "" : ": " + text));
        }
        return bytes;
    }

    private static Future<byte[]> reading(InputStream in, int most) {
        return Background.start(THREAD, () -> {
            try (in) {
                byte[] bytes = in.readNBytes(most);
                in.transferTo(OutputStream.nullOutputStream());
                return bytes;
            }
        });
    }

    private static byte[] send(Process process, String script) throws IOException {
        byte[] bytes = script.getBytes(StandardCharsets.UTF_8);
        try (OutputStream out = process.getOutputStream()) {
            out.write(bytes);
        }
        return bytes;
    }

    /** Nothing where it failed, as when gnuplot ended early: it says why. */
    private static byte[] result(Future<byte[]> future) throws InterruptedException {
        try {
            return future.get();
        } catch (ExecutionException e) {
            return new byte[0];
        }
    }

    private static boolean begins(byte[] bytes, byte[] start) {
        return bytes.length > start.length
                && Arrays.equals(bytes, 0, start.length, start, 0, start.length);
    }
}
