package com.quorin.sysmgt.tavl.LumetraAgent.metrics;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotSame;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorin.sysmgt.tavl.LumetraAgent.host.AgentRoutes;
import com.quorin.sysmgt.tavl.LumetraAgent.http.HostCheck;
import com.quorin.sysmgt.tavl.LumetraAgent.http.WebContent;
import com.quorin.sysmgt.tavl.LumetraAgent.http.WebProblem;
import com.quorin.sysmgt.tavl.LumetraAgent.http.WebRoutes;
import com.quorin.sysmgt.tavl.LumetraAgent.http.WebServer;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import com.quorin.sysmgt.tavl.LumetraAgent.watch.FakeView;
import java.io.ByteArrayOutputStream;
import java.io.PrintStream;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.net.URI;
import java.net.http.HttpClient;
import java.net.http.HttpRequest;
import java.net.http.HttpResponse;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

class MetricsPageTest {

    private static final String CLASSIC = "text/plain; version=0.0.4; charset=utf-8";
    private static final String OPEN = "application/openmetrics-text; version=1.0.0; charset=utf-8";

    private final FakeView view = new FakeView();
    private final WebRoutes routes = AgentRoutes.of(view);

    private WebContent metrics(String... accepted) throws WebProblem {
        return routes.answer("/metrics", null, List.of(accepted));
    }

    private static Snapshot.Agent agent(boolean running, boolean stale, Long newestCycleAt) {
        return new Snapshot.Agent("1.0", "/home", 1, 2, running, stale, 3, newestCycleAt, 5.0, 200, 0, 24, null, 0);
    }

    private String ready(Snapshot.Agent agent) {
        view.snapshot = new Snapshot(agent, List.of());
        try {
            return new String(routes.answer("/-/ready", null).bytes(false));
        } catch (WebProblem problem) {
            return problem.status() + " " + problem.getMessage();
        }
    }

    @ParameterizedTest
    @ValueSource(strings = {"application/openmetrics-text; version=1.0.0", "application/openmetrics-text",
        "APPLICATION/OpenMetrics-Text;version=\"1.0.0\"",
        "text/plain;q=0.5, application/openmetrics-text;q=0.5",
        "application/openmetrics-text;version=1.0.0,application/openmetrics-text;version=0.0.1;q=0.75,"
            + "text/plain;version=0.0.4;q=0.5,*/*;q=0.1"})
    void whoPrefersOpenMetricsGetsIt(String accepted) throws WebProblem {
        assertEquals(OPEN, metrics(accepted).type());
    }

    @ParameterizedTest
    @ValueSource(strings = {"", "*/*", "text/plain", "text/html,*/*;q=0.8", ",;,=", "q=1",
        "application/openmetrics-text;version=0.0.1", "application/openmetrics-text;version=2.0.0",
        "application/openmetrics-text;q=0", "application/openmetrics-text;q=0.1,text/plain",
        "application/openmetrics-text;q=x", "application/openmetrics-text;q=-1"})
    void everybodyElseGetsTheClassicForm(String accepted) throws WebProblem {
        assertEquals(CLASSIC, metrics(accepted).type());
    }

    @Test
    void severalHeadersCountAsOne() throws WebProblem {
        assertEquals(CLASSIC, metrics().type());
        assertEquals(OPEN, metrics("text/plain;q=0.2", "application/openmetrics-text;q=0.9").type());
    }

    @Test
    void theTextIsMadeOnceForEachFormAndSnapshot() throws WebProblem {
        WebContent classic = metrics();
        WebContent open = metrics(OPEN);
        assertSame(classic, metrics());
        assertSame(open, metrics(OPEN));
        view.snapshot = FakeView.snapshot(List.of());
        assertNotSame(classic, metrics());
        assertNotSame(open, metrics(OPEN));
        assertSame(metrics(), metrics());
    }

    @Test
    void anEventIsToldBeforeTheNextSnapshot() throws WebProblem {
        String fatal = "lumetra_events_total{resource=\"\",device=\"\",mountpoint=\"\",type=\"fatal\"} ";
        assertTrue(new String(metrics().bytes(false)).contains(fatal + "0\n"));
        view.counts.add(FakeView.failure(1, "m"));
        assertTrue(new String(metrics().bytes(false)).contains(fatal + "1\n"));
    }

    @Test
    void noPathTakesAQuery() {
        for (String path : List.of("/metrics", "/-/healthy", "/-/ready")) {
            assertEquals(400, assertThrows(WebProblem.class, () -> routes.answer(path, "a=b")).status());
        }
    }

    @Test
    void theProcessIsHealthyWhateverItsDataAre() throws WebProblem {
        view.snapshot = new Snapshot(agent(false, true, null), List.of());
        WebContent answer = routes.answer("/-/healthy", null);
        assertEquals("Lumetra Agent is healthy.\n", new String(answer.bytes(false)));
    }

    @Test
    void theAgentIsReadyWhileItsDataAreFresh() {
        assertEquals("Lumetra Agent is ready.\n", ready(agent(true, false, 4L)));
        assertEquals("503 The newest cycle is more than three periods old.", ready(agent(true, true, 4L)));
        assertEquals("503 The first cycle is not complete yet.", ready(agent(true, false, null)));
        assertEquals("503 The agent does not run.", ready(agent(false, true, 4L)));
    }

    @Test
    void theServerNegotiatesAndSaysSo() throws Exception {
        try (WebServer server = WebServer.start(
                new InetSocketAddress(InetAddress.getLoopbackAddress(), 0), routes,
                new HostCheck(List.of()), new PrintStream(new ByteArrayOutputStream()))) {
            URI uri = URI.create("http://127.0.0.1:" + server.address().getPort() + "/metrics");
            for (String type : List.of(OPEN, CLASSIC)) {
                HttpResponse<String> answer = HttpClient.newHttpClient().send(
                        HttpRequest.newBuilder(uri).header("Accept", type).build(),
                        HttpResponse.BodyHandlers.ofString());
                assertEquals(200, answer.statusCode());
                assertEquals(List.of(type), answer.headers().allValues("content-type"));
                assertEquals(List.of("Accept, Accept-Encoding"), answer.headers().allValues("vary"));
                assertEquals(type.equals(OPEN), answer.body().endsWith("# EOF\n"));
            }
        }
    }
}
