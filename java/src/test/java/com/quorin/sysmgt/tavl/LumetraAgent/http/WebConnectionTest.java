package com.quorin.sysmgt.tavl.LumetraAgent.http;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.nio.channels.SelectionKey;
import java.nio.channels.Selector;
import java.nio.channels.ServerSocketChannel;
import java.nio.channels.SocketChannel;
import java.time.Duration;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

/** How long a client has for what, at moments that the test says. */
class WebConnectionTest {

    private static final Duration REQUEST = Duration.ofSeconds(5);
    private static final Duration OTHER = Duration.ofDays(1);

    private Selector selector;
    private ServerSocketChannel listener;
    private Wire client;
    private WebConnection connection;

    @BeforeEach
    void connect() throws IOException {
        selector = Selector.open();
        listener = ServerSocketChannel.open().bind(new InetSocketAddress(InetAddress.getLoopbackAddress(), 0));
        client = new Wire((InetSocketAddress) listener.getLocalAddress());
        SocketChannel channel = listener.accept();
        channel.configureBlocking(false);
        SelectionKey key = channel.register(selector, SelectionKey.OP_READ);
        connection = new WebConnection(channel, key, new WebConnection.Desk() {
            @Override
            public void ask(WebConnection asked) {
                // its answer is never made
            }

            @Override
            public WebAnswer to(WebProblem problem) {
                throw new AssertionError(problem);
            }
        }, new WebConnection.Times(REQUEST, OTHER, OTHER, OTHER), 0);
    }

    @AfterEach
    void close() throws IOException {
        connection.close();
        client.close();
        listener.close();
        selector.close();
    }

    private void receive(String text, Duration now) throws IOException {
        client.send(text);
        selector.select();
        selector.selectedKeys().clear();
        assertTrue(connection.goOn(now.toNanos()));
    }

    private Duration leftAt(Duration now) {
        return Duration.ofNanos(connection.timeLeft(now.toNanos()));
    }

    @Test
    void whoSaysNothingHasTheTimeOfARequest() {
        assertEquals(REQUEST, leftAt(Duration.ZERO));
        assertEquals(Duration.ZERO, leftAt(REQUEST));
    }

    @Test
    void aRequestHasItsTimeFromItsFirstByteOnAndFurtherBytesGiveItNone() throws IOException {
        Duration first = Duration.ofSeconds(2);
        receive("G", first);
        assertEquals(REQUEST, leftAt(first));
        receive("E", first.plusSeconds(4));
        assertEquals(Duration.ofSeconds(1), leftAt(first.plusSeconds(4)));
        receive("T", first.plusSeconds(5));
        assertEquals(Duration.ZERO, leftAt(first.plusSeconds(5)));
    }
}
