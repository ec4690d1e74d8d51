package com.quorin.sysmgt.tavl.LumetraAgent.check;

import com.quorin.sysmgt.tavl.LumetraAgent.text.FileText;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.io.IOException;
import java.io.InputStream;
import java.nio.file.AccessDeniedException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.BasicFileAttributes;
import java.util.Arrays;
import java.util.Optional;

/** A home as the agent sees it from its directory bin. */
record CheckHome(Path directory) {

    /** The agent reads this much of a file. */
    static final int MOST_BYTES = 64 * 1024 * 1024;

    /** The agent's working directory. */
    Path bin() {
        return directory.resolve("bin");
    }

    /**
     * The file that a path of the agent's leads to.
     *
     * @param path one character for each byte, relative to the working directory
     */
    Path resolve(String path) {
        Path raw = bin().resolve(FileText.path(path));
        Path plain = raw.normalize();
        return Files.isDirectory(bin()) && !isSame(raw, plain) ? raw : plain;
    }

    /** Whether the shorter path means the same although links may stand in the way. */
    private static boolean isSame(Path raw, Path plain) {
        try {
            return Files.isSameFile(raw, plain);
        } catch (IOException e) {
            return !Files.exists(raw) && !Files.exists(plain);
        }
    }

    /** The directory that a file lies in; a root is its own. */
    static Path parent(Path path) {
        if (path.getParent() != null) {
            return path.getParent();
        }
        return path.isAbsolute() ? path : Path.of("");
    }

    /** A path as messages show it: readable. */
    static String label(Path path) {
        return path.toString().isEmpty() ? "." : Words.printable(path.toString());
    }

    /** Why the agent cannot open a file to read; empty when it can. */
    static Optional<String> whyUnopenable(Path file) {
        if (Files.isReadable(file)) {
            return Optional.empty();
        }
        try {
            Files.readAttributes(file, BasicFileAttributes.class);
        } catch (AccessDeniedException e) {
            // one of the directories above is closed
        } catch (IOException e) {
            return Optional.of("there is no such file");
        }
        return Optional.of("permission denied");
    }

    /** What a path leads to that opens and yet is no file: a noun; empty for a file. */
    static Optional<String> whyNoFile(Path file) {
        if (Files.isDirectory(file)) {
            return Optional.of("a directory");
        }
        return Files.isRegularFile(file) ? Optional.empty() : Optional.of("a pipe or a device");
    }

    /**
     * What the agent reads of a file, and one byte more where there is one, so that the library sees the cut. What
     * cannot be read is empty, as for the agent.
     */
    static byte[] read(Path file) {
        try (InputStream in = Files.newInputStream(file)) {
            return read(in, size(file));
        } catch (IOException e) {
            return new byte[0];
        }
    }

    /** The same of an open file. */
    static byte[] read(InputStream in, long size) throws IOException {
        byte[] known = in.readNBytes((int) Math.min(size, MOST_BYTES + 1L));
        byte[] more = in.readNBytes(MOST_BYTES + 1 - known.length);
        if (more.length == 0) {
            return known;
        }
        byte[] all = Arrays.copyOf(known, known.length + more.length);
        System.arraycopy(more, 0, all, known.length, more.length);
        return all;
    }

    /** The size of a file in bytes, 0 when nothing is known. */
    static long size(Path file) {
        try {
            return Files.size(file);
        } catch (IOException e) {
            return 0;
        }
    }
}
