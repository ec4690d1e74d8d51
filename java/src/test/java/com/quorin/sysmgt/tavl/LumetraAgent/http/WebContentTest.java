package com.quorin.sysmgt.tavl.LumetraAgent.http;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.sun.management.ThreadMXBean;
import java.io.IOException;
import java.io.InputStream;
import java.lang.management.ManagementFactory;
import org.junit.jupiter.api.Test;

class WebContentTest {

    private static final int MEGABYTE = 1 << 20;
    private static final int SIZE = 32 * MEGABYTE;

    private final byte[] piece = new byte[8 * 1024];

    private static long memoryTakenSoFar() {
        return ((ThreadMXBean) ManagementFactory.getThreadMXBean()).getCurrentThreadAllocatedBytes();
    }

    private WebContent large() {
        return WebContent.of("text/plain", out -> {
            for (int written = 0; written < SIZE; written += piece.length) {
                out.write(piece);
            }
        });
    }

    private int sent(WebContent content, boolean isZipped) throws IOException {
        int sent = 0;
        try (InputStream in = content.open(isZipped)) {
            for (int more = in.read(piece); more >= 0; more = in.read(piece)) {
                sent += more;
            }
        }
        return sent;
    }

    @Test
    void aLargeAnswerIsMadeKeptAndSentInAFractionOfItsSize() throws IOException {
        sent(large(), false); // what is loaded for the first of them is not of this one
        long before = memoryTakenSoFar();
        WebContent content = large();
        assertEquals(SIZE, sent(content, false));
        assertEquals(content.length(true), sent(content, true));
        long taken = memoryTakenSoFar() - before;
        assertTrue(before > 0 && taken < 2 * MEGABYTE, "bytes taken: " + taken);
    }
}
