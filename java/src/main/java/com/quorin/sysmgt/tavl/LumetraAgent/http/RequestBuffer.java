package com.quorin.sysmgt.tavl.LumetraAgent.http;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.channels.ReadableByteChannel;
import java.nio.charset.StandardCharsets;
import java.util.Arrays;

/** What a client has sent and was not answered yet: never more than the largest request has. */
final class RequestBuffer {

    /** A request, its line and all of its headers, in bytes. */
    static final int LARGEST = 16 * 1024;

    private static final int FIRST = 1024;

    private byte[] bytes = new byte[FIRST];
    private int count;
    private int looked;

    /** Takes what has arrived, as far as there is room; whether more may come. */
    boolean receive(ReadableByteChannel channel) throws IOException {
        if (count == bytes.length) {
            bytes = Arrays.copyOf(bytes, 2 * count);
        }
        int more = channel.read(ByteBuffer.wrap(bytes, count, bytes.length - count));
        count += Math.max(0, more);
        return more >= 0;
    }

    boolean isEmpty() {
        return count == 0;
    }

    /**
     * Takes the first request out, up to the empty line at its end, one character a byte; null as long as it is not
     * whole. Each byte is looked at once, however they arrive.
     *
     * @throws WebProblem when no further byte can make it a request
     */
    String take() throws WebProblem {
        while (looked < count) {
            if (bytes[looked++] != '\n') {
                continue;
            }
            if (looked <= 2 || bytes[looked - 2] != '\r') {
                throw new WebProblem(400, "A request consists of lines that end with CR LF.");
            }
            if (bytes[looked - 3] == '\n') {
                String request = new String(bytes, 0, looked, StandardCharsets.ISO_8859_1);
                count -= looked;
                System.arraycopy(bytes, looked, bytes, 0, count);
                looked = 0;
                return request;
            }
        }
        if (count == LARGEST) {
            throw WebProblem.tooLarge();
        }
        return null;
    }
}
