package com.quorin.sysmgt.tavl.LumetraAgent;

import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.BasicFileAttributes;
import java.util.Objects;
import java.util.Optional;
import java.util.concurrent.TimeUnit;
import java.util.function.Consumer;

/**
 * Follows the archive while the agent appends to it. Only whole lines count, so a line that is being written
 * is seen when it is complete. Trimming puts another, shorter file in the archive's place; from then on the
 * lines that are newer than the last one seen count.
 *
 * <p>One thread uses a tail at a time.
 */
final class ArchiveTail {

    /**
     * No cycle's line is as long as this; what is longer is damage and counts as one line without samples.
     */
    private static final int LONGEST_LINE = 16 * 1024 * 1024;

    private final Path archive;
    private final Consumer<ArchiveLine> each;
    private Object fileKey;
    private long position;
    private long newestTime = Long.MIN_VALUE;
    private long size;
    private double written = Double.NaN;
    private ArchiveLine newest;

    /**
     * Starts at the archive's present end; what is there already is not counted.
     *
     * @param archive the archive file, which need not exist yet
     */
    ArchiveTail(Path archive) {
        this(archive, null);
    }

    /**
     * Starts at the archive's present end and hands over every line that is read from then on.
     *
     * @param archive the archive file, which need not exist yet
     * @param each    receives the lines during {@link #poll}, without the damaged ones; may be null
     */
    ArchiveTail(Path archive, Consumer<ArchiveLine> each) {
        this.archive = archive;
        this.each = each;
        try {
            startAtEnd();
        } catch (IOException e) {
            fileKey = null;
            position = 0;
        }
    }

    /**
     * Reads what was appended since the last call.
     *
     * @return the number of new lines; 0 as well when the archive cannot be read
     */
    long poll() {
        try {
            return readOn();
        } catch (IOException e) {
            return 0;
        }
    }

    /**
     * The newest line that was appended since this tail was made.
     *
     * @return the line; empty before the first
     */
    Optional<ArchiveLine> newest() {
        return Optional.ofNullable(newest);
    }

    /**
     * The archive's size when it was last looked at.
     *
     * @return bytes
     */
    long size() {
        return size;
    }

    /**
     * When the lines that {@link #poll} has read were written.
     *
     * @return seconds since the epoch; NaN when more was written since, so that the moment is not theirs
     */
    double written() {
        return written;
    }

    /**
     * Reads what was there when this tail was made. Called before the first {@link #poll}.
     *
     * @param mostBytes how much at most, from the end
     * @param mostLines how many lines at most, from the end
     * @param line      receives the lines, oldest first, without the damaged ones
     */
    void readBack(int mostBytes, int mostLines, Consumer<ArchiveLine> line) {
        try (FileChannel channel = FileChannel.open(archive)) {
            long end = Math.min(position, channel.size());
            long start = Math.max(0, end - mostBytes);
            String text = FileText.part(channel, start, end, StandardCharsets.ISO_8859_1);
            int first = startOfLast(text, mostLines);
            String whole = first > 0 || start == 0 ? text.substring(first)
                    : text.substring(text.indexOf('\n') + 1);
            // trimming may have replaced the file: what is newer than the former end is polled
            whole.lines().filter(l -> leadingNumber(l) <= newestTime)
                    .flatMap(l -> ArchiveLine.parse(l).stream()).forEach(line);
        } catch (IOException e) {
            // there is no history then
        }
    }

    /** Where the last so many lines of a text begin. */
    private static int startOfLast(String text, int lines) {
        int start = text.endsWith("\n") ? text.length() - 1 : text.length();
        for (int i = 0; i < lines && start >= 0; i++) {
            start = text.lastIndexOf('\n', start - 1);
        }
        return start + 1;
    }

    private void startAtEnd() throws IOException {
        BasicFileAttributes before = attributes();
        try (FileChannel channel = FileChannel.open(archive)) {
            long lastFeed = lastFeedBefore(channel, channel.size());
            if (lastFeed >= 0) {
                long start = lastFeedBefore(channel, lastFeed) + 1;
                newestTime = timeOf(channel, start, lastFeed);
            }
            fileKey = before.fileKey();
            position = lastFeed + 1;
            size = before.size();
        }
    }

    private long readOn() throws IOException {
        BasicFileAttributes before = attributes();
        boolean sameFile = Objects.equals(before.fileKey(), fileKey) && before.size() >= position;
        if (sameFile && before.size() == position) {
            size = before.size();
            return 0;
        }
        try (FileChannel channel = FileChannel.open(archive)) {
            if (!Objects.equals(attributes().fileKey(), before.fileKey())) {
                return 0; // replaced between the two looks: the next call sees the new file alone
            }
            fileKey = before.fileKey();
            size = before.size();
            long lines = sameFile ? count(channel, position, Long.MIN_VALUE) : count(channel, 0, newestTime);
            BasicFileAttributes after = attributes();
            boolean isAll = Objects.equals(after.fileKey(), fileKey) && after.size() == position;
            written = isAll ? after.lastModifiedTime().to(TimeUnit.MICROSECONDS) / 1e6 : Double.NaN;
            return lines;
        }
    }

    private BasicFileAttributes attributes() throws IOException {
        return Files.readAttributes(archive, BasicFileAttributes.class);
    }

    /**
     * Counts the whole lines from {@code start} on whose time is above {@code after}; moves on behind the
     * last.
     */
    private long count(FileChannel channel, long start, long after) throws IOException {
        long lines = 0;
        String last = null;
        position = start;
        ByteArrayOutputStream line = new ByteArrayOutputStream();
        ByteBuffer block = ByteBuffer.allocate(65536);
        long offset = start;
        for (int n = channel.read(block, offset); n > 0; n = channel.read(block, offset)) {
            for (int i = 0; i < n; i++) {
                byte b = block.get(i);
                if (b != '\n') {
                    if (line.size() < LONGEST_LINE) {
                        line.write(b);
                    }
                    continue;
                }
                position = offset + i + 1;
                String text = line.toString(StandardCharsets.ISO_8859_1);
                if (leadingNumber(text) > after || after == Long.MIN_VALUE) {
                    lines++;
                    last = text;
                    hand(text);
                }
                line.reset();
            }
            offset += n;
            block.clear();
        }
        remember(last);
        return lines;
    }

    private void hand(String line) {
        if (each != null) {
            ArchiveLine.parse(line).ifPresent(each);
        }
    }

    private void remember(String line) {
        Optional<ArchiveLine> parsed = Optional.ofNullable(line).flatMap(ArchiveLine::parse);
        parsed.ifPresent(p -> {
            newest = p;
            newestTime = p.epochSeconds();
        });
    }

    private static long timeOf(FileChannel channel, long start, long end) throws IOException {
        ByteBuffer head = ByteBuffer.allocate((int) Math.min(24, end - start));
        channel.read(head, start);
        return leadingNumber(new String(head.array(), 0, head.position(), StandardCharsets.ISO_8859_1));
    }

    private static long leadingNumber(String line) {
        int end = 0;
        while (end < line.length() && end < 18 && Character.isDigit(line.charAt(end))) {
            end++;
        }
        return end == 0 ? Long.MIN_VALUE : Long.parseLong(line.substring(0, end));
    }

    /** The offset of the last line feed before {@code end}, -1 when there is none. */
    private static long lastFeedBefore(FileChannel channel, long end) throws IOException {
        ByteBuffer block = ByteBuffer.allocate(65536);
        for (long stop = end; stop > 0; ) {
            long start = Math.max(0, stop - block.capacity());
            block.clear().limit((int) (stop - start));
            int n = channel.read(block, start);
            for (int i = n - 1; i >= 0; i--) {
                if (block.get(i) == '\n') {
                    return start + i;
                }
            }
            stop = start;
        }
        return -1;
    }
}
