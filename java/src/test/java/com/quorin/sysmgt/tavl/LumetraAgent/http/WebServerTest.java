package com.quorin.sysmgt.tavl.LumetraAgent.http;

import static com.quorin.sysmgt.tavl.LumetraAgent.http.Wire.assertGuarded;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;
import static org.junit.jupiter.api.Assumptions.assumeTrue;

import com.fasterxml.jackson.databind.ObjectMapper;
import com.quorin.sysmgt.tavl.LumetraAgent.host.AgentRoutes;
import com.quorin.sysmgt.tavl.LumetraAgent.http.Wire.Answer;
import com.quorin.sysmgt.tavl.LumetraAgent.watch.FakeView;
import java.io.ByteArrayInputStream;
import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.PrintStream;
import java.net.ConnectException;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.net.JarURLConnection;
import java.net.ServerSocket;
import java.net.Socket;
import java.net.URL;
import java.nio.channels.SelectionKey;
import java.nio.channels.Selector;
import java.nio.channels.spi.SelectorProvider;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.jar.JarFile;
import java.util.stream.Collectors;
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
    private Set<Thread> before;
    private WebServer server;

    @BeforeEach
    void start() throws IOException {
        before = allThreads();
        WebRoutes routes = AgentRoutes.of(view)
                .add("/small", WebRoute.fixed(new WebContent("text/plain", "small".getBytes())));
        server = WebServer.start(new InetSocketAddress(InetAddress.getLoopbackAddress(), 0), routes,
                new HostCheck(List.of("box")), new PrintStream(complaints, true));
    }

    @AfterEach
    void stop() {
        server.close();
    }

    /** Sends a request as it stands, and reads its answer and the end of the connection. */
    private Answer send(String request) throws IOException {
        try (Wire client = new Wire(server.address())) {
            Answer answer = client.send(request).receive();
            assertEquals(0, client.rest().length);
            return answer;
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

    private static void assertError(int status, Answer answer) throws IOException {
        assertEquals(status, answer.status(), answer.text());
        assertGuarded(answer);
        assertEquals(WebContent.JSON, answer.headers().get("content-type"));
        assertEquals(status, new ObjectMapper().readTree(answer.body()).at("/error/status").intValue());
    }

    @Test
    void anAnswerHasAllHeadersAndItsLength() throws IOException {
        Answer answer = get(RESOURCES);
        assertEquals(200, answer.status());
        assertGuarded(answer);
        assertEquals(WebContent.JSON, answer.headers().get("content-type"));
        assertEquals(Integer.toString(answer.body().length), answer.headers().get("content-length"));
        assertArrayEquals(FakeView.json(view.snapshot), answer.body());
    }

    @Test
    void headIsGetWithoutTheBody() throws IOException {
        for (String path : new String[] {RESOURCES, "/small", "/nowhere"}) {
            Answer get = get(path);
            Answer head = ask("HEAD", path);
            assertEquals(0, head.body().length);
            assertEquals(get.status(), head.status());
            get.headers().remove("date");
            head.headers().remove("date");
            assertEquals(get.headers(), head.headers());
        }
    }

    @ParameterizedTest
    @ValueSource(strings = {"POST", "PUT", "DELETE", "OPTIONS", "PATCH", "TRACE", "get", "BREW"})
    void otherMethodsAreRefused(String method) throws IOException {
        Answer answer = ask(method, RESOURCES);
        assertError(405, answer);
        assertEquals("GET, HEAD", answer.headers().get("allow"));
    }

    @Test
    void aTagThatIsSentBackSavesTheBody() throws IOException {
        for (String encoding : new String[] {"identity", "gzip"}) {
            String tag = get(RESOURCES, "Accept-Encoding: " + encoding).headers().get("etag");
            for (String header : new String[] {tag, "W/" + tag, "\"x\", " + tag, "*"}) {
                Answer answer = get(RESOURCES, "If-None-Match: " + header, "Accept-Encoding: " + encoding);
                assertEquals(304, answer.status(), header);
                assertEquals(0, answer.body().length);
                assertGuarded(answer);
            }
        }
        assertEquals(200, get(RESOURCES, "If-None-Match: \"x\"").status());
        String before = get(RESOURCES).headers().get("etag");
        view.snapshot = FakeView.snapshot(List.of());
        assertEquals(200, get(RESOURCES, "If-None-Match: " + before).status());
        assertEquals(404, get("/nowhere", "If-None-Match: *").status());
    }

    @Test
    void largeAnswersAreCompressedForWhoTakesThem() throws IOException {
        Answer plain = get(RESOURCES);
        Answer zipped = get(RESOURCES, "Accept-Encoding: br, gzip;q=0.8");
        assertEquals("gzip", zipped.headers().get("content-encoding"));
        assertEquals("Accept-Encoding", plain.headers().get("vary"));
        assertNotEquals(plain.headers().get("etag"), zipped.headers().get("etag"));
        assertTrue(zipped.body().length < plain.body().length);
        GZIPInputStream in = new GZIPInputStream(new ByteArrayInputStream(zipped.body()));
        assertArrayEquals(plain.body(), in.readAllBytes());
        for (String header : new String[] {"gzip;q=0", "br", "x-gzip", "gzip;q=0.0"}) {
            assertNull(get(RESOURCES, "Accept-Encoding: " + header).headers().get("content-encoding"), header);
        }
        assertNull(get("/small", "Accept-Encoding: gzip").headers().get("content-encoding"));
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
        assertEquals(200, send("GET /small HTTP/1.0\r\nHost: BOX:80\r\n\r\n").status());
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
        assertTrue(List.of(400, 404).contains(get(path).status()));
    }

    @Test
    void aBodyIsRefusedAndNotWaitedFor() throws IOException {
        assertError(400, get("/small", "Content-Length: 3000", "", "x".repeat(3000)));
        assertError(405, ask("POST", "/small", "Content-Length: 5", "", "hello"));
        assertError(400, get("/small", "Transfer-Encoding: chunked", "", "5", "hello", "0", ""));
        assertEquals(200, get("/small", "Content-Length: 0").status());
        try (Socket socket = new Socket(server.address().getAddress(), server.address().getPort())) {
            socket.getOutputStream().write(
                    "GET /small HTTP/1.1\r\nHost: localhost\r\nContent-Length: 3000\r\n\r\n".getBytes());
            byte[] begin = socket.getInputStream().readNBytes("HTTP/1.1 400".length()); // the body never comes
            assertEquals("HTTP/1.1 400", new String(begin));
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
        assertEquals(200, get(RESOURCES).status());
    }

    @Test
    void aShortageOfMemoryIsTheAnswerOfThatRequestAndOfNoOther() throws IOException {
        view.failure = new OutOfMemoryError("Java heap space");
        Answer answer = get(RESOURCES, "Accept-Encoding: gzip");
        assertError(503, answer);
        assertEquals("1", answer.headers().get("retry-after"));
        view.failure = null;
        assertEquals(200, get(RESOURCES).status());
        assertFalse(server.isBroken());
        assertTrue(complaints.toString().contains("OutOfMemoryError: Java heap space"), complaints.toString());
    }

    @Test
    void aClassThatCouldNotBeginIsToldToTheClientAsAFailure() throws IOException {
        view.failure = new NoClassDefFoundError("Could not initialize class Digits");
        assertError(500, get(RESOURCES));
        assertTrue(complaints.toString().contains("Could not initialize class Digits"), complaints.toString());
    }

    /** One that lacks memory once, where it is told to. */
    private static final class Poor extends Selector {

        private final Selector real;
        private final AtomicInteger selects;
        private final AtomicInteger closes;

        Poor(Selector real, int selects, int closes) {
            this.real = real;
            this.selects = new AtomicInteger(selects);
            this.closes = new AtomicInteger(closes);
        }

        private static void failOnce(AtomicInteger left) {
            if (left.getAndDecrement() > 0) {
                throw new OutOfMemoryError("Java heap space");
            }
        }

        @Override
        public int select(long timeout) throws IOException {
            failOnce(selects);
            return real.select(timeout);
        }

        @Override
        public void close() throws IOException {
            failOnce(closes);
            real.close();
        }

        @Override
        public boolean isOpen() {
            return real.isOpen();
        }

        @Override
        public SelectorProvider provider() {
            return real.provider();
        }

        @Override
        public Set<SelectionKey> keys() {
            return real.keys();
        }

        @Override
        public Set<SelectionKey> selectedKeys() {
            return real.selectedKeys();
        }

        @Override
        public int selectNow() throws IOException {
            return real.selectNow();
        }

        @Override
        public int select() throws IOException {
            return real.select();
        }

        @Override
        public Selector wakeup() {
            real.wakeup();
            return this;
        }
    }

    @Test
    void aServerWhoseNetworkFailsKnowsItAndGoesOn() throws IOException {
        server.selector = new Poor(server.selector, 1, 0);
        while (complaints.size() == 0) {
            assertEquals(200, get("/small").status());
        }
        assertTrue(server.isBroken());
        assertEquals(200, get("/small").status());
        assertTrue(complaints.toString().contains("OutOfMemoryError: Java heap space"), complaints.toString());
        InetSocketAddress address = server.address();
        server.close();
        server = WebServer.start(address, AgentRoutes.of(view), new HostCheck(List.of()),
                new PrintStream(complaints, true));
        assertEquals(200, get(RESOURCES).status());
        assertFalse(server.isBroken());
    }

    @Test
    void itListensOnTheAddressesThatAreMeantAndOnNoOther() throws IOException {
        String one = "127.0.0.1";
        String other = "::1";
        assertTrue(answers(one, one));
        assertTrue(answers("0.0.0.0", one));
        assumeTrue(isThere(other)); // not every machine has IPv6
        assertFalse(answers(one, other));
        assertFalse(answers("0.0.0.0", other));
        assertTrue(answers(other, other));
        assertFalse(answers(other, one));
        assertTrue(answers("::", other));
        assertTrue(answers("::", one));
    }

    /** Whether a server that listens on the one address answers at the other. */
    private boolean answers(String address, String asked) throws IOException {
        try (WebServer other = WebServer.start(new InetSocketAddress(address, 0), AgentRoutes.of(view),
                new HostCheck(List.of()), System.err);
                Wire client = new Wire(new InetSocketAddress(asked, other.address().getPort()), asked)) {
            return client.send("GET " + RESOURCES + " HTTP/1.1\r\nHost: localhost\r\n\r\n").receive().status() == 200;
        } catch (ConnectException e) {
            return false;
        }
    }

    private static boolean isThere(String address) {
        try {
            new ServerSocket(0, 1, InetAddress.getByName(address)).close();
            return true;
        } catch (IOException e) {
            return false;
        }
    }

    @Test
    void aPortThatIsTakenIsAFailureOfTheStart() {
        IOException failure = assertThrows(IOException.class, () -> WebServer.start(server.address(),
                new WebRoutes(), new HostCheck(List.of()), System.err));
        assertTrue(failure.getMessage().contains("Address already in use"), failure.getMessage());
    }

    @Test
    void theThreadsAreThereFromTheStartTheSameForeverAndDaemons() throws IOException {
        Set<Thread> first = threads();
        for (int i = 0; i < 40; i++) {
            get("/small");
        }
        assertEquals(first, threads());
        assertTrue(first.stream().allMatch(Thread::isDaemon));
        assertEquals(Set.of("lumetra-web", "lumetra-web-1", "lumetra-web-2", "lumetra-web-3", "lumetra-web-4"),
                first.stream().map(Thread::getName).collect(Collectors.toSet()));
    }

    /** Those of the page, also of an earlier test's that are about to end. */
    private static Set<Thread> allThreads() {
        return Thread.getAllStackTraces().keySet().stream().filter(t -> t.getName().startsWith("lumetra-web"))
                .collect(Collectors.toSet());
    }

    private Set<Thread> threads() {
        Set<Thread> own = allThreads();
        own.removeAll(before);
        return own;
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
        assertEquals("text/html; charset=utf-8", get("/").headers().get("content-type"));
        assertArrayEquals(get("/index.html").body(), get("/").body());
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

    @Test
    void aServerThatCouldNotBeClosedForWantOfMemoryIsClosedAtTheNextTry() {
        InetSocketAddress address = server.address();
        server.selector = new Poor(server.selector, 0, 1);
        server.close();
        assertThrows(ConnectException.class, () -> new Socket(address.getAddress(), address.getPort()).close());
        assertTrue(complaints.toString().contains("OutOfMemoryError: Java heap space"), complaints.toString());
    }
}
