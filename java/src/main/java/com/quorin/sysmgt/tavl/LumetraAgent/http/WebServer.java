package com.quorin.sysmgt.tavl.LumetraAgent.http;

import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.io.IOException;
import java.io.PrintStream;
import java.net.Inet4Address;
import java.net.Inet6Address;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.net.StandardProtocolFamily;
import java.net.StandardSocketOptions;
import java.net.UnknownHostException;
import java.nio.channels.SelectionKey;
import java.nio.channels.Selector;
import java.nio.channels.ServerSocketChannel;
import java.nio.channels.SocketChannel;
import java.util.ArrayList;
import java.util.Iterator;
import java.util.List;
import java.util.concurrent.ArrayBlockingQueue;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicLong;

/**
 * A web server for few clients, of which any may mean no good. One thread does all that has to do with the network and
 * waits for no client; some others make the answers. All of them are there from the start to the end, so that a machine
 * without processes or threads is served as well. Connections, sizes and times are bounded.
 */
public final class WebServer implements AutoCloseable {

    static final int CONNECTIONS = 64;

    private static final int MAKERS = 4;
    private static final int ACCEPT_BACKLOG = 64;
    private static final long COMPLAIN_EVERY = TimeUnit.MINUTES.toNanos(1);
    private static final long RETRY_AFTER = TimeUnit.MILLISECONDS.toNanos(100);
    private static final long LONGEST_END = 2000;

    private final PrintStream complaints;
    private final WebConnection.Times times;
    private final WebAnswers answers;
    private final AtomicLong nextComplaint = new AtomicLong(System.nanoTime());

    /** What the answers are still to be made for. */
    private final BlockingQueue<WebConnection> asked = new ArrayBlockingQueue<>(CONNECTIONS);

    private final List<Thread> makers = new ArrayList<>();
    private final Thread network = thread(this::serve, "lumetra-web");
    private volatile boolean over;
    private volatile boolean broken;

    /** Not private so that a test can put one there that fails. */
    volatile Selector selector;

    private final ServerSocketChannel listener;
    private final InetSocketAddress address;

    /** The oldest first; like all below, of the network's thread. */
    private final List<WebConnection> connections = new ArrayList<>(CONNECTIONS + 1);

    private final SelectionKey listening;
    private final WebConnection.Desk desk = new WebConnection.Desk() {
        @Override
        public void ask(WebConnection connection) {
            asked.add(connection);
        }

        @Override
        public WebAnswer to(WebProblem problem) {
            return answers.to(problem);
        }
    };
    private long acceptFrom;

    private WebServer(InetSocketAddress wanted, WebRoute routes, HostCheck hosts, PrintStream complaints,
            WebConnection.Times times) throws IOException {
        this.complaints = complaints;
        this.times = times;
        answers = new WebAnswers(routes, hosts, this::complain);
        listener = listener(wanted.getAddress());
        try {
            selector = Selector.open();
            listener.bind(wanted, ACCEPT_BACKLOG);
            listener.configureBlocking(false);
            listening = listener.register(selector, SelectionKey.OP_ACCEPT);
            address = (InetSocketAddress) listener.getLocalAddress();
        } catch (IOException | RuntimeException | Error e) {
            closeSockets();
            throw e;
        }
    }

    /**
     * Starts a server, which answers already when this returns.
     *
     * @param address    port 0 lets the system choose one
     * @param hosts      the names of this machine
     * @param complaints where an unexpected failure is told, at most once a minute
     * @throws IOException      when it cannot listen there
     * @throws OutOfMemoryError when there are no threads for it; none stays then
     */
    public static WebServer start(InetSocketAddress address, WebRoute routes, HostCheck hosts,
            PrintStream complaints) throws IOException {
        return start(address, routes, hosts, complaints, WebConnection.Times.SHIPPED);
    }

    static WebServer start(InetSocketAddress address, WebRoute routes, HostCheck hosts, PrintStream complaints,
            WebConnection.Times times) throws IOException {
        if (address.isUnresolved()) {
            throw new UnknownHostException("unknown address");
        }
        WebServer web = new WebServer(address, routes, hosts, complaints, times);
        try {
            for (int i = 1; i <= MAKERS; i++) {
                Thread maker = thread(web::make, "lumetra-web-" + i);
                maker.start();
                web.makers.add(maker);
            }
            web.network.start();
            return web;
        } catch (OutOfMemoryError e) {
            web.close();
            throw e;
        }
    }

    /** A socket of IPv6 serves both kinds, and to it 0.0.0.0 would be each IPv6 address of the machine as well. */
    private static ServerSocketChannel listener(InetAddress address) throws IOException {
        return address instanceof Inet4Address ? ServerSocketChannel.open(StandardProtocolFamily.INET)
                : ServerSocketChannel.open();
    }

    private static Thread thread(Runnable work, String name) {
        Thread thread = new Thread(work, name);
        thread.setDaemon(true);
        return thread;
    }

    public InetSocketAddress address() {
        return address;
    }

    /** An address and port as they stand in a URL, an IPv6 address in brackets. */
    public static String inUrl(InetSocketAddress address) {
        InetAddress ip = address.getAddress();
        String host = ip instanceof Inet6Address ? "[" + ip.getHostAddress() + "]" : address.getHostString();
        return host + ":" + address.getPort();
    }

    /**
     * Whether the network's thread has failed, as for want of memory: it goes on, but may have lost something. The
     * server is best closed and started anew.
     */
    public boolean isBroken() {
        return broken;
    }

    /** Stops listening and closes all connections; a machine without memory may do so later. */
    @Override
    public void close() {
        over = true;
        makers.forEach(Thread::interrupt);
        if (network.isAlive()) {
            selector.wakeup();
            try {
                network.join(LONGEST_END);
            } catch (InterruptedException e) {
                Thread.currentThread().interrupt();
            }
        } else {
            closeSockets();
        }
    }

    /** The work of a thread that makes answers. */
    private void make() {
        while (!over) {
            try {
                make(asked.take());
            } catch (InterruptedException e) {
                // as at the end, which is looked for
            } catch (RuntimeException | Error e) {
                complain(e);
            }
        }
    }

    private void make(WebConnection connection) {
        WebAnswer answer = null;
        try {
            answer = answers.to(connection.request());
        } finally {
            connection.answer(answer);
            selector.wakeup();
        }
    }

    /** The work of the network's thread. */
    private void serve() {
        while (!over) {
            try {
                selector.select(millisecondsLeft());
                look(System.nanoTime());
            } catch (IOException | RuntimeException | Error e) {
                broken = true;
                complain(e);
                pause();
            }
        }
        while (!closeSockets()) {
            pause();
        }
    }

    private static void pause() {
        try {
            TimeUnit.NANOSECONDS.sleep(RETRY_AFTER);
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }

    /** Until a client's time is over or it is accepted again, rounded up; 0 for ever. */
    private long millisecondsLeft() {
        long now = System.nanoTime();
        long left = isAccepting() ? Long.MAX_VALUE : acceptFrom - now;
        for (WebConnection connection : connections) {
            left = Math.min(left, connection.timeLeft(now));
        }
        return left == Long.MAX_VALUE ? 0 : TimeUnit.NANOSECONDS.toMillis(Math.max(0, left)) + 1;
    }

    private boolean isAccepting() {
        return listening.interestOps() != 0;
    }

    private void look(long now) {
        for (Iterator<SelectionKey> ready = selector.selectedKeys().iterator(); ready.hasNext(); ) {
            SelectionKey key = ready.next();
            ready.remove();
            if (key == listening) {
                accept(now);
            } else if (key.isValid()) {
                goOn((WebConnection) key.attachment(), now);
            }
        }
        for (int i = connections.size() - 1; i >= 0; i--) {
            WebConnection connection = connections.get(i);
            if (connection.isAnswered()) {
                goOn(connection, now);
            } else if (connection.timeLeft(now) <= 0) {
                drop(connection);
            }
        }
        if (!isAccepting() && now - acceptFrom >= 0) {
            listening.interestOps(SelectionKey.OP_ACCEPT);
        }
    }

    private void accept(long now) {
        try {
            SocketChannel client = listener.accept();
            if (client != null) {
                admit(client, now);
            }
        } catch (IOException e) { // no descriptors, as a rule: the client waits, and would wake this thread at once
            listening.interestOps(0);
            acceptFrom = now + RETRY_AFTER;
        }
    }

    private void admit(SocketChannel client, long now) {
        boolean admitted = false;
        try {
            client.configureBlocking(false);
            client.setOption(StandardSocketOptions.TCP_NODELAY, true);
            SelectionKey key = client.register(listening.selector(), SelectionKey.OP_READ);
            WebConnection connection = new WebConnection(client, key, desk, times, now);
            key.attach(connection);
            connections.add(connection);
            admitted = true;
            if (connections.size() > CONNECTIONS) {
                drop(mostDispensable(now));
            }
        } catch (IOException e) {
            // the client has gone
        } catch (OutOfMemoryError e) {
            complain(e);
        } finally {
            if (!admitted) {
                WebConnection.close(client);
            }
        }
    }

    /**
     * The connection that makes room for the newest: of whoever has most, that one included, the one whose time is
     * over first. So nobody keeps others out, and somebody who is alone, as a proxy for all others, has all.
     */
    private WebConnection mostDispensable(long now) {
        WebConnection chosen = null;
        long most = 0;
        for (WebConnection connection : connections.subList(0, connections.size() - 1)) {
            long count = connections.stream().filter(connection::isOfSameOrigin).count();
            if (count > most || count == most && connection.timeLeft(now) < chosen.timeLeft(now)) {
                chosen = connection;
                most = count;
            }
        }
        return chosen;
    }

    private void goOn(WebConnection connection, long now) {
        boolean goesOn = false;
        try {
            goesOn = connection.goOn(now);
        } catch (IOException e) {
            // the client has gone
        } catch (RuntimeException | OutOfMemoryError e) {
            complain(e);
        } finally {
            if (!goesOn) {
                drop(connection);
            }
        }
    }

    private void drop(WebConnection connection) {
        connections.remove(connection);
        asked.remove(connection);
        connection.close();
    }

    /** Whether all is closed; without memory it takes another try. */
    private boolean closeSockets() {
        try {
            connections.forEach(WebConnection::close);
            listener.close();
            if (selector != null) {
                selector.close(); // which lets go of the others
            }
            return true;
        } catch (IOException | RuntimeException | OutOfMemoryError e) {
            complain(e);
            return false;
        }
    }

    private void complain(Throwable failure) {
        long due = nextComplaint.get();
        long now = System.nanoTime();
        if (now - due >= 0 && nextComplaint.compareAndSet(due, now + COMPLAIN_EVERY)) {
            try {
                complaints.println("The web server could not make an answer: "
                        + Words.printable(failure.toString()));
            } catch (OutOfMemoryError e) {
                // no memory for words either
            }
        }
    }
}
