package com.quorin.sysmgt.tavl.LumetraAgent.client;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.TrendView;
import com.quorin.sysmgt.tavl.LumetraAgent.watch.FakeView;
import com.sun.net.httpserver.HttpServer;
import java.io.IOException;
import java.io.OutputStream;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.net.ServerSocket;
import java.net.Socket;
import java.net.URI;
import java.nio.charset.StandardCharsets;
import java.time.Instant;
import java.util.List;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;

class AgentClientTest {

    private static final String JSON = "application/json";
    private final FakeView view = new FakeView();
    private HttpServer server;
    private AgentClient client;
    private int status = 200;
    private String type = JSON;
    private byte[] body = {};

    @BeforeEach
    void start() throws IOException {
        server = HttpServer.create(new InetSocketAddress(InetAddress.getLoopbackAddress(), 0), 0);
        server.createContext("/", exchange -> {
            exchange.getResponseHeaders().set("Content-Type", type);
            exchange.getResponseHeaders().set("Location", "/elsewhere");
            exchange.sendResponseHeaders(status, body.length == 0 ? -1 : body.length);
            try (OutputStream out = exchange.getResponseBody()) {
                out.write(body);
            }
        });
        server.start();
        client = new AgentClient(URI.create("http://127.0.0.1:" + server.getAddress().getPort() + "/"));
    }

    @AfterEach
    void stop() {
        server.stop(0);
    }

    private String failure() {
        String text = assertThrows(Failed.class, client::overview).getMessage();
        assertEquals(1, text.lines().count());
        assertTrue(text.indexOf('\u001b') < 0, text);
        return text;
    }

    @Test
    void whatTheServerSendsIsReadBackTheSame() throws Exception {
        body = FakeView.json(view.snapshot);
        Snapshot snapshot = client.overview().snapshot();
        assertEquals(view.snapshot.agent(), snapshot.agent());
        assertEquals(view.snapshot.resources(), snapshot.resources());
        assertEquals(view.snapshot.leftOut(), snapshot.leftOut());
        body = FakeView.json(view.trend);
        TrendView trend = client.trend(7);
        assertArrayEquals(view.trend.samples().times(), trend.samples().times());
        assertArrayEquals(view.trend.forecast().values(), trend.forecast().values());
    }

    @Test
    void thePresentIsThatOfTheAgentsMachine() throws Exception {
        assertEquals(Instant.parse("1994-11-06T08:49:37Z"), presentWith("Date: Sun, 06 Nov 1994 08:49:37 GMT\r\n"));
        for (String none : List.of("", "Date: soon\r\n", "Date: Mon, 06 Nov 1994 08:49:37 GMT\r\n")) {
            Instant before = Instant.now();
            assertFalse(presentWith(none).isBefore(before), none);
        }
    }

    /** The present that an answer with this header tells. */
    private Instant presentWith(String header) throws Exception {
        byte[] json = FakeView.json(view.snapshot);
        try (ServerSocket listening = new ServerSocket(0, 1, InetAddress.getLoopbackAddress())) {
            Thread thread = new Thread(() -> {
                try (Socket socket = listening.accept()) {
                    socket.getInputStream().read();
                    socket.getOutputStream().write(("HTTP/1.1 200 OK\r\nContent-Type: " + JSON + "\r\n" + header
                            + "Content-Length: " + json.length + "\r\n\r\n").getBytes(StandardCharsets.US_ASCII));
                    socket.getOutputStream().write(json);
                    socket.getInputStream().readAllBytes(); // until the client has gone
                } catch (IOException e) {
                    // the client misses its answer
                }
            });
            thread.setDaemon(true);
            thread.start();
            return new AgentClient(URI.create("http://127.0.0.1:" + listening.getLocalPort() + "/")).overview().now();
        }
    }

    @Test
    void membersThatALaterAgentAddsAreNoTrouble() throws Exception {
        body = new String(FakeView.json(FakeView.snapshot(List.of())), StandardCharsets.UTF_8)
                .replaceFirst("\\{", "{\"more\":[1],").getBytes(StandardCharsets.UTF_8);
        assertEquals(0, client.overview().snapshot().resources().size());
    }

    @ParameterizedTest
    @CsvSource(delimiter = '|', value = {
        "200 | text/html | <html> | its answer is no JSON",
        "200 | application/json | <html> | its answer is no JSON object",
        "200 | application/json | [] | its answer is no JSON object",
        "200 | application/json | {} | its answer is not the list of resources",
        "200 | application/json | {} {} | ",
        "200 | application/json | {\"agent\":{},\"resources\":[]} | its JSON has another form",
        "200 | application/json | {\"agent\":1,\"resources\":[null]} | its JSON has another form",
        "200 | application/json | {\"resources\":{\"a\":1}} | its JSON has another form",
        "404 | text/html | <h1>404</h1> | it answers with status 404",
        "404 | application/json | {\"error\":{\"status\":404,\"message\":\"no \\u001b[2J\"}} | "
            + "refuses: no \\x1b[2J",
        "301 | text/html | x | it answers with status 301",
        "500 | application/json | {\"error\":1} | it answers with status 500"})
    void whatIsNoAgentIsToldApart(int sent, String kind, String text, String expected) {
        status = sent;
        type = kind;
        body = text.getBytes(StandardCharsets.UTF_8);
        String told = failure();
        assertTrue(told.contains("http://127.0.0.1:"), told);
        assertTrue(expected == null || told.endsWith(expected), told);
    }

    @Test
    void aChartWhoseCurvesAreUnequalIsRefused() {
        body = ("{\"id\":1,\"samples\":{\"times\":[1],\"values\":[]},\"forecast\":null}").getBytes();
        assertTrue(assertThrows(Failed.class, () -> client.trend(1)).getMessage()
                .endsWith("its answer is not a chart"));
    }

    @Test
    void deepNestingIsNoTrouble() {
        body = ("{\"a\":" + "[".repeat(200000)).getBytes();
        assertTrue(failure().endsWith("its answer is no JSON object"));
    }

    @Test
    void whereNobodyListensTheWayToStartIsTold() {
        server.stop(0);
        assertTrue(failure().matches("no agent answers at http://127.0.0.1:\\d+/: Connection refused; "
                + "start it with ./run-agent"), failure());
    }

    @Test
    void aServerThatIsSilentIsGivenUp() throws IOException {
        try (ServerSocket silent = new ServerSocket(0, 5, InetAddress.getLoopbackAddress())) {
            ask(silent, 1, 3600);
            assertTrue(failure().contains("no answer within 1 s"));
        }
    }

    /** A server that says just this to every caller, and then waits for the caller's end or hangs up. */
    private ServerSocket saying(String words, boolean hangsUp) throws IOException {
        ServerSocket talker = new ServerSocket(0, 5, InetAddress.getLoopbackAddress());
        Thread thread = new Thread(() -> {
            while (!talker.isClosed()) {
                try (Socket caller = talker.accept()) {
                    caller.getInputStream().readNBytes(16);
                    caller.getOutputStream().write(words.getBytes(StandardCharsets.UTF_8));
                    while (!hangsUp && caller.getInputStream().read() >= 0) {
                        // the rest of the question, and its end
                    }
                } catch (IOException e) {
                    // a caller that is gone, or the end of the test
                }
            }
        });
        thread.setDaemon(true);
        thread.start();
        ask(talker, 3600, 3600);
        return talker;
    }

    private void ask(ServerSocket listening, int patience, int wholePatience) {
        client = new AgentClient(
                URI.create("http://127.0.0.1:" + listening.getLocalPort() + "/"), patience, wholePatience);
    }

    @Test
    void aServerOfAnotherProtocolIsToldApart() throws IOException {
        try (ServerSocket other = saying("SSH-2.0-OpenSSH_9.2\r\n", false)) {
            assertTrue(failure().endsWith("it does not speak HTTP"), "on port " + other.getLocalPort());
        }
    }

    @Test
    void aServerThatHangsUpIsNone() throws IOException {
        try (ServerSocket shy = saying("", true)) {
            String told = failure();
            assertTrue(told.startsWith("no agent answers at http://127.0.0.1:" + shy.getLocalPort() + "/: "), told);
        }
    }

    @ParameterizedTest
    @CsvSource({"3600, 2, 2", "1, 3600, 1"})
    void anAnswerThatStopsInItsMiddleIsGivenUp(int patience, int wholePatience, int told) throws IOException {
        try (ServerSocket slow = saying(
                "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 99\r\n\r\n{", false)) {
            ask(slow, patience, wholePatience);
            String text = failure();
            while (text.contains("no answer within")) { // not even its beginning came in time
                text = failure();
            }
            assertTrue(text.endsWith("its answer has no end after " + told + " s"), text);
        }
    }

    @Test
    void aNameThatNoMachineHasIsToldAsSuch() {
        client = new AgentClient(URI.create("http://no-such-name.invalid/"));
        assertTrue(failure().contains("/: no machine has this name; "));
    }
}
