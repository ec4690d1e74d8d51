package com.quorin.sysmgt.tavl.LumetraAgent.http;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorin.sysmgt.tavl.LumetraAgent.Mutations;
import com.quorin.sysmgt.tavl.LumetraAgent.host.AgentRoutes;
import com.quorin.sysmgt.tavl.LumetraAgent.watch.FakeView;
import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.PrintStream;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.net.Socket;
import java.net.SocketException;
import java.nio.charset.StandardCharsets;
import java.util.List;
import java.util.regex.Pattern;
import org.junit.jupiter.api.Test;

/** Requests that are nearly right. */
class RequestMutationTest {

    private static final long SEED = 20261122;
    private static final String[] WORDS = {"%", "%2e%2e/", "..", "//", "?", "#", "&", "limit=", "9".repeat(20), "-1",
        " ", "\u0000", "\u00ff", ";", ",", "*/*", "text/plain;q=0.5", "application/openmetrics-text;version=1.0.0", "\t"};

    private static final Pattern MACHINE = Pattern.compile(
            "(?i)(localhost\\.?|box\\.?|[0-9.]+|\\[[0-9a-f:.]+])(:\\d{1,5})?");

    private final WebRoutes routes = AgentRoutes.of(new FakeView());

    private int status(String path, String query, String accept) {
        try {
            assertTrue(routes.answer(path, query, List.of(accept)).size() > 0);
            return 200;
        } catch (WebProblem problem) {
            return problem.status();
        }
    }

    @Test
    void anyPathQueryAndFormIsAnsweredOrRefused() {
        Mutations paths = Mutations.ofTexts(SEED, List.of("/", "/metrics", "/-/ready", "/api/v1/resources",
                "/api/v1/events", "/api/v1/resources/7/trend", "/api/v1/resources/1/events",
                "/api/v1/resources/7/culprits", "/api/v1/event-groups"), WORDS);
        Mutations queries = Mutations.ofTexts(SEED, List.of("limit=10", "limit=1000", ""), WORDS);
        Mutations forms = Mutations.ofTexts(SEED, List.of("*/*", "text/plain;version=0.0.4;q=0.3,*/*;q=0.1",
                "application/openmetrics-text;version=1.0.0;charset=utf-8;q=0.6"), WORDS);
        Mutations ids = Mutations.ofTexts(SEED, List.of("7", "1", "2147483647", "9999999999"), WORDS);
        int answered = 0;
        for (int i = Mutations.often(2000); i > 0; i--) {
            String path = switch (i % 4) {
                case 0 -> "/metrics";
                case 1 -> "/api/v1/resources/" + ids.nextText() + "/trend";
                case 2 -> "/api/v1/event-groups";
                default -> paths.nextText();
            };
            String query = i % 4 < 2 ? null : queries.nextText();
            int status = status(path, query, forms.nextText());
            assertTrue(status == 200 || status == 400 || status == 404, status + " for " + path + "?" + query);
            answered += status == 200 ? 1 : 0;
        }
        assertTrue(answered > 100, "so few were right: " + answered);
    }

    @Test
    void anyHostIsThisMachineOrIsNot() {
        HostCheck hosts = new HostCheck(List.of("box"));
        Mutations names = Mutations.ofTexts(SEED, List.of("localhost", "localhost:8642", "127.0.0.1:80", "[::1]:8642",
                "box.", "[fe80::1]"), ":", "[", "]", ".", "65536", "\u00e9", "\u0130");
        int allowed = 0;
        for (int i = Mutations.often(5000); i > 0; i--) {
            String name = names.nextText();
            boolean isAllowed = hosts.allows(List.of(name));
            assertTrue(!isAllowed || MACHINE.matcher(name).matches(), name);
            allowed += isAllowed ? 1 : 0;
        }
        assertTrue(allowed > 100, "so few were right: " + allowed);
    }

    /** What the server says to bytes behind which nothing more comes. */
    private static String send(WebServer server, byte[] request) throws IOException {
        try (Socket socket = new Socket(server.address().getAddress(), server.address().getPort())) {
            try {
                socket.getOutputStream().write(request);
                socket.shutdownOutput();
                return new String(socket.getInputStream().readAllBytes(), StandardCharsets.ISO_8859_1);
            } catch (SocketException e) {
                return ""; // it has closed the connection already
            }
        }
    }

    @Test
    void whateverIsSentTheServerAnswersOrHangsUpAndServesTheNext() throws IOException {
        String right = "GET /-/healthy HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
        Mutations requests = Mutations.ofTexts(SEED, List.of(right,
                "GET /api/v1/events?limit=9 HTTP/1.1\r\nHost: [::1]:1\r\nAccept-Encoding: br;q=0.5, gzip\r\n"
                        + "If-None-Match: W/\"x\", *\r\nContent-Length: 0\r\nConnection: close\r\n\r\n",
                "GET x:y HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n",
                "POST / HTTP/1.0\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\n\r\n"),
                "\r\n", "\n", "\r", ": ", "HTTP/1.1", "HTTP/9", "http://x/", "Content-Length: 5\r\n",
                "Content-Length: 99999999999999999999\r\n", "Content-Length: -1\r\n", "Expect: 100-continue\r\n",
                "\u0000", "\u00ff", "HEAD", "?", "#", "%zz", right);
        ByteArrayOutputStream complaints = new ByteArrayOutputStream();
        try (WebServer server = WebServer.start(new InetSocketAddress(InetAddress.getLoopbackAddress(), 0), routes,
                new HostCheck(List.of()), new PrintStream(complaints, true))) {
            int answered = 0;
            for (int i = Mutations.often(200); i > 0; i--) {
                byte[] request = requests.next();
                String answer = send(server, request);
                String sent = new String(request, StandardCharsets.ISO_8859_1);
                assertTrue(answer.isEmpty() || answer.matches("(?s)HTTP/1\\.1 ([1-4]\\d\\d|501) .*"),
                        answer + "\nto\n" + sent);
                answered += answer.isEmpty() ? 0 : 1;
            }
            assertTrue(answered > 50, "so few were answered: " + answered);
            assertTrue(send(server, right.getBytes(StandardCharsets.ISO_8859_1)).startsWith("HTTP/1.1 200 "));
            assertEquals("", complaints.toString());
        }
    }
}
