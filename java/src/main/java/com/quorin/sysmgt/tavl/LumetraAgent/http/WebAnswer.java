package com.quorin.sysmgt.tavl.LumetraAgent.http;

import java.io.ByteArrayInputStream;
import java.io.IOException;
import java.io.InputStream;
import java.io.SequenceInputStream;
import java.nio.charset.StandardCharsets;
import java.util.Map;

/**
 * What is sent to a client.
 *
 * @param headers all of them
 * @param content what follows them; null for nothing
 * @param isLast  whether the connection ends behind it
 */
record WebAnswer(int status, Map<String, String> headers, WebContent content, boolean isZipped, boolean isLast) {

    private static final Map<Integer, String> REASONS = Map.of(200, "OK", 304, "Not Modified", 400, "Bad Request",
            403, "Forbidden", 404, "Not Found", 405, "Method Not Allowed", 431, "Request Header Fields Too Large",
            500, "Internal Server Error", 503, "Service Unavailable");

    /** The bytes that go over the wire. */
    InputStream open() throws IOException {
        StringBuilder head = new StringBuilder(1024).append("HTTP/1.1 ").append(status).append(' ')
                .append(REASONS.get(status)).append("\r\n");
        headers.forEach((name, value) -> head.append(name).append(": ").append(value).append("\r\n"));
        head.append("\r\n");
        InputStream start = new ByteArrayInputStream(head.toString().getBytes(StandardCharsets.ISO_8859_1));
        return content == null ? start : new SequenceInputStream(start, content.open(isZipped));
    }
}
