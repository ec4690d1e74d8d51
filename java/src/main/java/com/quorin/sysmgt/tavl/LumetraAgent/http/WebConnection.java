package com.quorin.sysmgt.tavl.LumetraAgent.http;

import java.io.Closeable;
import java.io.IOException;
import java.io.InputStream;
import java.net.InetSocketAddress;
import java.nio.ByteBuffer;
import java.nio.channels.SelectionKey;
import java.nio.channels.SocketChannel;
import java.time.Duration;

/**
 * One client: its requests come in and their answers go out one after the other, each in its time. It waits for
 * nothing; all is done by the thread of the network, but for the making of the answers.
 */
final class WebConnection {

    /**
     * How long a client may take.
     *
     * @param request for a whole request, from its first byte on; also until the first byte of the first one
     * @param idle    until the first byte of another
     * @param answer  to take an answer, from its first byte on
     * @param end     to take note of the end
     */
    record Times(Duration request, Duration idle, Duration answer, Duration end) {
        static final Times SHIPPED = new Times(Duration.ofSeconds(5), Duration.ofSeconds(10), Duration.ofSeconds(10),
                Duration.ofSeconds(2));
    }

    /** Who answers. */
    interface Desk {
        /** Has the connection's {@link #request} answered on another thread, which hands the answer in. */
        void ask(WebConnection connection);

        /** The answer to what is no request. */
        WebAnswer to(WebProblem problem);
    }

    /** What comes next. */
    private enum Next {
        REQUEST, ANSWER, RECEPTION, END
    }

    private static final int PIECE = 8 * 1024;
    private static final int BYTES_OF_A_NETWORK = 8;

    private final SocketChannel channel;
    private final SelectionKey key;
    private final ByteBuffer origin;
    private final Desk desk;
    private final Times times;
    private final RequestBuffer received = new RequestBuffer();
    private Next next = Next.REQUEST;
    private boolean hasBegun;
    private long deadline;
    private WebRequest request;
    private InputStream sent;
    private boolean isLast;
    private ByteBuffer piece;

    private WebAnswer answer;
    private volatile boolean isAnswered;

    /**
     * A client that was just accepted.
     *
     * @param key of the channel, which blocks nobody
     */
    WebConnection(SocketChannel channel, SelectionKey key, Desk desk, Times times, long now) throws IOException {
        this.channel = channel;
        this.key = key;
        this.desk = desk;
        this.times = times;
        byte[] address = ((InetSocketAddress) channel.getRemoteAddress()).getAddress().getAddress();
        origin = ByteBuffer.wrap(address, 0, Math.min(address.length, BYTES_OF_A_NETWORK));
        wait(times.request, now);
    }

    /** Whether both are of one client's making: one address, or one network of IPv6, in which a machine has many. */
    boolean isOfSameOrigin(WebConnection other) {
        return origin.equals(other.origin);
    }

    /** Nanoseconds until its time is over, which may be in the past. */
    long timeLeft(long now) {
        return next == Next.ANSWER ? Long.MAX_VALUE : deadline - now;
    }

    private void wait(Duration time, long now) {
        deadline = now + time.toNanos();
    }

    /** What is to be answered. */
    WebRequest request() {
        return request;
    }

    /**
     * Hands the answer in, from any thread.
     *
     * @param made null when there is none, which ends the connection
     */
    void answer(WebAnswer made) {
        answer = made;
        isAnswered = true;
    }

    /** Whether the answer is there and was not taken up yet. */
    boolean isAnswered() {
        return isAnswered;
    }

    /**
     * Does what can be done without waiting; whether the connection goes on.
     *
     * @throws IOException when the client has gone
     */
    boolean goOn(long now) throws IOException {
        return switch (next) {
            case REQUEST -> receive(now);
            case ANSWER -> takeAnswer(now);
            case RECEPTION -> send(now);
            case END -> receiveEnd();
        };
    }

    private boolean receive(long now) throws IOException {
        return received.receive(channel) && takeRequest(now);
    }

    private boolean takeRequest(long now) throws IOException {
        if (!hasBegun && !received.isEmpty()) {
            hasBegun = true;
            wait(times.request, now);
        }
        try {
            String text = received.take();
            if (text == null) {
                expect(Next.REQUEST, SelectionKey.OP_READ);
            } else {
                request = WebRequest.of(text);
                expect(Next.ANSWER, 0);
                desk.ask(this);
            }
            return true;
        } catch (WebProblem problem) {
            return begin(desk.to(problem), now);
        }
    }

    private void expect(Next what, int readiness) {
        next = what;
        key.interestOps(readiness);
    }

    private boolean takeAnswer(long now) throws IOException {
        if (!isAnswered) {
            return true;
        }
        isAnswered = false;
        WebAnswer made = answer;
        answer = null;
        return made != null && begin(made, now);
    }

    private boolean begin(WebAnswer made, long now) throws IOException {
        isLast = made.isLast();
        sent = made.open();
        piece = ByteBuffer.allocate(PIECE);
        wait(times.answer, now);
        fill();
        expect(Next.RECEPTION, SelectionKey.OP_WRITE);
        return send(now);
    }

    private void fill() throws IOException {
        piece.clear();
        piece.limit(sent.readNBytes(piece.array(), 0, piece.capacity()));
    }

    /** Sends a piece at most: others want to be served as well. */
    private boolean send(long now) throws IOException {
        channel.write(piece);
        if (!piece.hasRemaining()) {
            fill();
        }
        return piece.hasRemaining() || end(now);
    }

    /** What a client still sends is taken, or else the system would take the answer back. */
    private boolean end(long now) throws IOException {
        sent.close();
        sent = null;
        piece = null;
        if (isLast) {
            channel.shutdownOutput();
            wait(times.end, now);
            expect(Next.END, SelectionKey.OP_READ);
            return true;
        }
        hasBegun = false;
        wait(times.idle, now);
        return takeRequest(now);
    }

    private boolean receiveEnd() throws IOException {
        return channel.read(ByteBuffer.allocate(PIECE)) >= 0;
    }

    /** Gives the connection up. */
    void close() {
        key.cancel();
        close(channel);
        if (sent != null) {
            close(sent);
        }
    }

    /** Closes what is given up. */
    static void close(Closeable given) {
        try {
            given.close();
        } catch (IOException e) {
            // it is gone in any case
        }
    }
}
