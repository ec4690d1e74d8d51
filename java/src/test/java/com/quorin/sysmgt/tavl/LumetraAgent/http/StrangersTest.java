package com.quorin.sysmgt.tavl.LumetraAgent.http;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorin.sysmgt.tavl.LumetraAgent.http.Wire.Answer;
import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.PrintStream;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.BrokenBarrierException;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.CyclicBarrier;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
import org.junit.jupiter.params.provider.ValueSource;

/** Clients that mean no good, or cannot speak: what becomes of them, and that others are served as before. */
class StrangersTest {

    private static final Duration SHORT = Duration.ofMillis(50);
    private static final Duration LONG = Duration.ofHours(1);
    private static final WebContent LARGE = new WebContent("text/plain", new byte[32 << 20]);
    private static final int MAKERS = 4;
    private static final String END = "Host: localhost\r\nConnection: close\r\n\r\n";
    private static final String STAY = "Host: localhost\r\n\r\n";
    private static final String GET = "GET /small HTTP/1.1\r\n";

    private final ByteArrayOutputStream complaints = new ByteArrayOutputStream();
    private final CountDownLatch released = new CountDownLatch(1);
    private final CyclicBarrier meeting = new CyclicBarrier(MAKERS);
    private final List<Wire> clients = new ArrayList<>();
    private WebServer server;

    @AfterEach
    void stop() throws IOException {
        released.countDown();
        for (Wire client : clients) {
            client.close();
        }
        server.close();
    }

    private void start(Duration request, Duration idle, Duration answer, Duration end) throws IOException {
        WebContent small = new WebContent("text/plain", "small".getBytes());
        WebRoutes routes = new WebRoutes().add("/small", WebRoute.fixed(small)).add("/large", WebRoute.fixed(LARGE))
                .add("/wait", (path, query) -> {
                    try {
                        released.await();
                    } catch (InterruptedException e) {
                        // the test is over
                    }
                    return small;
                }).add("/meet", (path, query) -> {
                    try {
                        meeting.await();
                    } catch (InterruptedException | BrokenBarrierException e) {
                        // the test is over
                    }
                    return small;
                });
        server = WebServer.start(new InetSocketAddress(InetAddress.getLoopbackAddress(), 0), routes,
                new HostCheck(List.of()), new PrintStream(complaints, true),
                new WebConnection.Times(request, idle, answer, end));
    }

    /** All the time in the world, so that nothing ends for its age. */
    private void start() throws IOException {
        start(LONG, LONG, LONG, LONG);
    }

    private Wire client(String own) throws IOException {
        Wire client = new Wire(server.address(), own);
        clients.add(client);
        return client;
    }

    private Wire client() throws IOException {
        return client("127.0.0.1");
    }

    /** An ordinary client is served, no thread that makes answers is lost, and nobody had reason to complain. */
    private void assertServed() throws IOException {
        assertEquals("small", client().send(GET + END).receive().text());
        List<Wire> together = new ArrayList<>();
        for (int i = 0; i < MAKERS; i++) {
            together.add(client().send("GET /meet HTTP/1.1\r\n" + END));
        }
        for (Wire one : together) {
            assertEquals(200, one.receive().status());
        }
        assertEquals("", complaints.toString());
        assertFalse(server.isBroken());
    }

    private static String expanded(String text) {
        return text.replace("{r}", "\r").replace("{n}", "\n").replace("{e}", "\r\n").replace("{0}", "\0")
                .replace("{end}", END).replace("{big}", "x".repeat(RequestBuffer.LARGEST))
                .replace("{64}", "a: b\r\n".repeat(64));
    }

    @ParameterizedTest(name = "{0}")
    @CsvSource(delimiter = '|', ignoreLeadingAndTrailingWhitespace = true, value = {
        "no version                    | 400 | GET /small{e}{end}",
        "a version too few             | 400 | GET /small HTTP/1{e}{end}",
        "a version too many            | 400 | GET /small HTTP/1.10{e}{end}",
        "another protocol              | 400 | GET /small ICY/1.1{e}{end}",
        "the next protocol             | 400 | PRI * HTTP/2.0{e}{e}SM{e}{e}",
        "a protocol of the past        | 400 | GET /small HTTP/0.9{e}{end}",
        "no method                     | 400 | ' /small HTTP/1.1{e}{end}'",
        "a method that is no word      | 400 | G(T /small HTTP/1.1{e}{end}",
        "a method of small letters     | 405 | get /small HTTP/1.1{e}{end}",
        "a method that tells headers   | 405 | TRACE /small HTTP/1.1{e}Cookie: secret{e}{end}",
        "a method about the server     | 400 | OPTIONS * HTTP/1.1{e}{end}",
        "a method for proxies          | 400 | CONNECT localhost:22 HTTP/1.1{e}{end}",
        "a body to a method            | 405 | POST /small HTTP/1.1{e}Content-Length: 9{e}{end}GET / HTT",
        "two blanks                    | 400 | GET  /small HTTP/1.1{e}{end}",
        "a blank at the end            | 400 | 'GET /small HTTP/1.1 {e}{end}'",
        "a tab for a blank             | 400 | 'GET\t/small HTTP/1.1{e}{end}'",
        "an empty line first           | 400 | {e}GET /small HTTP/1.1{e}{end}",
        "nothing but lines             | 400 | {e}{e}{e}{e}",
        "lines without CR              | 400 | GET /small HTTP/1.1{n}Host: localhost{n}{n}",
        "one line without CR           | 400 | GET /small HTTP/1.1{e}X: y{n}{end}",
        "CR in a header                | 400 | GET /small HTTP/1.1{e}X: y{r}Z: z{e}{end}",
        "NUL in the path               | 400 | GET /sm{0}all HTTP/1.1{e}{end}",
        "NUL in a header               | 400 | GET /small HTTP/1.1{e}X: y{0}{e}{end}",
        "NUL in a header's name        | 400 | GET /small HTTP/1.1{e}X{0}: y{e}{end}",
        "a header on two lines         | 400 | GET /small HTTP/1.1{e}X: y{e} z{e}{end}",
        "a header without a colon      | 400 | GET /small HTTP/1.1{e}X y{e}{end}",
        "a header without a name       | 400 | GET /small HTTP/1.1{e}: y{e}{end}",
        "a blank before the colon      | 400 | GET /small HTTP/1.1{e}Content-Length : 9{e}{end}",
        "a whole address               | 400 | GET http://localhost/small HTTP/1.1{e}{end}",
        "another server's address      | 400 | GET http://evil.example/small HTTP/1.1{e}{end}",
        "another server behind slashes | 400 | GET //evil.example/small HTTP/1.1{e}{end}",
        "no path                       | 400 | GET ?x HTTP/1.1{e}{end}",
        "a place in a page             | 400 | GET /small#x HTTP/1.1{e}{end}",
        "bytes that are no text        | 400 | GET /sm\u00e4ll HTTP/1.1{e}{end}",
        "the directory above           | 404 | GET /../small HTTP/1.1{e}{end}",
        "the same, escaped             | 404 | GET /%2e%2e/small HTTP/1.1{e}{end}",
        "a slash, escaped              | 404 | GET /..%2fsmall HTTP/1.1{e}{end}",
        "NUL, escaped                  | 404 | GET /small%00 HTTP/1.1{e}{end}",
        "an escape too short           | 404 | GET /% HTTP/1.1{e}{end}",
        "an escape that is none        | 404 | GET /%zz HTTP/1.1{e}{end}",
        "an overlong escape            | 404 | GET /%c0%ae%c0%ae/ HTTP/1.1{e}{end}",
        "an escape that is no text     | 404 | GET /%ff HTTP/1.1{e}{end}",
        "a query with lines, escaped   | 400 | GET /small?x%0d%0aX-Evil:%20y HTTP/1.1{e}{end}",
        "a body                        | 400 | GET /small HTTP/1.1{e}Content-Length: 9{e}{end}GET / HTT",
        "a body of 2^63 bytes          | 400 | GET /small HTTP/1.1{e}Content-Length: 9223372036854775808{e}{end}",
        "a body of less than nothing   | 400 | GET /small HTTP/1.1{e}Content-Length: -1{e}{end}",
        "a body of plus nothing        | 400 | GET /small HTTP/1.1{e}Content-Length: +0{e}{end}",
        "no body, said in a list       | 400 | 'GET /small HTTP/1.1{e}Content-Length: 0, 0{e}{end}'",
        "no body, said twice           | 400 | GET /small HTTP/1.1{e}Content-Length: 0{e}content-length: 0{e}{end}",
        "no body                       | 200 | GET /small HTTP/1.1{e}Content-Length: 0{e}{end}",
        "a body in pieces              | 400 | GET /small HTTP/1.1{e}Transfer-Encoding: chunked{e}{end}0{e}{e}",
        "a body as it is               | 400 | GET /small HTTP/1.1{e}Transfer-Encoding: identity{e}{end}",
        "two bodies | 400 | GET /small HTTP/1.1{e}Content-Length: 0{e}Transfer-Encoding: chunked{e}{end}0{e}{e}",
        "a path too long               | 431 | GET /{big} HTTP/1.1{e}{end}",
        "a header too long             | 431 | GET /small HTTP/1.1{e}X: {big}{e}{end}",
        "a header's name too long      | 431 | GET /small HTTP/1.1{e}{big}: x{e}{end}",
        "headers too many              | 431 | GET /small HTTP/1.1{e}{64}Host: localhost{e}{e}",
        "headers as many as may be     | 403 | GET /small HTTP/1.1{e}{64}{e}",
        "no host                       | 403 | GET /small HTTP/1.1{e}Connection: close{e}{e}",
        "no host, in the old days      | 403 | GET /small HTTP/1.0{e}{e}",
        "an empty host                 | 403 | GET /small HTTP/1.1{e}Host:{e}Connection: close{e}{e}",
        "a name made to point here     | 403 | GET /small HTTP/1.1{e}Host: evil.example{e}Connection: close{e}{e}",
        "two hosts                     | 403 | GET /small HTTP/1.1{e}Host: evil.example{e}{end}",
        "a browser for another site    | 403 | GET /small HTTP/1.1{e}Sec-Fetch-Site: cross-site{e}{end}",
        "a browser for another port    | 403 | GET /small HTTP/1.1{e}Sec-Fetch-Site: same-site{e}{end}",
        "a browser behind a link | 200 | GET /small HTTP/1.1{e}Sec-Fetch-Site: cross-site{e}Sec-Fetch-Mode: navigate"
                + "{e}{end}",
        "a browser for the page itself | 200 | GET /small HTTP/1.1{e}Sec-Fetch-Site: same-origin{e}{end}",
        "a name in the address bar     | 200 | GET /small HTTP/1.1{e}Sec-Fetch-Site: none{e}{end}",
        "an origin                     | 200 | GET /small HTTP/1.1{e}Origin: http://evil.example{e}{end}",
    })
    void whatIsAnsweredAndThatTheConnectionEndsThere(String what, int status, String request) throws IOException {
        start();
        Wire client = client().send(expanded(request));
        Answer answer = client.receive();
        assertEquals(status, answer.status(), answer.text());
        Wire.assertGuarded(answer);
        assertNull(answer.headers().get("x-evil"));
        assertFalse(answer.text().contains("vil"), answer.text());
        assertFalse(answer.text().contains("secret"), answer.text());
        client.send("");
        if (!request.contains("{64}{e}")) {
            assertEquals("", new String(client.rest()), "a second answer");
        }
        assertServed();
    }

    @Test
    void aRequestMayComeByteByByte() throws IOException {
        start();
        Wire client = client();
        for (char one : (GET + STAY).toCharArray()) {
            client.send(String.valueOf(one));
        }
        assertEquals("small", client.receive().text());
        assertServed();
    }

    @ParameterizedTest
    @ValueSource(ints = {2, 100})
    void requestsThatComeAtOnceAreAnsweredInTheirOrder(int count) throws IOException {
        start();
        StringBuilder requests = new StringBuilder();
        for (int i = 0; i < count; i++) {
            requests.append(i % 2 == 0 ? GET : "GET /none HTTP/1.1\r\n").append(i < count - 1 ? STAY : END);
        }
        Wire client = client().send(requests.toString());
        for (int i = 0; i < count; i++) {
            assertEquals(i % 2 == 0 ? 200 : 404, client.receive().status());
        }
        assertEquals(0, client.rest().length);
        assertServed();
    }

    @Test
    void nothingBehindABodyOrAMalformedRequestIsTakenForARequest() throws IOException {
        start();
        for (String first : new String[] {GET + "Content-Length: 3\r\n" + STAY, GET + "Transfer-Encoding: chunked\r\n"
                + STAY, "POST /small HTTP/1.1\r\nContent-Length: 70\r\n" + STAY, "BAD\r\n\r\n"}) {
            Wire client = client().send(first + GET + END);
            assertTrue(client.receive().status() >= 400, first);
            assertEquals("", new String(client.rest()), first);
        }
        assertServed();
    }

    @Test
    void whoSendsALargeBodyBeforeItReadsSeesTheRefusal() throws IOException, InterruptedException {
        start();
        Wire client = client().send("POST /small HTTP/1.1\r\nContent-Length: 4000000\r\n" + STAY);
        client.awaitAnswer();  // the server has refused, the body is still to come
        client.send("x".repeat(4_000_000));
        assertEquals(405, client.receive().status());
        assertServed();
    }

    @Test
    void aBodyWithoutAnEndIsNotReadForEver() throws IOException, InterruptedException {
        start(LONG, LONG, LONG, SHORT);
        Wire client = client().send("POST /small HTTP/1.1\r\nContent-Length: 9223372036854775807\r\n" + STAY);
        assertEquals(405, client.receive().status());
        client.sendUntilClosed("x".repeat(1000));
        assertServed();
    }

    @ParameterizedTest
    @ValueSource(strings = {"", "G", GET, GET + "Host: localhost\r\n", "\u0016\u0003\u0001"})
    void aRequestThatIsNeverWholeHasItsTime(String beginning) throws IOException {
        start(SHORT, LONG, LONG, LONG);
        assertEquals(0, client().send(beginning).rest().length);
        assertServedInTheEnd();
    }

    @Test
    void furtherBytesGiveARequestNoFurtherTime() throws IOException, InterruptedException {
        start(SHORT, LONG, LONG, LONG);
        Wire client = client().send(GET);
        client.sendUntilClosed("X");
        assertServedInTheEnd();
    }

    @Test
    void aClientThatSaysNothingMoreHasItsTime() throws IOException {
        start(LONG, SHORT, LONG, LONG);
        Wire client = client().send(GET + STAY);
        assertEquals(200, client.receive().status());
        assertEquals(0, client.rest().length);
        assertServed();
    }

    @Test
    void aClientThatDoesNotReadHasItsTimeAndHoldsUpNobody() throws IOException, InterruptedException {
        start(LONG, LONG, SHORT, LONG);
        Wire client = client().send("GET /large HTTP/1.1\r\n" + END);
        assertEquals("HTTP/1.1 200", new String(client.receiveSome(12)));
        assertServed();
        client.sendUntilClosed("X");
        assertTrue(client.rest().length < 32 << 20);
    }

    @Test
    void aClientThatIsGoneBeforeItsAnswerHoldsUpNobody() throws IOException {
        start();
        for (int i = 0; i < MAKERS; i++) {
            client().send("GET /wait HTTP/1.1\r\n" + END).close();
        }
        released.countDown();
        assertServed();
    }

    /** With so little time an ordinary client of a busy machine may be cut off as well, and tries again. */
    private void assertServedInTheEnd() {
        boolean isServed = false;
        while (!isServed) {
            try {
                isServed = client().send(GET + END).receive().text().equals("small");
            } catch (IOException | AssertionError e) {
                assertEquals("", complaints.toString());
            }
        }
    }

    @ParameterizedTest
    @CsvSource({"127.0.0.2,''", "127.0.0.2,G", "127.0.0.2,GET /large HTTP/1.1", "127.0.0.1,''", "127.0.0.1,G"})
    void manyOfOneAddressKeepNobodyOut(String address, String beginning) throws IOException {
        start();
        Wire guest = client().send(GET + STAY);
        assertEquals(200, guest.receive().status());
        List<Wire> crowd = new ArrayList<>();
        for (int i = 0; i < 2 * WebServer.CONNECTIONS; i++) {
            crowd.add(client(address).send(beginning.startsWith("GET") ? beginning + "\r\n" + END : beginning));
        }
        assertServed();
        if (!address.equals("127.0.0.1")) {
            assertEquals(200, guest.send(GET + STAY).receive().status()); // the others made room for their own kind
        }
        assertEquals(0, beginning.startsWith("GET") ? 0 : crowd.get(0).rest().length);
    }

    @Test
    void oneThatIsAloneMayHaveAllConnections() throws IOException {
        start();
        List<Wire> proxy = new ArrayList<>();
        for (int i = 0; i < WebServer.CONNECTIONS; i++) {
            proxy.add(client().send(GET + STAY));
            assertEquals(200, proxy.get(i).receive().status());
        }
        for (Wire one : proxy) {
            assertEquals(200, one.send(GET + STAY).receive().status());
        }
    }

    @Test
    void requestsThatWaitForTheirAnswersMakeRoomToo() throws IOException {
        start();
        for (int i = 0; i < 2 * WebServer.CONNECTIONS; i++) {
            client("127.0.0.2").send("GET /wait HTTP/1.1\r\n" + STAY);
            try (Wire later = client().send("\n")) { // whose answer needs no thread of those that are busy
                assertEquals(400, later.receive().status());
            }
        }
        Wire guest = client().send(GET + END);
        released.countDown();
        assertEquals("small", guest.receive().text());
        assertServed();
    }
}
