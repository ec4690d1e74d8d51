package com.quorin.sysmgt.tavl.LumetraAgent.client;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.FileAlreadyExistsException;
import java.nio.file.FileSystemException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.stream.Stream;
import org.junit.jupiter.api.Assumptions;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class GnuplotTest {

    private static final byte[] CONTENT = "picture".getBytes(StandardCharsets.US_ASCII);

    @TempDir
    Path directory;

    private List<String> names() throws IOException {
        try (Stream<Path> all = Files.list(directory)) {
            return all.map(path -> path.getFileName().toString()).sorted().toList();
        }
    }

    private static boolean hasGnuplot() throws InterruptedException {
        try {
            return new ProcessBuilder("gnuplot", "--version").start().waitFor() == 0;
        } catch (IOException e) {
            return false;
        }
    }

    @Test
    void aFileUnderANameThatCouldBeForeseenKeepsNoPictureAway() throws Exception {
        Assumptions.assumeTrue(hasGnuplot(), "gnuplot is not installed");
        String foreseen = ".picture.svg." + ProcessHandle.current().pid() + ".tmp";
        Files.writeString(directory.resolve(foreseen), "another's");
        Path picture = directory.resolve("picture.svg");
        Gnuplot.drawTo(picture, "set terminal svg\nplot x\n", "svg");
        assertTrue(Files.readString(picture).startsWith("<?xml"));
        assertEquals("another's", Files.readString(directory.resolve(foreseen)));
        assertEquals(List.of(foreseen, "picture.svg"), names());
    }

    @Test
    void whatHasTheOtherNameAlreadyStays() throws IOException {
        Path next = Files.writeString(directory.resolve("next"), "another's");
        assertThrows(FileAlreadyExistsException.class,
                () -> Gnuplot.replace(directory.resolve("file"), CONTENT, next));
        assertEquals("another's", Files.readString(next));
        assertEquals(List.of("next"), names());
    }

    @Test
    void whatCannotTakeItsPlaceLeavesNothing() throws IOException {
        Path occupied = Files.createDirectories(directory.resolve("occupied/by")).getParent();
        assertThrows(FileSystemException.class,
                () -> Gnuplot.replace(occupied, CONTENT, directory.resolve("next")));
        assertEquals(List.of("occupied"), names());
    }
}
