package com.quorin.sysmgt.tavl.LumetraAgent.files;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.HashSet;
import java.util.List;
import org.junit.jupiter.api.Assumptions;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class EventFileTest {

    @TempDir
    private Path directory;

    private Path path() {
        return directory.resolve("events.jsonl");
    }

    private Path older() {
        return directory.resolve("events.jsonl.1");
    }

    private EventFile file(long limit) {
        return new EventFile(path(), limit);
    }

    @Test
    void linesAreAppendedToWhatIsThere() throws IOException {
        Files.writeString(path(), "before\n");
        EventFile file = file(1000);
        assertTrue(file.append("one"));
        assertTrue(file.append("zwei ü"));
        assertEquals("before\none\nzwei ü\n", Files.readString(path()));
    }

    @Test
    void aTornLineIsEndedBeforeTheNext() throws IOException {
        Files.writeString(path(), "whole\n{\"torn");
        assertTrue(file(1000).append("next"));
        assertEquals("whole\n{\"torn\nnext\n", Files.readString(path()));
    }

    @Test
    void aFullFileTurnsOverAndKeepsOneGeneration() throws IOException {
        EventFile file = file(8);
        for (String line : new String[] {"aaa", "bbb", "ccc", "ddd", "eee"}) {
            assertTrue(file.append(line));
        }
        assertEquals("eee\n", Files.readString(path()));
        assertEquals("ccc\nddd\n", Files.readString(older()));
        try (var names = Files.list(directory)) {
            assertEquals(2, names.count());
        }
    }

    @Test
    void aLineThatNeverFitsIsLeftOut() throws IOException {
        EventFile file = file(8);
        assertTrue(file.append("aaa"));
        assertFalse(file.append("too long for it"));
        assertEquals("aaa\n", Files.readString(path()));
    }

    @Test
    void aFileThatCannotTurnOverDoesNotGrow() throws IOException {
        Files.createDirectories(older().resolve("in the way"));
        EventFile file = file(8);
        assertTrue(file.append("aaa"));
        assertTrue(file.append("bbb"));
        assertFalse(file.append("ccc"));
        assertEquals("aaa\nbbb\n", Files.readString(path()));
    }

    @Test
    void aMissingDirectoryLosesTheLineOnly() throws IOException {
        Path logs = directory.resolve("log");
        EventFile file = new EventFile(logs.resolve("events.jsonl"), 1000);
        assertFalse(file.append("lost"));
        Files.createDirectory(logs);
        assertTrue(file.append("kept"));
        assertEquals("kept\n", Files.readString(logs.resolve("events.jsonl")));
    }

    @Test
    void aDirectoryInItsPlaceIsNoFile() throws IOException {
        Files.createDirectory(path());
        assertFalse(file(1000).append("line"));
    }

    @Test
    void aDeviceInItsPlaceIsNoFile() throws IOException {
        Path full = Path.of("/dev/full");
        Assumptions.assumeTrue(Files.exists(full), "there is no /dev/full");
        Files.createSymbolicLink(path(), full);
        assertFalse(file(1000).append("line"));
    }

    @Test
    void aPipeWithoutAReaderIsNotWaitedFor() throws IOException, InterruptedException {
        int status = new ProcessBuilder("mkfifo", path().toString()).start().waitFor();
        Assumptions.assumeTrue(status == 0, "mkfifo failed");
        EventFile file = file(1000);
        assertFalse(file.append("line"));
    }

    @Test
    void linesOfManyThreadsAreWhole() throws IOException, InterruptedException {
        EventFile file = file(1_000_000);
        List<Thread> threads = new ArrayList<>();
        for (int i = 0; i < 8; i++) {
            String line = String.valueOf((char) ('a' + i)).repeat(200);
            Thread thread = new Thread(() -> {
                for (int n = 0; n < 50; n++) {
                    file.append(line);
                }
            });
            threads.add(thread);
            thread.start();
        }
        for (Thread thread : threads) {
            thread.join();
        }
        List<String> lines = Files.readAllLines(path());
        assertEquals(400, lines.size());
        assertEquals(8, new HashSet<>(lines).size());
    }
}
