package com.quorin.sysmgt.tavl.LumetraAgent.api;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertNotSame;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.fasterxml.jackson.databind.JsonNode;
import com.fasterxml.jackson.databind.ObjectMapper;
import com.quorin.sysmgt.tavl.LumetraAgent.http.WebContent;
import com.quorin.sysmgt.tavl.LumetraAgent.http.WebProblem;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.TrendView;
import com.quorin.sysmgt.tavl.LumetraAgent.watch.FakeView;
import java.io.IOException;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;

class JsonApiTest {

    private final FakeView view = new FakeView();
    private final JsonApi api = new JsonApi(view);

    private WebContent ask(String path, String query) throws WebProblem {
        return api.answer(JsonApi.PREFIX + path, query);
    }

    private JsonNode json(String path, String query) throws Exception {
        return new ObjectMapper().readTree(ask(path, query).bytes(false));
    }

    @Test
    void everyComponentIsAMemberAlsoWithoutAValue() throws Exception {
        JsonNode json = json("resources", null);
        assertEquals(14, json.get("agent").size());
        JsonNode first = json.get("resources").get(0);
        assertEquals(29, first.size());
        assertTrue(first.get("device").isNull());
        assertEquals("forecast", first.get("state").textValue());
        assertEquals(3, json.size());
        assertEquals("[{\"what\":" + new ObjectMapper().writeValueAsString(FakeView.HOSTILE)
                + ",\"why\":\"it cannot be read\",\"kind\":\"unreadable\",\"rule\":\"unclear\"}]",
                json.get("leftOut").toString());
        assertEquals(10, json("resources/7/trend", null).size());
        assertEquals(5, json("resources/7/culprits", null).size());
    }

    @Test
    void hostileNamesComeBackUnchanged() throws Exception {
        assertEquals(FakeView.HOSTILE, json("resources", null).at("/resources/1/instance").textValue());
        assertEquals(FakeView.HOSTILE,
                json("resources/7/culprits", null).at("/processes/0/name").textValue());
        assertEquals(FakeView.HOSTILE, json("events", "limit=1").at("/events/0/message").textValue());
    }

    @Test
    void noAnswerSteersTheTerminalThatItIsShownOn() throws Exception {
        for (String path : List.of("resources", "resources/7/culprits", "events", "event-groups")) {
            for (byte each : ask(path, null).bytes(false)) {
                assertTrue(each >= ' ' && each < 0x7f, path);
            }
        }
    }

    @Test
    void whatIsNoNumberBecomesNull() throws Exception {
        view.snapshot = FakeView.snapshot(List.of(FakeView.resource(1, "a", "", Double.NaN)));
        assertTrue(json("resources", null).at("/resources/0/value").isNull());
        view.trend = new TrendView(1, "history", null, null, null, null, Double.POSITIVE_INFINITY,
                new TrendView.Curve(new double[] {1, Double.NaN, 3}, new double[] {4, 5, Double.NaN}), null);
        JsonNode trend = json("resources/1/trend", null);
        assertTrue(trend.get("limit").isNull());
        assertEquals("{\"times\":[1.0],\"values\":[4.0]}", trend.get("samples").toString());
        assertTrue(trend.get("forecast").isNull());
    }

    @Test
    void gapsInTheRecentHistoryStayNull() throws Exception {
        Snapshot.Resource r = FakeView.resource(1, "a", "", 1.0);
        r.reading().recent().values().addAll(Arrays.asList(null, Double.NaN));
        view.snapshot = FakeView.snapshot(List.of(r));
        assertEquals("[1.0,2.0,null,null]",
                json("resources", null).at("/resources/0/recent/values").toString());
    }

    @Test
    void aLimitLimits() throws Exception {
        assertEquals(100, json("events", null).get("events").size());
        assertEquals(1000, json("events", "limit=1000").get("events").size());
        assertEquals(3, json("resources/7/events", "limit=3").get("events").size());
        assertEquals(100, json("event-groups", null).get("groups").size());
        assertEquals(3, json("resources/7/event-groups", "limit=3").get("groups").size());
        JsonNode group = json("event-groups", "limit=1").at("/groups/0");
        assertEquals("fatal", group.at("/event/type").textValue());
        assertEquals(3, group.get("times").intValue());
        assertEquals(700, group.get("since").intValue());
    }

    @ParameterizedTest
    @CsvSource({"events,limit=0", "events,limit=1001", "events,limit=-1", "events,limit=1x", "events,limit=",
        "events,limit=99999999999", "events,''", "events,limit=1&limit=2", "events,LIMIT=1", "events,x=1",
        "event-groups,limit=0",
        "events,limit=%31", "resources,limit=1", "resources/7/trend,limit=1", "resources/7/culprits,''",
        "resources/x/trend,", "resources//trend,", "resources/-1/trend,", "resources/12345678901/trend,",
        "resources/7%20/trend,", "resources/+7/events,", "resources/../events,"})
    void badRequests(String path, String query) {
        assertEquals(400, assertThrows(WebProblem.class, () -> ask(path, query)).status());
    }

    @ParameterizedTest
    @CsvSource({"'',", "resource,", "resources/,", "resources/7,", "resources/7/,", "resources/7/trend/,",
        "resources/7/Trend,", "events/,", "resources/8/trend,", "resources/8/culprits,",
        "resources/8/events,", "resources/8/event-groups,", "event-group,", "resources/2147483648/trend,",
        "resources/9999999999/events,", "%65vents,"})
    void unknownPaths(String path, String query) {
        assertEquals(404, assertThrows(WebProblem.class, () -> ask(path, query)).status());
    }

    @Test
    void bytesAreMadeOncePerSnapshot() throws Exception {
        WebContent first = ask("resources", null);
        assertSame(first, ask("resources", null));
        assertSame(ask("events", "limit=5"), ask("events", "limit=5"));
        assertSame(ask("event-groups", "limit=5"), ask("event-groups", "limit=5"));
        view.snapshot = FakeView.snapshot(new ArrayList<>());
        WebContent next = ask("resources", null);
        assertNotSame(first, next);
        assertNotEquals(first.etag(false), next.etag(false));
    }

    @Test
    void ofLargeAnswersOnlyTheNewestAreKept() throws Exception {
        String large = "x".repeat(1_500_000);
        view.events.add(0, FakeView.failure(1, large));
        WebContent small = ask("resources", null);
        WebContent first = ask("events", "limit=1");
        WebContent second = ask("events", "limit=2");
        assertSame(first, ask("events", "limit=1"));
        WebContent third = ask("events", "limit=3");
        assertSame(third, ask("events", "limit=3"));
        assertSame(first, ask("events", "limit=1"));
        assertNotSame(second, ask("events", "limit=2"));
        assertNotSame(small, ask("resources", null));
        view.events.set(0, FakeView.failure(1, large.repeat(4)));
        WebContent huge = ask("events", "limit=1");
        assertSame(huge, ask("events", "limit=1"));
    }

    @Test
    void aNewEventIsSeenAtOnce() throws Exception {
        WebContent before = ask("events", "limit=5");
        view.events.add(0, FakeView.failure(1, "new"));
        assertNotEquals(before.etag(false), ask("events", "limit=5").etag(false));
        assertEquals("new", json("events", "limit=5").at("/events/0/message").textValue());
    }

    @Test
    void anErrorIsJson() throws IOException {
        JsonNode json = new ObjectMapper().readTree(new WebProblem(404, "\"x\"").content().bytes(false));
        assertEquals("{\"error\":{\"status\":404,\"message\":\"\\\"x\\\"\"}}", json.toString());
    }
}
