package com.quorin.sysmgt.tavl.LumetraAgent.events;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorin.sysmgt.tavl.LumetraAgent.files.Culprit;
import com.quorin.sysmgt.tavl.LumetraAgent.files.EventFile;
import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.stream.Collectors;
import java.util.stream.IntStream;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class EventHistoryTest {

    @TempDir
    Path directory;

    @BeforeEach
    void catchTheLines() {
        AgentEvents.reset(new PrintStream(new ByteArrayOutputStream(), true, StandardCharsets.UTF_8));
    }

    @AfterEach
    void giveTheLinesBack() {
        AgentEvents.reset(System.out);
    }

    private Path file() {
        return directory.resolve("events.jsonl");
    }

    private static String line(int time) {
        return "{\"time\":\"t\",\"epochSeconds\":" + time + ",\"type\":\"fatal\",\"message\":\"m\"}\n";
    }

    private static String lines(int from, int to) {
        return IntStream.range(from, to).mapToObj(EventHistoryTest::line).collect(Collectors.joining());
    }

    private static List<Integer> times(List<Event> events) {
        return events.stream().map(e -> (int) e.at().epochSeconds()).toList();
    }

    @Test
    void bothGenerationsAreReadNewestFirst() throws IOException {
        Files.writeString(directory.resolve("events.jsonl.1"), lines(0, 3));
        Files.writeString(file(), lines(3, 5));
        assertEquals(List.of(4, 3, 2, 1, 0), times(EventHistory.of(file()).newest(100)));
        assertEquals(List.of(4, 3), times(EventHistory.of(file()).newest(2)));
        assertEquals(List.of(), EventHistory.of(file()).newest(-1));
    }

    @Test
    void aThousandAreKept() throws IOException {
        Files.writeString(file(), lines(0, 1500));
        EventHistory history = EventHistory.of(file());
        assertEquals(1000, history.newest(5000).size());
        history.accept(EventLine.read(line(9999)).get());
        assertEquals(1000, history.newest(5000).size());
        assertEquals(9999, times(history.newest(1)).get(0));
    }

    @Test
    void onlyTheEndOfALargeFileIsRead() throws IOException {
        String wide = line(1).replace("\"m\"", '"' + "x".repeat(10_000) + '"');
        Files.writeString(file(), wide.repeat(300) + line(2));
        assertEquals(1024 * 1024 / wide.length() + 1, EventHistory.of(file()).newest(1000).size());
    }

    @Test
    void whatIsNoEventIsPassedOver() throws IOException {
        Files.writeString(file(), "\nrubbish\n[1]\n7\n{}\n"
                + "{\"time\":1,\"epochSeconds\":1,\"type\":\"fatal\"}\n"
                + "{\"time\":\"t\",\"epochSeconds\":1.5,\"type\":\"fatal\"}\n"
                + "{\"time\":\"t\",\"epochSeconds\":1,\"type\":\"other\"}\n" + "[".repeat(50_000) + "\n"
                + line(7) + "{\"time\":\"t\",\"epochSeconds\":8,\"ty");
        assertEquals(List.of(7), times(EventHistory.of(file()).newest(100)));
        assertEquals(List.of(), EventHistory.of(directory).newest(100));
        assertEquals(List.of(), EventHistory.of(directory.resolve("none")).newest(100));
    }

    private Event only(String line) throws IOException {
        Files.writeString(file(), line + "\n");
        return EventHistory.of(file()).newest(1).get(0);
    }

    @Test
    void anEventOfAnOlderVersionIsWithoutWhatItLacks() throws IOException {
        Event.Moment at = new Event.Moment("t", 8);
        assertEquals(new Event.Failure(at, null),
                only("{\"time\":\"t\",\"epochSeconds\":8,\"type\":\"fatal\",\"limit\":\"x\",\"more\":1}"));
        assertEquals(new Event.LimitReached(at, Event.Type.INNER_TOLERANCE, Event.Subject.NONE, Double.NaN),
                only("{\"time\":\"t\",\"epochSeconds\":8,\"type\":\"innerTolerance\",\"limit\":\"x\"}"));
        assertEquals(new Event.Exhaustion(at, new Event.Subject("Swap", null), Double.NaN, null,
                        List.of(new Culprit("a", 1, 2)), null, Event.Background.NONE),
                only("{\"time\":\"t\",\"epochSeconds\":8,\"type\":\"exhaustion\",\"resource\":\"Swap\",\"instance\":3,"
                        + "\"culprits\":[{\"name\":\"a\",\"pid\":1,\"value\":2},{\"name\":7},5]}"));
    }

    @Test
    void eventsArriveAsTheyHappen() {
        EventHistory history = new EventHistory();
        AgentEvents.tellTo(history);
        AgentEvents.sendUpperToleranceEvent("Space", "/dev/vda /", 100.0);
        AgentEvents.sendEvent("soon", 5.0, "Swap", "_Total", " a(1)2");
        AgentEvents.sendEvent("soon", 5.0, "Swap", "Null", null);
        AgentEvents.sendEvent("fatal", 0.0, "Swap", "Null", null);
        assertEquals(4, history.newest(10).size());
        assertEquals(1, history.newestOf("Space", "/dev/vda /", 10).size());
        assertEquals(0, history.newestOf("Space", "/dev/vdb /", 10).size());
        assertEquals(1, history.newestOf("Swap", "_Total", 10).size());
        assertEquals(1, history.newestOf("Swap", "Null", 10).size());
        assertEquals(0, history.newestOf("null", "Null", 10).size());
        assertEquals(List.of(new Culprit("a", 1, 2)),
                ((Event.Exhaustion) history.newestOf("Swap", "_Total", 10).get(0)).culprits());
    }

    @Test
    void whatIsToldIsWhatIsRecorded() throws IOException {
        EventHistory told = new EventHistory();
        AgentEvents.recordTo(new EventFile(file(), EventFile.TEN_MEGABYTES));
        AgentEvents.tellTo(told);
        AgentEvents.sendEvent("0 day(s)", 90.5, "Sw\u00e4p\u2028\ud83d\ude00", "_Total", " java(12)210");
        AgentEvents.sendEvent("fatal", 0.0, "no", "Null", null);
        assertEquals(told.newest(10).toString(), EventHistory.of(file()).newest(10).toString());
    }

    @Test
    void aListenerThatFailsChangesNothing() throws IOException {
        AgentEvents.recordTo(new EventFile(file(), EventFile.TEN_MEGABYTES));
        AgentEvents.tellTo(event -> {
            throw new IllegalStateException("no");
        });
        EventHistory other = new EventHistory();
        AgentEvents.tellTo(other);
        assertTrue(AgentEvents.sendEvent("soon", 5.0, "Swap", "_Total", ""));
        assertEquals(1, other.newest(10).size());
        assertEquals(1, Files.readAllLines(file()).size());
    }

    @Test
    void onlyTheEventsOfThisProcessAreCounted() throws IOException {
        Files.writeString(file(), lines(0, 5));
        EventHistory history = EventHistory.of(file());
        assertEquals(0, history.counts().told());
        history.accept(EventLine.read(line(9)).get());
        assertEquals(1, history.counts().fatal());
    }
}
