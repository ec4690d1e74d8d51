package com.quorin.sysmgt.tavl.LumetraAgent.text;

import java.io.IOException;
import java.io.InputStream;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.InvalidPathException;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.Optional;

/** Reads files as text. */
public final class FileText {

    /** No file that the host reads whole is ordinarily near this size; a larger one is not read at all. */
    static final int LARGEST = 32 * 1024 * 1024;

    private FileText() {}

    /**
     * The path that a text of bytes, one character for each, names; one that cannot exist when Java cannot spell the
     * name.
     */
    public static Path path(String bytes) {
        try {
            return Path.of(Words.toPathText(bytes));
        } catch (InvalidPathException e) {
            return Path.of("/dev/null/unreadable");
        }
    }

    /** The bytes that name a file, from the root on. */
    public static byte[] bytes(Path path) {
        return path.toAbsolutePath().toString().getBytes(StandardCharsets.UTF_8);
    }

    /**
     * The file's content, one character per byte; empty when the file cannot be read or is larger than {@link
     * #LARGEST}.
     */
    public static Optional<String> read(Path file) {
        try (InputStream in = Files.newInputStream(file)) {
            byte[] content = in.readNBytes(LARGEST + 1);
            if (content.length > LARGEST) {
                return Optional.empty();
            }
            return Optional.of(new String(content, StandardCharsets.ISO_8859_1));
        } catch (IOException e) {
            return Optional.empty();
        }
    }

    /** A part of an open file, up to a byte that there need not be. */
    public static byte[] part(FileChannel channel, long start, long end) throws IOException {
        ByteBuffer bytes = ByteBuffer.allocate((int) (end - start));
        while (bytes.hasRemaining() && channel.read(bytes, start + bytes.position()) > 0) {
            // reads on
        }
        return bytes.hasRemaining() ? Arrays.copyOf(bytes.array(), bytes.position()) : bytes.array();
    }
}
