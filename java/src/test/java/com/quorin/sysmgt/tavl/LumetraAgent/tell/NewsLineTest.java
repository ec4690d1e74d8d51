package com.quorin.sysmgt.tavl.LumetraAgent.tell;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.fasterxml.jackson.databind.JsonNode;
import com.quorin.sysmgt.tavl.LumetraAgent.events.Event;
import com.quorin.sysmgt.tavl.LumetraAgent.files.Culprit;
import com.quorin.sysmgt.tavl.LumetraAgent.score.Episode;
import com.quorin.sysmgt.tavl.LumetraAgent.score.Outcome;
import com.quorin.sysmgt.tavl.LumetraAgent.text.AsciiJson;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.time.Instant;
import java.util.List;
import java.util.Map;
import org.junit.jupiter.api.Test;

class NewsLineTest {

    private static final Event.Moment AT = Event.Moment.of(Instant.ofEpochSecond(1_700_000_000L));

    private static NewsLine exhaustion(String name, String instance) {
        List<Culprit> culprits = List.of(new Culprit("a", 1, 40), new Culprit("b", 2, 30));
        return new NewsLine(News.of(new Event.Exhaustion(AT, new Event.Subject(name, instance), 8100.4, "words",
                culprits, " a(1)40 b(2)30", new Event.Background("announced once", 9)), 12), "box",
                "http://127.0.0.1:8642/");
    }

    private static JsonNode json(NewsLine line) throws IOException {
        String text = new String(line.json(), StandardCharsets.US_ASCII);
        assertTrue(text.endsWith("}\n") && text.indexOf('\n') == text.length() - 1, text);
        assertTrue(text.chars().allMatch(c -> c == '\n' || c >= ' ' && c < 127), text);
        return AsciiJson.MAPPER.readTree(text);
    }

    @Test
    void anExhaustionHasItsMembersAndThoseOfTheMachine() throws IOException {
        JsonNode line = json(exhaustion("Space", "/dev/a /data"));
        assertEquals("exhaustion", line.path("type").textValue());
        assertEquals(8100.4, line.path("secondsToExhaustion").doubleValue());
        assertEquals("a", line.path("culprits").path(0).path("name").textValue());
        assertEquals("announced once", line.path("trackRecord").textValue());
        assertEquals("box", line.path("host").textValue());
        assertEquals("http://127.0.0.1:8642/#/resource/12", line.path("page").textValue());
        assertEquals("box: Space [/dev/a /data] will be exhausted in 2 h 15 min", line.path("text").textValue());
        assertFalse(line.path("reminder").booleanValue());
        assertTrue(line.path("outcome").isNull());
        Map<String, String> environment = exhaustion("Space", "/dev/a /data").environment();
        assertEquals(Map.ofEntries(Map.entry("PATH", "/usr/sbin:/usr/bin:/sbin:/bin"), Map.entry("LC_ALL", "C.UTF-8"),
                Map.entry("LUMETRA_EVENT", "exhaustion"),
                Map.entry("LUMETRA_TEXT", "box: Space [/dev/a /data] will be exhausted in 2 h 15 min"),
                Map.entry("LUMETRA_TIME", AT.text()), Map.entry("LUMETRA_HOST", "box"),
                Map.entry("LUMETRA_PAGE", "http://127.0.0.1:8642/#/resource/12"),
                Map.entry("LUMETRA_RESOURCE", "Space"),
                Map.entry("LUMETRA_INSTANCE", "/dev/a /data"), Map.entry("LUMETRA_SECONDS_TO_EXHAUSTION", "8100"),
                Map.entry("LUMETRA_TIME_TO_EXHAUSTION", "2 h 15 min"), Map.entry("LUMETRA_LIMIT", ""),
                Map.entry("LUMETRA_OUTCOME", ""), Map.entry("LUMETRA_REMINDER", ""),
                Map.entry("LUMETRA_CULPRITS", "a (pid 1) 40, b (pid 2) 30"),
                Map.entry("LUMETRA_TRACK_RECORD", "announced once"), Map.entry("LUMETRA_MESSAGE", "")), environment);
    }

    @Test
    void anEndHasItsOutcome() throws IOException {
        NewsLine end = new NewsLine(News.end(new Event.Subject("Swap", ""), new Episode(0, 5, 6, 1_700_000_000L,
                Outcome.LEVELLED_OFF, 0, 0, 0, 0, List.of()), "announced once", null), "box", "");
        JsonNode line = json(end);
        assertEquals("ended", line.path("type").textValue());
        assertEquals("levelledOff", line.path("outcome").textValue());
        assertEquals(AT.text(), line.path("time").textValue());
        assertEquals("announced once", line.path("trackRecord").textValue());
        assertTrue(line.path("page").isNull() && line.path("secondsToExhaustion").isNull());
        assertEquals("ended", end.environment().get("LUMETRA_EVENT"));
        assertEquals("levelledOff", end.environment().get("LUMETRA_OUTCOME"));
        assertEquals("box: Swap no longer runs out: it has levelled off", end.environment().get("LUMETRA_TEXT"));
    }

    @Test
    void aFailureAndALimitHaveTheirs() throws IOException {
        NewsLine failure = new NewsLine(News.of(new Event.Failure(AT, "no\nroom"), null), "", "http://a/");
        assertEquals("no\nroom", json(failure).path("message").textValue());
        assertEquals("no\\nroom", failure.environment().get("LUMETRA_TEXT"));
        assertEquals("no\\nroom", failure.environment().get("LUMETRA_MESSAGE"));
        assertEquals("http://a/", failure.environment().get("LUMETRA_PAGE"));
        NewsLine limit = new NewsLine(News.of(new Event.LimitReached(AT, Event.Type.UPPER_TOLERANCE,
                new Event.Subject("Swap", null), 97.5), 3), "", "");
        assertEquals("97.5", limit.environment().get("LUMETRA_LIMIT"));
        assertEquals("", limit.environment().get("LUMETRA_PAGE"));
    }

    @Test
    void whatIsNoNumberIsNone() throws IOException {
        NewsLine line = new NewsLine(News.of(new Event.Exhaustion(AT, new Event.Subject(null, null), Double.NaN, null,
                List.of(), null, Event.Background.NONE), null), "box", "");
        assertEquals("", line.environment().get("LUMETRA_SECONDS_TO_EXHAUSTION"));
        assertTrue(json(line).path("secondsToExhaustion").isNull());
    }

    @Test
    void hostileNamesAreOnlyText() throws IOException {
        String[] names = {"$(reboot)", "`reboot`; \"'\\", "a\nSubject: b\r\u0000", "\u001b[2J\u202e\u2028",
            "\ud800x\udc00", "x".repeat(4096), "\ud83d\ude00".repeat(2048), ""};
        for (String name : names) {
            NewsLine line = exhaustion(name, name);
            assertEquals(name.replace('\ud800', '?').replace('\udc00', '?').length(),
                    json(line).path("resource").textValue().length(), name);
            line.environment().values().forEach(value -> {
                assertTrue(value.codePointCount(0, value.length()) <= NewsLine.MOST_CHARACTERS, value);
                assertEquals(value, Words.printable(value));
                assertTrue(value.chars().noneMatch(c -> c < ' '), value);
            });
        }
        assertEquals("$(reboot)", exhaustion("$(reboot)", "").environment().get("LUMETRA_RESOURCE"));
        assertEquals("\ud83d\ude00".repeat(997) + "...",
                exhaustion("\ud83d\ude00".repeat(2048), "").environment().get("LUMETRA_RESOURCE"));
    }
}
