package com.quorin.sysmgt.tavl.LumetraAgent.http;

import static org.junit.jupiter.api.Assertions.assertEquals;

import org.junit.jupiter.api.Test;

class SpareThreadsTest {

    private static long spare() {
        return Thread.getAllStackTraces().keySet().stream()
                .filter(thread -> thread.getName().startsWith("lumetra-spare-")).count();
    }

    @Test
    void theyAreThereUntilTheirRelease() {
        SpareThreads threads = SpareThreads.hold(3);
        assertEquals(3, spare());
        threads.release();
        assertEquals(0, spare());
    }
}
