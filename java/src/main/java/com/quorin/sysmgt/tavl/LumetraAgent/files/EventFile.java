package com.quorin.sysmgt.tavl.LumetraAgent.files;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;

/**
 * A file of lines of bounded size, each appended whole or not at all. When a line no longer fits, the file
 * becomes its one older generation (".1") and a fresh one begins.
 *
 * <p>The file is opened for each line, so nothing is held between events. All methods may be called from any
 * thread; lines of different threads never mix.
 */
public final class EventFile {

    /** The size in bytes at which the agent's file of events turns over. */
    public static final long TEN_MEGABYTES = 10L * 1024 * 1024;

    private final Path file;
    private final Path older;
    private final long limit;
    private boolean tailIsWhole;

    /**
     * A file that is not touched yet.
     *
     * @param file  its directory must exist when a line is appended
     * @param limit the size in bytes that the file never exceeds
     */
    public EventFile(Path file, long limit) {
        this.file = file;
        this.older = file.resolveSibling(file.getFileName() + ".1");
        this.limit = limit;
    }

    /**
     * Appends one line, which holds no line break, and tells whether it is in the file; if not, the file is as it
     * was.
     */
    public synchronized boolean append(String line) {
        byte[] bytes = (line + "\n").getBytes(StandardCharsets.UTF_8);
        try {
            if (bytes.length > limit) {
                return false;
            }
            try (FileChannel channel = OwnFile.write(file)) {
                long end = tailIsWhole ? channel.size() : endOfWholeLine(channel);
                if (end + bytes.length <= limit) {
                    return appendWhole(channel, end, bytes);
                }
            }
            Files.move(file, older, StandardCopyOption.REPLACE_EXISTING);
            try (FileChannel channel = OwnFile.write(file)) {
                return appendWhole(channel, 0, bytes);
            }
        } catch (IOException | SecurityException e) {
            return false;
        }
    }

    private boolean appendWhole(FileChannel channel, long end, byte[] bytes) throws IOException {
        tailIsWhole = false;
        int written = 0;
        try {
            written = channel.write(ByteBuffer.wrap(bytes), end);
        } finally {
            if (written != bytes.length) {
                channel.truncate(end);
            }
        }
        tailIsWhole = written == bytes.length;
        return tailIsWhole;
    }

    /** A process that died in the middle of a line left it without an end; the next must not join it. */
    private static long endOfWholeLine(FileChannel channel) throws IOException {
        ByteBuffer last = ByteBuffer.allocate(1);
        long size = channel.size();
        boolean isTorn = size > 0 && channel.read(last, size - 1) == 1 && last.get(0) != '\n';
        return isTorn ? size + channel.write(ByteBuffer.wrap(new byte[] {'\n'}), size) : size;
    }
}
