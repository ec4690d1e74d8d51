package com.quorin.sysmgt.tavl.LumetraAgent.host;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Optional;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class HomeLockTest {

    @TempDir
    private Path home;

    @Test
    void aHomeIsLockedOnceAtATime() throws IOException {
        Path file = home.resolve("agent.lock");
        HomeLock first = HomeLock.take(file);
        assertFalse(first.isTaken());
        assertEquals(Optional.empty(), first.problem());
        HomeLock second = HomeLock.take(file);
        assertTrue(second.isTaken());
        assertEquals(Optional.empty(), second.problem());
        first.release();
        HomeLock third = HomeLock.take(file);
        assertFalse(third.isTaken());
        third.release();
        assertEquals(0, Files.size(file));
    }

    @Test
    void aHomeThatCannotBeLockedIsNotTaken() throws IOException {
        HomeLock lock = HomeLock.take(Files.createDirectory(home.resolve("directory")));
        assertFalse(lock.isTaken());
        assertFalse(lock.isDenied());
        assertTrue(lock.problem().isPresent());
        lock.release();
    }
}
