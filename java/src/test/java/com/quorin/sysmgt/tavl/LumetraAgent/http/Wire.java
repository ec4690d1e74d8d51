package com.quorin.sysmgt.tavl.LumetraAgent.http;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.ByteArrayOutputStream;
import java.io.Closeable;
import java.io.IOException;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.net.Socket;
import java.nio.charset.StandardCharsets;
import java.util.HashMap;
import java.util.Locale;
import java.util.Map;

/** A client that sends what it likes, byte for byte, and sees what comes back. */
final class Wire implements Closeable {

    /** An answer as it came over the wire. */
    record Answer(int status, Map<String, String> headers, byte[] body) {

        String text() {
            return new String(body, StandardCharsets.UTF_8);
        }
    }

    private final Socket socket = new Socket();

    Wire(InetSocketAddress server) throws IOException {
        this(server, "127.0.0.1");
    }

    /** A client with an address of its own, one of the machine's many for itself. */
    Wire(InetSocketAddress server, String own) throws IOException {
        socket.setTcpNoDelay(true);
        socket.setReceiveBufferSize(4096);
        socket.bind(new InetSocketAddress(InetAddress.getByName(own), 0));
        socket.connect(server);
    }

    /** Sends characters of one byte each. */
    Wire send(String text) throws IOException {
        socket.getOutputStream().write(text.getBytes(StandardCharsets.ISO_8859_1));
        return this;
    }

    /** The next answer, of whatever length it says it has. */
    Answer receive() throws IOException {
        ByteArrayOutputStream head = new ByteArrayOutputStream();
        while (!head.toString(StandardCharsets.ISO_8859_1).endsWith("\r\n\r\n")) {
            int next = socket.getInputStream().read();
            assertTrue(next >= 0, "no answer: " + head);
            head.write(next);
        }
        String[] lines = head.toString(StandardCharsets.ISO_8859_1).split("\r\n");
        Map<String, String> headers = new HashMap<>();
        for (int i = 1; i < lines.length; i++) {
            String[] parts = lines[i].split(": ", 2);
            assertNull(headers.put(parts[0].toLowerCase(Locale.ROOT), parts[1]), "twice: " + parts[0]);
        }
        int status = Integer.parseInt(lines[0].split(" ")[1]);
        return new Answer(status, headers,
                socket.getInputStream().readNBytes(Integer.parseInt(headers.getOrDefault("content-length", "0"))));
    }

    /** Waits until something of an answer is there to be read, and does not read it. */
    void awaitAnswer() throws IOException, InterruptedException {
        while (socket.getInputStream().available() == 0) {
            Thread.sleep(1);
        }
    }

    /** So many bytes. */
    byte[] receiveSome(int count) throws IOException {
        return socket.getInputStream().readNBytes(count);
    }

    /** Sends the same again and again until the other side has had enough of it. */
    void sendUntilClosed(String text) throws InterruptedException {
        try {
            while (true) {
                send(text);
                Thread.sleep(5);
            }
        } catch (IOException e) {
            // now it has
        }
    }

    /** Everything up to the end of the connection, which may be a rude one. */
    byte[] rest() {
        ByteArrayOutputStream all = new ByteArrayOutputStream();
        try {
            for (int next = socket.getInputStream().read(); next >= 0; next = socket.getInputStream().read()) {
                all.write(next);
            }
        } catch (IOException e) {
            // the same end
        }
        return all.toByteArray();
    }

    @Override
    public void close() throws IOException {
        socket.close();
    }

    /** What every answer has, whatever it is. */
    static void assertGuarded(Answer answer) {
        assertEquals("default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
                + "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'",
                answer.headers.get("content-security-policy"));
        assertEquals("nosniff", answer.headers.get("x-content-type-options"));
        assertEquals("no-referrer", answer.headers.get("referrer-policy"));
        assertEquals("same-origin", answer.headers.get("cross-origin-resource-policy"));
        assertEquals("same-origin", answer.headers.get("cross-origin-opener-policy"));
        assertEquals("no-cache", answer.headers.get("cache-control"));
        String tag = answer.headers.get("etag");
        assertTrue(tag.matches("\"[0-9a-f]{32}(-gzip)?\""), tag);
        assertTrue(answer.headers.keySet().stream().noneMatch(name -> name.startsWith("access-control-")));
    }
}
