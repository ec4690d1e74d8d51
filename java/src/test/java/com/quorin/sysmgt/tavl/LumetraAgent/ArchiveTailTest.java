package com.quorin.sysmgt.tavl.LumetraAgent;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.FileTime;
import java.nio.file.StandardCopyOption;
import java.nio.file.StandardOpenOption;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class ArchiveTailTest {

    @TempDir
    Path directory;
    private Path archive;

    @BeforeEach
    void nameTheArchive() {
        archive = directory.resolve("LumetraArchive.txt");
    }

    private void append(String text) throws IOException {
        Files.writeString(archive, text, StandardOpenOption.CREATE, StandardOpenOption.APPEND);
    }

    private void replace(String text) throws IOException {
        Path temp = directory.resolve("temp");
        Files.writeString(temp, text);
        Files.move(temp, archive, StandardCopyOption.ATOMIC_MOVE, StandardCopyOption.REPLACE_EXISTING);
    }

    private static String line(int time) {
        return time + " 1 0 " + time % 100 + ".50 \n";
    }

    @Test
    void anArchiveThatDoesNotExistYetIsFollowedFromItsFirstLine() throws IOException {
        ArchiveTail tail = new ArchiveTail(archive);
        assertEquals(0, tail.poll());
        append(line(1001));
        assertEquals(1, tail.poll());
        assertEquals(Map.of(1, 1.5), tail.newest().get().values());
        assertEquals(Files.size(archive), tail.size());
    }

    @Test
    void linesOfEarlierRunsDoNotCount() throws IOException {
        append(line(1001) + line(1002));
        ArchiveTail tail = new ArchiveTail(archive);
        assertEquals(0, tail.poll());
        assertTrue(tail.newest().isEmpty());
        append(line(1003) + line(1004));
        assertEquals(2, tail.poll());
        assertEquals(1004, tail.newest().get().epochSeconds());
        assertEquals(0, tail.poll());
    }

    @Test
    void aLineCountsOnceItIsWhole() throws IOException {
        ArchiveTail tail = new ArchiveTail(archive);
        append("1001 1 0 1.");
        assertEquals(0, tail.poll());
        assertTrue(tail.newest().isEmpty());
        append("50 \n");
        assertEquals(1, tail.poll());
        assertEquals(Map.of(1, 1.5), tail.newest().get().values());
    }

    @Test
    void aTornTailOfAnEarlierRunMayBeCutBack() throws IOException {
        append(line(1001) + "1002 1 0 4");
        ArchiveTail tail = new ArchiveTail(archive);
        Files.writeString(archive, line(1001));
        append(line(1003));
        assertEquals(1, tail.poll());
        assertEquals(1003, tail.newest().get().epochSeconds());
    }

    @Test
    void afterATrimOnlyNewerLinesCount() throws IOException {
        append(line(1001) + line(1002));
        ArchiveTail tail = new ArchiveTail(archive);
        append(line(1003));
        assertEquals(1, tail.poll());
        append(line(1004));
        replace(line(1003) + line(1004));
        assertEquals(1, tail.poll());
        append(line(1005));
        assertEquals(1, tail.poll());
        assertEquals(1005, tail.newest().get().epochSeconds());
    }

    @Test
    void aTrimRightAfterTheStartDoesNotCountOldLines() throws IOException {
        append(line(1001) + line(1002) + line(1003));
        ArchiveTail tail = new ArchiveTail(archive);
        replace(line(1003));
        assertEquals(0, tail.poll());
    }

    @Test
    void anArchiveThatIsRemovedAndMadeAnewIsFollowed() throws IOException {
        append(line(1001) + line(1002));
        ArchiveTail tail = new ArchiveTail(archive);
        Files.delete(archive);
        assertEquals(0, tail.poll());
        append(line(1003));
        assertEquals(1, tail.poll());
    }

    @Test
    void linesLongerThanAReadingBlockAreWhole() throws IOException {
        StringBuilder wide = new StringBuilder("1001 ");
        for (int rid = 1; rid <= 20_000; rid++) {
            wide.append(rid).append(" 0 12.34 ");
        }
        append(wide + "\n");
        ArchiveTail tail = new ArchiveTail(archive);
        append(wide.replace(0, 4, "1002") + "\n");
        assertEquals(1, tail.poll());
        assertEquals(20_000, tail.newest().get().values().size());
    }

    @Test
    void damagedLinesCountAsCyclesAndLeaveTheLastSamples() throws IOException {
        ArchiveTail tail = new ArchiveTail(archive);
        append(line(1001) + "\u0000\u0001 rubbish\n");
        assertEquals(2, tail.poll());
        assertTrue(tail.newest().isEmpty());
        append(line(1002));
        assertEquals(1, tail.poll());
        assertEquals(1002, tail.newest().get().epochSeconds());
    }

    @Test
    void aDirectoryInTheArchivesPlaceIsNoArchive() throws IOException {
        Files.createDirectory(archive);
        assertEquals(0, new ArchiveTail(archive).poll());
    }

    @Test
    void everyWholeLineIsHandedOver() throws IOException {
        append(line(1000));
        List<Long> times = new ArrayList<>();
        ArchiveTail tail = new ArchiveTail(archive, l -> times.add(l.epochSeconds()));
        append(line(1001) + "rubbish\n" + line(1002) + "1003 1 0 ");
        assertEquals(3, tail.poll());
        append("1.00 \n");
        assertEquals(1, tail.poll());
        assertEquals(List.of(1001L, 1002L, 1003L), times);
    }

    private List<Long> readBack(int bytes, int lines) {
        List<Long> times = new ArrayList<>();
        new ArchiveTail(archive).readBack(bytes, lines, l -> times.add(l.epochSeconds()));
        return times;
    }

    @Test
    void whatWasThereBeforeIsReadBackWithinBounds() throws IOException {
        append(line(1001) + line(1002) + "rubbish\n" + line(1003) + "1004 1 0 1.");
        assertEquals(List.of(1001L, 1002L, 1003L), readBack(1000, 100));
        assertEquals(List.of(1002L, 1003L), readBack(1000, 3));
        assertEquals(List.of(1003L), readBack(1000, 1));
        assertEquals(List.of(), readBack(1000, 0));
        assertEquals(List.of(1003L), readBack(2 * line(1003).length() - 1, 100));
        assertEquals(List.of(), readBack(5, 100));
    }

    @Test
    void thereIsNothingToReadBackInANewArchive() throws IOException {
        assertEquals(List.of(), readBack(1000, 100));
        append("");
        assertEquals(List.of(), readBack(1000, 100));
    }

    @Test
    void linesThatCameSinceAreNotReadBack() throws IOException {
        append(line(1001) + line(1002));
        ArchiveTail tail = new ArchiveTail(archive);
        replace(line(1002) + line(1003));
        List<Long> times = new ArrayList<>();
        tail.readBack(1000, 100, l -> times.add(l.epochSeconds()));
        assertEquals(List.of(1002L), times);
        assertEquals(1, tail.poll());
    }

    @Test
    void theMomentOfTheLinesIsThatOfTheFileWhenTheyAreItsLast() throws IOException {
        ArchiveTail tail = new ArchiveTail(archive);
        assertTrue(Double.isNaN(tail.written()));
        append(line(1001));
        Files.setLastModifiedTime(archive, FileTime.from(1_700_000_000_250L, TimeUnit.MILLISECONDS));
        assertEquals(1, tail.poll());
        assertEquals(1_700_000_000.25, tail.written());
        append(line(1002) + "1003 1 0");
        assertEquals(1, tail.poll());
        assertTrue(Double.isNaN(tail.written()));
    }
}
