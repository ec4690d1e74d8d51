package com.quorin.sysmgt.tavl.LumetraAgent.files;

import static org.junit.jupiter.api.Assertions.assertEquals;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class ArchiveHistoryTest {

    private static final long BEFORE = 2000;

    @TempDir
    Path directory;
    private Path archive;

    @BeforeEach
    void nameTheArchive() {
        archive = directory.resolve("LumetraArchive.txt");
    }

    private List<Long> times(String text, int mostBytes, int mostLines) throws IOException {
        Files.writeString(archive, text);
        List<Long> times = new ArrayList<>();
        ArchiveHistory.read(archive, BEFORE, mostBytes, mostLines, line -> times.add(line.epochSeconds()));
        return times;
    }

    private static String line(int time) {
        return time + " 1 0 " + time % 100 + ".50 \n";
    }

    @Test
    void samplesOfEarlierRunsAreReadInTheirOrder() throws IOException {
        Files.writeString(archive, line(1001) + line(1002));
        List<ArchiveLine> lines = new ArrayList<>();
        ArchiveHistory.read(archive, BEFORE, 1000, 10, lines::add);
        assertEquals(List.of(new ArchiveLine(1001, Map.of(1, 1.5)), new ArchiveLine(1002, Map.of(1, 2.5))), lines);
    }

    @Test
    void linesOfThisRunAreLeftOut() throws IOException {
        assertEquals(List.of(1001L, 1999L), times(line(1001) + line(1999) + line(2000) + line(2001), 1000, 10));
    }

    @Test
    void onlySoManyOfTheLastLinesAreRead() throws IOException {
        String text = line(1001) + line(1002) + line(1003);
        assertEquals(List.of(1002L, 1003L), times(text, 1000, 2));
        assertEquals(List.of(1003L), times(text, 1000, 1));
        assertEquals(List.of(1001L, 1002L, 1003L), times(text, 1000, 3));
    }

    @Test
    void onlyTheEndOfALargeArchiveIsReadAndOnlyWholeLinesOfIt() throws IOException {
        String text = line(1001) + line(1002) + line(1003);
        int length = line(1002).length();
        assertEquals(List.of(1003L), times(text, 2 * length - 1, 10));
        assertEquals(List.of(1003L), times(text, length + 1, 10));
        assertEquals(List.of(), times(text, length - 1, 10));
    }

    @Test
    void damageAndALineThatIsBeingWrittenAreLeftOut() throws IOException {
        assertEquals(List.of(1001L, 1003L), times(line(1001) + "damage\n\n" + line(1003) + "1004 1 0 4", 1000, 10));
        assertEquals(List.of(), times("1004 1 0 4", 1000, 10));
        assertEquals(List.of(), times("", 1000, 10));
    }

    @Test
    void whatIsNoFileHasNoHistory() throws IOException {
        List<ArchiveLine> lines = new ArrayList<>();
        ArchiveHistory.read(archive, BEFORE, 1000, 10, lines::add);
        ArchiveHistory.read(directory, BEFORE, 1000, 10, lines::add);
        assertEquals(List.of(), lines);
    }
}
