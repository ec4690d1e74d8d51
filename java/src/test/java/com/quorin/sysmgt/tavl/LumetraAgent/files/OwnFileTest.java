package com.quorin.sysmgt.tavl.LumetraAgent.files;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.file.FileSystemException;
import java.nio.file.Files;
import java.nio.file.LinkOption;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.nio.file.attribute.PosixFilePermissions;
import java.util.Optional;
import java.util.Set;
import org.junit.jupiter.api.Assumptions;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class OwnFileTest {

    private static final int STRANGER = 65534;

    @TempDir
    Path directory;

    private Path file;

    @BeforeEach
    void prepare() throws IOException {
        file = Files.writeString(directory.resolve("file"), "text");
    }

    private static String refusal(Path path) {
        FileSystemException read = assertThrows(FileSystemException.class, () -> OwnFile.read(path).close());
        FileSystemException write = assertThrows(FileSystemException.class, () -> OwnFile.write(path).close());
        assertEquals(read.getReason(), write.getReason());
        return read.getReason();
    }

    private void open(String permissions) throws IOException {
        Files.setPosixFilePermissions(directory, PosixFilePermissions.fromString(permissions));
    }

    @Test
    void aFileIsReadWrittenAndMadeForItsOwnerAndGroup() throws IOException {
        try (FileChannel channel = OwnFile.write(file)) {
            channel.write(ByteBuffer.wrap(new byte[] {'T'}), 0);
        }
        try (FileChannel channel = OwnFile.read(file)) {
            assertEquals(4, channel.size());
        }
        assertEquals("Text", Files.readString(file));
        Path made = directory.resolve("made");
        assertThrows(NoSuchFileException.class, () -> OwnFile.read(made));
        assertFalse(OwnFile.exists(made));
        OwnFile.write(made).close();
        assertTrue(OwnFile.exists(made));
        Set<?> others = PosixFilePermissions.fromString("----w-rwx");
        assertTrue(Files.getPosixFilePermissions(made).stream().noneMatch(others::contains));
    }

    @Test
    void whatIsNoFileIsRefusedWithoutWaiting() throws Exception {
        Path pipe = directory.resolve("pipe");
        Assumptions.assumeTrue(new ProcessBuilder("mkfifo", pipe.toString()).start().waitFor() == 0);
        for (Path path : new Path[] {pipe, directory, Path.of("/dev/full")}) {
            assertEquals("it is no regular file", refusal(path), path.toString());
        }
        Path link = Files.createSymbolicLink(directory.resolve("link"), file);
        Path dangling = Files.createSymbolicLink(directory.resolve("dangling"), directory.resolve("none"));
        for (Path path : new Path[] {link, dangling}) {
            assertTrue(OwnFile.exists(path));
            assertEquals("it is a symbolic link", refusal(path));
        }
        assertFalse(Files.exists(directory.resolve("none")));
    }

    @Test
    void whatWasSwappedSinceItWasLookedAtIsRefusedWithoutWaiting() throws Exception {
        int user = OwnFile.user();
        Path pipe = directory.resolve("pipe");
        Assumptions.assumeTrue(new ProcessBuilder("mkfifo", pipe.toString()).start().waitFor() == 0);
        FileSystemException refused =
                assertThrows(FileSystemException.class, () -> OwnFile.openToRead(pipe, user).close());
        assertEquals("it is no regular file", refused.getReason());
        FileChannel swappedBack = FileChannel.open(pipe, StandardOpenOption.READ, StandardOpenOption.WRITE);
        refused = assertThrows(FileSystemException.class, () -> OwnFile.examined(swappedBack, file, user));
        assertEquals("it is no regular file", refused.getReason());
        assertFalse(swappedBack.isOpen());
        open("rwxrwxrwx");
        Files.createLink(directory.resolve("further"), file);
        refused = assertThrows(FileSystemException.class, () -> OwnFile.openToRead(file, user).close());
        assertEquals("it has a second name, in a directory that everybody may write", refused.getReason());
    }

    @Test
    void whatNobodyMayWriteIsRead() throws IOException {
        Optional<String> running = ProcessHandle.current().info().command();
        Assumptions.assumeTrue(running.isPresent(), "the program of this process is not known");
        try (FileChannel program = OwnFile.read(Path.of(running.get()).toRealPath())) {
            assertTrue(program.size() > 0);
        }
    }

    @Test
    void aFurtherNameCountsWhereEverybodyMayWrite() throws IOException {
        Files.createLink(directory.resolve("further"), file);
        OwnFile.write(file).close();
        open("rwxr-xrwx");
        assertEquals("it has a second name, in a directory that everybody may write", refusal(file));
        open("rwxrwxrw-");
        OwnFile.write(file).close();
    }

    @Test
    void whatPeopleGiveMayBeALinkButNobodyElsesWhereEverybodyMayWrite() throws IOException {
        int user = (Integer) Files.getAttribute(directory, "unix:uid");
        Path link = Files.createSymbolicLink(directory.resolve("link"), file);
        for (String permissions : new String[] {"rwx------", "rwxrwxrwx"}) {
            open(permissions);
            assertEquals(Optional.empty(), OwnFile.objectionToGiven(file, user));
            assertEquals(Optional.empty(), OwnFile.objectionToGiven(link, user));
        }
        try {
            Files.setAttribute(link, "unix:uid", STRANGER, LinkOption.NOFOLLOW_LINKS);
        } catch (FileSystemException e) {
            Assumptions.abort("giving files away needs root");
        }
        String words = "it is another user's, in a directory that everybody may write";
        assertEquals(Optional.of(words), OwnFile.objectionToGiven(link, user));
        assertEquals(Optional.empty(), OwnFile.objectionToGiven(link, STRANGER));
        Files.setAttribute(file, "unix:uid", STRANGER);
        assertEquals(Optional.of(words), OwnFile.objectionToGiven(file, user));
        open("rwx------");
        assertEquals(Optional.empty(), OwnFile.objectionToGiven(file, user));
        assertEquals(Optional.empty(), OwnFile.objectionToGiven(link, user));
    }

    @Test
    void anotherUsersFileCountsWhereEverybodyMayWrite() throws IOException {
        try {
            Files.setAttribute(file, "unix:uid", STRANGER);
        } catch (FileSystemException e) {
            Assumptions.abort("giving files away needs root");
        }
        OwnFile.write(file).close();
        open("rwxrwxrwx");
        assertEquals("it is another user's, in a directory that everybody may write", refusal(file));
    }
}
