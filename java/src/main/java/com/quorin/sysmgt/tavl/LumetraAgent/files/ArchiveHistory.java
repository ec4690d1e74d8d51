package com.quorin.sysmgt.tavl.LumetraAgent.files;

import com.quorin.sysmgt.tavl.LumetraAgent.text.FileText;
import java.io.IOException;
import java.nio.channels.FileChannel;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.util.function.Consumer;

/** What the end of the archive tells of earlier runs. */
public final class ArchiveHistory {

    private ArchiveHistory() {}

    /**
     * Reads the lines of earlier runs. What cannot be read is left out.
     *
     * @param before    when this run began at the earliest, seconds since the epoch: younger lines are its own
     * @param mostBytes how much at most, from the end
     * @param mostLines how many lines at most, from the end
     * @param line      receives the lines, oldest first, without the damaged ones
     */
    public static void read(Path archive, long before, int mostBytes, int mostLines, Consumer<ArchiveLine> line) {
        try (FileChannel channel = OwnFile.read(archive)) {
            long start = Math.max(0, channel.size() - mostBytes);
            byte[] text = FileText.part(channel, start, channel.size());
            int first = startOfLast(text, mostLines);
            first = first == 0 && start > 0 ? endOfLine(text, 0) + 1 : first;
            for (int end; (end = endOfLine(text, first)) >= 0; first = end + 1) {
                ArchiveLine.parse(new String(text, first, end - first, StandardCharsets.ISO_8859_1))
                        .filter(l -> l.epochSeconds() < before).ifPresent(line);
            }
        } catch (IOException | SecurityException e) {
            // there is no history then
        }
    }

    /** Where the last so many whole lines begin. */
    private static int startOfLast(byte[] text, int lines) {
        int left = lines + 1;
        int at = text.length;
        while (at > 0 && (text[at - 1] != '\n' || --left > 0)) {
            at--;
        }
        return at;
    }

    /** Where the line ends; -1 when it does not, as one that is being written. */
    private static int endOfLine(byte[] text, int from) {
        for (int i = from; i < text.length; i++) {
            if (text[i] == '\n') {
                return i;
            }
        }
        return -1;
    }
}
