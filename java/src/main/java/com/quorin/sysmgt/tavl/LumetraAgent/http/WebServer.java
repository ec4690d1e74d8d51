package com.quorin.sysmgt.tavl.LumetraAgent.http;

import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import com.sun.net.httpserver.Headers;
import com.sun.net.httpserver.HttpExchange;
import com.sun.net.httpserver.HttpServer;
import java.io.IOException;
import java.io.InterruptedIOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.io.PrintStream;
import java.net.Inet6Address;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.net.URI;
import java.net.UnknownHostException;
import java.util.List;
import java.util.Map;
import java.util.concurrent.ArrayBlockingQueue;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.FutureTask;
import java.util.concurrent.ThreadPoolExecutor;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.concurrent.atomic.AtomicLong;
import java.util.logging.Level;
import java.util.logging.LogRecord;
import java.util.logging.Logger;

/**
 * Answers GET and HEAD requests from a table of routes; everything else is refused. Connections, threads,
 * headers and times are bounded, so that no client can take more than a small share of the process.
 */
public final class WebServer implements AutoCloseable {

    private static final int THREADS = 8;

    /** Its dispatcher and its two timers. */
    private static final int THREADS_OF_JDK = 3;

    private static final int CONNECTIONS = 64;
    private static final long COMPLAIN_EVERY = TimeUnit.MINUTES.toNanos(1);
    private static final int ACCEPT_BACKLOG = 64;
    private static final long RETRY_MILLIS = 100;

    /** The JDK's server keeps a buffer of twice the largest piece for each connection, as long as it is open. */
    private static final int PIECE = 8 * 1024;

    /** Made when there is memory for it. */
    private static final WebContent NO_MEMORY =
            new WebProblem(503, "The agent is short of memory; come back in a second.").content();

    /** Held here, as a logger that nobody holds loses its settings. */
    private static final Logger SERVER_LOG = Logger.getLogger("com.sun.net.httpserver");

    /**
     * The bounds of the JDK's server, which reads them once, when its first object is made. Times are
     * seconds, but for the two at the end: how often it looks for connections that are over their time.
     */
    private static final Map<String, String> BOUNDS = Map.ofEntries(
            Map.entry("sun.net.httpserver.maxReqTime", "5"),
            Map.entry("sun.net.httpserver.maxRspTime", "10"),
            Map.entry("sun.net.httpserver.idleInterval", "10"),
            Map.entry("sun.net.httpserver.maxIdleConnections", "32"),
            Map.entry("jdk.httpserver.maxConnections", Integer.toString(CONNECTIONS)),
            Map.entry("sun.net.httpserver.maxReqHeaders", "64"),
            Map.entry("sun.net.httpserver.maxReqHeaderSize", "16384"),
            Map.entry("sun.net.httpserver.drainAmount", "4096"),
            Map.entry("sun.net.httpserver.nodelay", "true"),
            Map.entry("sun.net.httpserver.timerMillis", "2000"),
            Map.entry("sun.net.httpserver.clockTick", "5000"));

    private static final Map<String, String> HEADERS = Map.of(
            "Content-Security-Policy", "default-src 'none'; script-src 'self'; style-src 'self'; "
                    + "img-src 'self' data:; connect-src 'self'; base-uri 'none'; form-action 'none'; "
                    + "frame-ancestors 'none'",
            "X-Content-Type-Options", "nosniff",
            "Referrer-Policy", "no-referrer",
            "Cross-Origin-Resource-Policy", "same-origin",
            "Cross-Origin-Opener-Policy", "same-origin",
            "Cache-Control", "no-cache");

    static {
        SERVER_LOG.setLevel(Level.FINER);
        SERVER_LOG.setFilter(WebServer::paceRetries);
        BOUNDS.forEach((name, value) -> {
            if (System.getProperty(name) == null) {
                System.setProperty(name, value);
            }
        });
    }

    /** Not private so that a test can put one there that fails. */
    HttpServer server;
    private final ThreadPoolExecutor pool;
    private final WebRoute routes;
    private final HostCheck hosts;
    private final PrintStream complaints;
    private final AtomicLong nextComplaint = new AtomicLong(System.nanoTime());
    private final ThreadGroup threads = new ThreadGroup("lumetra-web") {
        @Override
        public void uncaughtException(Thread thread, Throwable failure) {
            broken = true;
            complain(failure);
            goOn(thread);
        }
    };
    private volatile boolean broken;
    private volatile boolean closed;

    private WebServer(WebRoute routes, HostCheck hosts, PrintStream complaints) {
        this.routes = routes;
        this.hosts = hosts;
        this.complaints = complaints;
        AtomicInteger number = new AtomicInteger();
        pool = new ThreadPoolExecutor(THREADS, THREADS, 30, TimeUnit.SECONDS,
                new ArrayBlockingQueue<>(CONNECTIONS), task -> {
                    Thread thread = new Thread(threads, task, "lumetra-web-" + number.incrementAndGet());
                    thread.setDaemon(true);
                    return thread;
                });
    }

    /**
     * Without descriptors the JDK's server cannot accept a waiting client, and tries again at once, for as
     * long as the client waits: a whole processor. The only sign of it is a message to its log, in its own
     * thread, which is kept back for a moment here.
     */
    private static boolean paceRetries(LogRecord message) {
        if (message.getThrown() instanceof IOException && "Dispatcher (4)".equals(message.getMessage())) {
            try {
                Thread.sleep(RETRY_MILLIS);
            } catch (InterruptedException e) {
                Thread.currentThread().interrupt();
            }
        }
        return message.getLevel().intValue() >= Level.WARNING.intValue();
    }

    /**
     * Starts a server, which answers already when this returns.
     *
     * @param address    port 0 lets the system choose one
     * @param hosts      the names of this machine
     * @param complaints where an unexpected failure is told, at most once a minute
     * @throws IOException when it cannot listen there
     */
    public static WebServer start(InetSocketAddress address, WebRoute routes, HostCheck hosts,
            PrintStream complaints) throws IOException {
        if (address.isUnresolved()) {
            throw new UnknownHostException("unknown address");
        }
        WebServer web = new WebServer(routes, hosts, complaints);
        FutureTask<HttpServer> listening = new FutureTask<>(() -> web.listen(address));
        new Thread(web.threads, listening, "lumetra-web-start").start();
        try {
            web.server = listening.get();
            return web;
        } catch (ExecutionException e) {
            throw asItWas(e.getCause());
        } catch (InterruptedException e) {
            throw new InterruptedIOException("interrupted while the server was starting");
        }
    }

    private static IOException asItWas(Throwable cause) {
        if (cause instanceof IOException io) {
            return io;
        }
        if (cause instanceof Error error) {
            throw error;
        }
        throw (RuntimeException) cause;
    }

    /** Runs in the group, which all threads that are started here belong to, those of the JDK's server too. */
    private HttpServer listen(InetSocketAddress address) throws IOException {
        boolean started = false;
        HttpServer listening = null;
        try {
            pool.prestartAllCoreThreads();
            // one that lacks a thread of its own leaves its port open for ever
            SpareThreads.hold(THREADS_OF_JDK).release();
            listening = HttpServer.create(address, ACCEPT_BACKLOG);
            listening.setExecutor(task -> pool.execute(() -> run(task)));
            listening.createContext("/", this::handle);
            listening.start();
            started = true;
            return listening;
        } finally {
            if (!started) {
                pool.shutdownNow();
            }
            if (!started && listening != null) {
                listening.stop(0);
            }
        }
    }

    /**
     * Whether a thread of the server has failed, as for want of memory: it may have lost something, and is best
     * closed and started anew.
     */
    public boolean isBroken() {
        return broken;
    }

    /**
     * Without its dispatcher the JDK's server cannot even be stopped, so a thread that has failed goes on with
     * its work; one of the timers ends at once, as its work is lost.
     */
    private void goOn(Thread failed) {
        boolean over = false;
        while (!over) {
            try {
                Thread.sleep(RETRY_MILLIS);
                failed.run();
                over = true;
            } catch (InterruptedException e) {
                over = true;
            } catch (RuntimeException | Error e) {
                complain(e);
            }
        }
    }

    /** A thread of the pool survives what the JDK's server does not catch; its timers close the connection. */
    private void run(Runnable task) {
        try {
            task.run();
        } catch (OutOfMemoryError | StackOverflowError e) {
            complain(e);
        }
    }

    public InetSocketAddress address() {
        return server.getAddress();
    }

    /** An address and port as they stand in a URL, an IPv6 address in brackets. */
    public static String inUrl(InetSocketAddress address) {
        InetAddress ip = address.getAddress();
        String host = ip instanceof Inet6Address ? "[" + ip.getHostAddress() + "]" : address.getHostString();
        return host + ":" + address.getPort();
    }

    /** Stops listening and closes all connections. */
    @Override
    public void close() {
        if (!closed) {
            server.stop(0); // for want of memory it may fail half-way: its port is then free after another try only
            pool.shutdownNow();
            closed = true;
        }
    }

    private void handle(HttpExchange exchange) {
        try {
            respond(exchange);
        } catch (IOException e) {
            // the client has gone or was too slow: its connection is closed, and nobody is left to be told
        } catch (OutOfMemoryError e) {
            refuse(exchange);
            complain(e);
        } catch (RuntimeException | StackOverflowError e) {
            complain(e);
        } finally {
            exchange.close();
        }
    }

    /** Answers without what took the memory, unless the answer has begun. */
    private static void refuse(HttpExchange exchange) {
        if (exchange.getResponseCode() < 0) {
            try {
                exchange.getResponseHeaders().remove("Content-Encoding");
                exchange.getResponseHeaders().set("Retry-After", "1");
                send(exchange, 503, NO_MEMORY);
            } catch (IOException | OutOfMemoryError e) {
                // the connection is closed instead
            }
        }
    }

    private void respond(HttpExchange exchange) throws IOException {
        HEADERS.forEach(exchange.getResponseHeaders()::set);
        WebContent content;
        int status = 200;
        try {
            content = content(exchange);
        } catch (WebProblem problem) {
            status = problem.status();
            content = problem(exchange, problem);
        } catch (RuntimeException | StackOverflowError e) {
            complain(e);
            status = 500;
            content = new WebProblem(status, "The answer could not be made.").content();
        }
        send(exchange, status, content);
    }

    private WebContent content(HttpExchange exchange) throws WebProblem {
        Headers headers = exchange.getRequestHeaders();
        if (!hosts.allows(headers.get("Host"))) {
            throw new WebProblem(403, "The Host header does not name this machine; "
                    + "lumetra run --allow-host allows another name.");
        }
        String method = exchange.getRequestMethod();
        if (!method.equals("GET") && !method.equals("HEAD")) {
            throw new WebProblem(405, "Only GET and HEAD are allowed.");
        }
        if (headers.containsKey("Transfer-Encoding") || hasLength(headers.getFirst("Content-Length"))) {
            throw new WebProblem(400, "A request with a body is not taken.");
        }
        URI uri = exchange.getRequestURI();
        if (uri.isAbsolute() || uri.getRawAuthority() != null || uri.getRawFragment() != null) {
            throw new WebProblem(400, "The request must name a path of this server.");
        }
        return routes.answer(uri.getRawPath(), uri.getRawQuery(), headers.getOrDefault("Accept", List.of()));
    }

    private static boolean hasLength(String length) {
        return length != null && !length.strip().equals("0");
    }

    private static WebContent problem(HttpExchange exchange, WebProblem problem) {
        if (problem.status() == 405) {
            exchange.getResponseHeaders().set("Allow", "GET, HEAD");
        } else if (problem.status() == 503) {
            exchange.getResponseHeaders().set("Retry-After", "1");
        }
        return problem.content();
    }

    private static void send(HttpExchange exchange, int status, WebContent content) throws IOException {
        Headers asked = exchange.getRequestHeaders();
        Headers headers = exchange.getResponseHeaders();
        boolean zipped = content.isCompressible() && takesGzip(asked.get("Accept-Encoding"));
        headers.set("Content-Type", content.type());
        headers.set("ETag", content.etag(zipped));
        if (!content.vary().isEmpty()) {
            headers.set("Vary", content.vary());
        }
        if (status == 200 && content.isKnownTo(joined(asked.get("If-None-Match")))) {
            exchange.sendResponseHeaders(304, -1);
            return;
        }
        if (zipped) {
            headers.set("Content-Encoding", "gzip");
        }
        int length = content.length(zipped);
        if (exchange.getRequestMethod().equals("HEAD")) {
            headers.set("Content-Length", Integer.toString(length));
            exchange.sendResponseHeaders(status, -1);
            return;
        }
        exchange.sendResponseHeaders(status, length);
        try (InputStream bytes = content.open(zipped); OutputStream body = exchange.getResponseBody()) {
            byte[] piece = new byte[Math.min(PIECE, length)];
            for (int count; (count = bytes.read(piece)) > 0; ) {
                body.write(piece, 0, count);
            }
        }
    }

    private static String joined(List<String> values) {
        return values == null ? null : String.join(",", values);
    }

    /** Whether gzip is among the encodings and not ruled out by a quality of zero. */
    private static boolean takesGzip(List<String> accepted) {
        if (accepted == null) {
            return false;
        }
        for (String part : joined(accepted).split(",")) {
            String[] words = part.strip().split("\\s*;\\s*", 2);
            if (words[0].equalsIgnoreCase("gzip")) {
                return words.length == 1 || !words[1].matches("[qQ]=0(\\.0*)?");
            }
        }
        return false;
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
