package com.quorin.sysmgt.tavl.LumetraAgent.http;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.fasterxml.jackson.databind.ObjectMapper;
import com.quorin.sysmgt.tavl.LumetraAgent.host.AgentRoutes;
import com.quorin.sysmgt.tavl.LumetraAgent.watch.FakeView;
import com.sun.net.httpserver.HttpContext;
import com.sun.net.httpserver.HttpHandler;
import com.sun.net.httpserver.HttpServer;
import java.io.ByteArrayInputStream;
import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.PrintStream;
import java.net.ConnectException;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.net.JarURLConnection;
import java.net.Socket;
import java.net.URL;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.HashMap;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.concurrent.Executor;
import java.util.concurrent.atomic.AtomicBoolean;
import java.util.jar.JarFile;
import java.util.logging.Filter;
import java.util.logging.Logger;
import java.util.zip.GZIPInputStream;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

class WebServerTest {

    private static final String RESOURCES = "/api/v1/resources";

    private final FakeView view = new FakeView();
    private final ByteArrayOutputStream complaints = new ByteArrayOutputStream();
    private WebServer server;

    /** An answer as it came over the wire. */
    private record Answer(int status, Map<String, String> headers, byte[] body) {

        String text() {
            return new String(body, StandardCharsets.UTF_8);
        }
    }

    @BeforeEach
    void start() throws IOException {
        WebRoutes routes = AgentRoutes.of(view)
                .add("/small", WebRoute.fixed(new WebContent("text/plain", "small".getBytes())));
        server = WebServer.start(new InetSocketAddress(InetAddress.getLoopbackAddress(), 0), routes,
                new HostCheck(List.of("box")), new PrintStream(complaints, true));
    }

    @AfterEach
    void stop() {
        server.close();
    }

    /** Sends a request as it stands and reads until the server closes. */
    private Answer send(String request) throws IOException {
        try (Socket socket = new Socket(server.address().getAddress(), server.address().getPort())) {
            socket.getOutputStream().write(request.getBytes(StandardCharsets.ISO_8859_1));
            byte[] all = socket.getInputStream().readAllBytes();
            String text = new String(all, StandardCharsets.ISO_8859_1);
            int end = text.indexOf("\r\n\r\n");
            assertTrue(end > 0, "no answer: " + text);
            String[] lines = text.substring(0, end).split("\r\n");
            Map<String, String> headers = new HashMap<>();
            for (int i = 1; i < lines.length; i++) {
                String[] parts = lines[i].split(": ", 2);
                assertNull(headers.put(parts[0].toLowerCase(Locale.ROOT), parts[1]), "twice: " + parts[0]);
            }
            byte[] body = Arrays.copyOfRange(all, end + 4, all.length);
            return new Answer(Integer.parseInt(lines[0].split(" ")[1]), headers, body);
        }
    }

    private Answer ask(String method, String path, String... headers) throws IOException {
        StringBuilder more = new StringBuilder();
        for (String header : headers) {
            more.append(header).append("\r\n");
        }
        return send(method + " " + path + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n" + more
                + "\r\n");
    }

    private Answer get(String path, String... headers) throws IOException {
        return ask("GET", path, headers);
    }

    private static void assertGuarded(Answer answer) {
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
        assertNull(answer.headers.get("access-control-allow-origin"));
    }

    private static void assertError(int status, Answer answer) throws IOException {
        assertEquals(status, answer.status, answer.text());
        assertGuarded(answer);
        assertEquals(WebContent.JSON, answer.headers.get("content-type"));
        assertEquals(status, new ObjectMapper().readTree(answer.body).at("/error/status").intValue());
    }

    @Test
    void anAnswerHasAllHeadersAndItsLength() throws IOException {
        Answer answer = get(RESOURCES);
        assertEquals(200, answer.status);
        assertGuarded(answer);
        assertEquals(WebContent.JSON, answer.headers.get("content-type"));
        assertEquals(Integer.toString(answer.body.length), answer.headers.get("content-length"));
        assertArrayEquals(FakeView.json(view.snapshot), answer.body);
    }

    @Test
    void headIsGetWithoutTheBody() throws IOException {
        for (String path : new String[] {RESOURCES, "/small", "/nowhere"}) {
            Answer get = get(path);
            Answer head = ask("HEAD", path);
            assertEquals(0, head.body.length);
            assertEquals(get.status, head.status);
            get.headers.remove("date");
            head.headers.remove("date");
            assertEquals(get.headers, head.headers);
        }
    }

    @ParameterizedTest
    @ValueSource(strings = {"POST", "PUT", "DELETE", "OPTIONS", "PATCH", "TRACE", "get", "BREW"})
    void otherMethodsAreRefused(String method) throws IOException {
        Answer answer = ask(method, RESOURCES);
        assertError(405, answer);
        assertEquals("GET, HEAD", answer.headers.get("allow"));
    }

    @Test
    void aTagThatIsSentBackSavesTheBody() throws IOException {
        for (String encoding : new String[] {"identity", "gzip"}) {
            String tag = get(RESOURCES, "Accept-Encoding: " + encoding).headers.get("etag");
            for (String header : new String[] {tag, "W/" + tag, "\"x\", " + tag, "*"}) {
                Answer answer = get(RESOURCES, "If-None-Match: " + header, "Accept-Encoding: " + encoding);
                assertEquals(304, answer.status, header);
                assertEquals(0, answer.body.length);
                assertGuarded(answer);
            }
        }
        assertEquals(200, get(RESOURCES, "If-None-Match: \"x\"").status);
        String before = get(RESOURCES).headers.get("etag");
        view.snapshot = FakeView.snapshot(List.of());
        assertEquals(200, get(RESOURCES, "If-None-Match: " + before).status);
        assertEquals(404, get("/nowhere", "If-None-Match: *").status);
    }

    @Test
    void largeAnswersAreCompressedForWhoTakesThem() throws IOException {
        Answer plain = get(RESOURCES);
        Answer zipped = get(RESOURCES, "Accept-Encoding: br, gzip;q=0.8");
        assertEquals("gzip", zipped.headers.get("content-encoding"));
        assertEquals("Accept-Encoding", plain.headers.get("vary"));
        assertNotEquals(plain.headers.get("etag"), zipped.headers.get("etag"));
        assertTrue(zipped.body.length < plain.body.length);
        GZIPInputStream in = new GZIPInputStream(new ByteArrayInputStream(zipped.body));
        assertArrayEquals(plain.body, in.readAllBytes());
        for (String header : new String[] {"gzip;q=0", "br", "x-gzip", "gzip;q=0.0"}) {
            assertNull(get(RESOURCES, "Accept-Encoding: " + header).headers.get("content-encoding"), header);
        }
        assertNull(get("/small", "Accept-Encoding: gzip").headers.get("content-encoding"));
    }

    @Test
    void otherHostsAreRefused() throws IOException {
        for (String host : new String[] {"Host: evil.example", "Host: localhost\r\nHost: localhost", "Host:",
            "X: y"}) {
            Answer answer = send("GET /small HTTP/1.1\r\n" + host + "\r\nConnection: close\r\n\r\n");
            assertError(403, answer);
            assertFalse(answer.text().contains("evil"));
        }
        assertError(403, send("GET /small HTTP/1.0\r\n\r\n"));
        assertEquals(200, send("GET /small HTTP/1.0\r\nHost: BOX:80\r\n\r\n").status);
    }

    @ParameterizedTest
    @ValueSource(strings = {"/nowhere", "/small/", "/Small", "/sm%61ll", "/../../etc/passwd",
        "/%2e%2e/%2e%2e/etc/passwd", "/web/index.html", "/..%2fsmall", "/%00", "/small%00", "/api", "/api/v1",
        "/api/v2/resources",
        "/com/quorin/sysmgt/tavl/LumetraAgent/Lumetra.class", "/META-INF/MANIFEST.MF", "/small;x",
        "/./small"})
    void onlyExactPathsAreKnown(String path) throws IOException {
        assertError(404, get(path));
    }

    @ParameterizedTest
    @ValueSource(strings = {"/small?x", "/small?", "http://localhost/small", "http://evil.example/small",
        "//evil.example/small", "/api/v1/events?limit=0", "/small#x"})
    void badRequests(String path) throws IOException {
        assertError(400, get(path));
    }

    @ParameterizedTest
    @ValueSource(strings = {"/a b", "/%", "/%zz", "/\u0000", "/<x>", "/\\x"})
    void whatIsNoAddressIsRefusedBeforeTheRoutes(String path) throws IOException {
        assertTrue(List.of(400, 404).contains(get(path).status));
    }

    @Test
    void aBodyIsRefusedAndNotWaitedFor() throws IOException {
        assertError(400, get("/small", "Content-Length: 3000", "", "x".repeat(3000)));
        assertError(405, ask("POST", "/small", "Content-Length: 5", "", "hello"));
        assertError(400, get("/small", "Transfer-Encoding: chunked", "", "5", "hello", "0", ""));
        assertEquals(200, get("/small", "Content-Length: 0").status);
        try (Socket socket = new Socket(server.address().getAddress(), server.address().getPort())) {
            socket.getOutputStream().write(
                    "GET /small HTTP/1.1\r\nHost: localhost\r\nContent-Length: 3000\r\n\r\n".getBytes());
            byte[] begin = socket.getInputStream().readNBytes("HTTP/1.1 400".length()); // the body never comes
            assertEquals("HTTP/1.1 400", new String(begin, StandardCharsets.ISO_8859_1));
        }
    }

    @Test
    void aFailureIsToldOnceAndWithoutDetailsToTheClient() throws IOException {
        view.failure = new IllegalStateException("a secret\u001b[2J");
        assertError(500, get(RESOURCES));
        assertError(500, get(RESOURCES));
        assertFalse(get(RESOURCES).text().contains("secret"));
        assertEquals(1, complaints.toString().lines().count());
        assertTrue(complaints.toString().contains("a secret\\x1b[2J"));
        view.failure = null;
        assertEquals(200, get(RESOURCES).status);
    }

    @Test
    void aShortageOfMemoryIsTheAnswerOfThatRequestAndOfNoOther() throws IOException {
        view.failure = new OutOfMemoryError("Java heap space");
        Answer answer = get(RESOURCES, "Accept-Encoding: gzip");
        assertError(503, answer);
        assertEquals("1", answer.headers.get("retry-after"));
        view.failure = null;
        assertEquals(200, get(RESOURCES).status);
        assertFalse(server.isBroken());
        assertTrue(complaints.toString().contains("OutOfMemoryError: Java heap space"), complaints.toString());
    }

    @Test
    void aServerWhoseDispatcherFailsKnowsItAndGoesOn() throws IOException {
        Logger log = Logger.getLogger("com.sun.net.httpserver");
        Filter before = log.getFilter();
        AtomicBoolean failed = new AtomicBoolean();
        log.setFilter(message -> {
            if (Thread.currentThread().getName().equals("HTTP-Dispatcher") && failed.compareAndSet(false, true)) {
                throw new OutOfMemoryError("Java heap space");
            }
            return before.isLoggable(message);
        });
        try {
            while (!server.isBroken()) {
                assertEquals(200, get("/small").status);
            }
            assertTrue(failed.get());
            assertEquals(200, get("/small").status);
            assertTrue(complaints.toString().contains("OutOfMemoryError: Java heap space"), complaints.toString());
            InetSocketAddress address = server.address();
            server.close();
            server = WebServer.start(address, AgentRoutes.of(view), new HostCheck(List.of()),
                    new PrintStream(complaints, true));
            assertEquals(200, get(RESOURCES).status);
            assertFalse(server.isBroken());
        } finally {
            log.setFilter(before);
        }
    }

    @Test
    void oneConnectionServesMany() throws IOException {
        Answer both = send("GET /small HTTP/1.1\r\nHost: localhost\r\n\r\n"
                + "GET /small HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
        assertEquals(2, both.text().split("small", -1).length - 1);
    }

    @Test
    void aPortThatIsTakenIsAFailureOfTheStart() {
        IOException failure = assertThrows(IOException.class, () -> WebServer.start(server.address(),
                new WebRoutes(), new HostCheck(List.of()), System.err));
        assertTrue(failure.getMessage().contains("Address already in use"), failure.getMessage());
    }

    @Test
    void theThreadsAreBoundedNamedAndDaemons() throws IOException {
        for (int i = 0; i < 40; i++) {
            get("/small");
        }
        List<Thread> threads = Thread.getAllStackTraces().keySet().stream()
                .filter(t -> t.getName().startsWith("lumetra-web-")).toList();
        assertTrue(threads.stream().allMatch(Thread::isDaemon));
        assertTrue(threads.stream().allMatch(t -> t.getName().matches("lumetra-web-[1-8]")),
                threads.toString());
    }

    @Test
    void everyFileOfThePageIsServedWithItsType() throws IOException {
        URL folder = StaticFiles.class.getResource("/web");
        Map<String, WebContent> files = StaticFiles.load();
        try (JarFile jar = ((JarURLConnection) folder.openConnection()).getJarFile()) {
            List<String> names = jar.stream().filter(e -> e.getName().startsWith("web/") && !e.isDirectory())
                    .map(e -> e.getName().substring("web".length())).toList();
            assertFalse(names.isEmpty());
            names.forEach(name -> assertTrue(files.containsKey(name), name + " is not in the table"));
        }
        assertEquals("text/html; charset=utf-8", get("/").headers.get("content-type"));
        assertArrayEquals(get("/index.html").body, get("/").body);
    }

    @Test
    void anAddressStandsInAUrlAsItMust() throws IOException {
        assertEquals("127.0.0.1:80", WebServer.inUrl(new InetSocketAddress("127.0.0.1", 80)));
        assertEquals("[0:0:0:0:0:0:0:1]:80", WebServer.inUrl(new InetSocketAddress("::1", 80)));
    }

    @Test
    void noFileOfTheMachineIsEverOpenedForAPath() throws IOException {
        Path probe = Files.createTempFile("lumetra", ".txt");
        try {
            Files.writeString(probe, "a secret");
            assertError(404, get(probe.toString()));
            assertError(404, get("/.." + probe));
        } finally {
            Files.delete(probe);
        }
    }

    /** A server that lacks memory at its first stop. */
    private static final class StopsAtTheSecondTry extends HttpServer {

        private final HttpServer real;
        private boolean tried;

        StopsAtTheSecondTry(HttpServer real) {
            this.real = real;
        }

        @Override
        public void stop(int delay) {
            if (!tried) {
                tried = true;
                throw new OutOfMemoryError("no memory to stop");
            }
            real.stop(delay);
        }

        @Override
        public InetSocketAddress getAddress() {
            return real.getAddress();
        }

        @Override
        public void bind(InetSocketAddress address, int backlog) {
            throw new UnsupportedOperationException();
        }

        @Override
        public void start() {
            throw new UnsupportedOperationException();
        }

        @Override
        public void setExecutor(Executor executor) {
            throw new UnsupportedOperationException();
        }

        @Override
        public Executor getExecutor() {
            throw new UnsupportedOperationException();
        }

        @Override
        public HttpContext createContext(String path, HttpHandler handler) {
            throw new UnsupportedOperationException();
        }

        @Override
        public HttpContext createContext(String path) {
            throw new UnsupportedOperationException();
        }

        @Override
        public void removeContext(String path) {
            throw new UnsupportedOperationException();
        }

        @Override
        public void removeContext(HttpContext context) {
            throw new UnsupportedOperationException();
        }
    }

    @Test
    void aServerThatCouldNotBeClosedForWantOfMemoryIsClosedAtTheNextTry() {
        InetSocketAddress address = server.address();
        server.server = new StopsAtTheSecondTry(server.server);
        assertThrows(OutOfMemoryError.class, server::close);
        server.close();
        assertThrows(ConnectException.class, () -> new Socket(address.getAddress(), address.getPort()).close());
    }
}
