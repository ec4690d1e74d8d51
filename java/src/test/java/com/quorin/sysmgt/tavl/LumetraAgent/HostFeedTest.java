package com.quorin.sysmgt.tavl.LumetraAgent;

import static org.junit.jupiter.api.Assertions.assertEquals;

import java.util.Optional;
import org.junit.jupiter.api.Test;

class HostFeedTest {

    @Test
    void aLibraryOfThisVersionIsNoProblem() {
        assertEquals(Optional.empty(), HostFeed.problem(() -> HostFeed.VERSION));
    }

    @Test
    void anotherVersionIsNamedWithThisOne() {
        assertEquals(Optional.of("the native library has version 7 of its interface for the host, and this program "
                + "is made for version " + HostFeed.VERSION), HostFeed.problem(() -> 7));
    }

    @Test
    void aLibraryWithoutADoorIsTold() {
        assertEquals(Optional.of("the native library has no interface for the host, and this program is made for "
                + "version " + HostFeed.VERSION), HostFeed.problem(() -> {
                    throw new UnsatisfiedLinkError("libraryVersion");
                }));
    }
}
