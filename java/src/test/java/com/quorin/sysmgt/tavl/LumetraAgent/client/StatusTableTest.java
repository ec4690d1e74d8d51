package com.quorin.sysmgt.tavl.LumetraAgent.client;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorin.sysmgt.tavl.LumetraAgent.files.Culprit;
import com.quorin.sysmgt.tavl.LumetraAgent.files.CulpritReport;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.LeftOutKind;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.ResourceState;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import com.quorin.sysmgt.tavl.LumetraAgent.watch.FakeView;
import java.net.URI;
import java.time.Instant;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import org.junit.jupiter.api.Test;
import picocli.CommandLine.Help.Ansi;

class StatusTableTest {

    private static final URI PAGE = URI.create("http://127.0.0.1:8642/");
    private static final Terminal PIPE = new Terminal(false, Map.of("TERM", "xterm"));
    private static final Terminal COLOURED = new Terminal(true, Map.of("TERM", "xterm", "COLUMNS", "200"));

    private static Snapshot.Resource resource(ResourceState state, String instance, Double seconds, Long at) {
        return new Snapshot.Resource(
                new Snapshot.Identity(1, "PercentFreeSpaceUsed", instance, null, null, "counter", null),
                new Snapshot.Reading(12.345, null, 100.0, 137, new Snapshot.Recent(0, 1, new ArrayList<>())),
                new Snapshot.Standing(state, state.words(), null, null),
                new Snapshot.Forecast(null, seconds, at, seconds == null ? null : "Linear",
                        seconds == null ? null : 56.2, 1000L));
    }

    private static List<String> lines(Terminal terminal, Snapshot.Resource... resources) {
        return new StatusTable(terminal).lines(FakeView.snapshot(List.of(resources)), PAGE,
                Instant.ofEpochSecond(1000));
    }

    @Test
    void theLargestUsersAreThreeInOneLine() {
        List<Culprit> four = List.of(new Culprit("java", 12, 900), new Culprit("a\u001bb", 3, 20),
                new Culprit("sshd", 5, 7), new Culprit("cron", 6, 1));
        assertEquals(java.util.Optional.of(
                "Largest users of Files: java (pid 12) 900, a\\x1bb (pid 3) 20, sshd (pid 5) 7 descriptors"),
                StatusTable.largestUsers("Files", new CulpritReport(1, "descriptors", "descriptors", 5L, four)));
        assertEquals(java.util.Optional.empty(),
                StatusTable.largestUsers("Files", new CulpritReport(1, null, null, null, List.of())));
    }

    @Test
    void aRowSaysEverythingInWords() {
        List<String> lines = lines(PIPE, resource(ResourceState.FORECAST, "sda1 /data", 19200.0, 20200L),
                resource(ResourceState.COLLECTING, "", null, null));
        assertEquals("RESOURCE              INSTANCE      VALUE  STATE                    "
                + "EXHAUSTION           MODEL   NOTIFY AT", lines.get(0));
        assertEquals("PercentFreeSpaceUsed  sda1 /data  12.35 %  exhaustion forecast      "
                + "in about 5 h 20 min  Linear    56.20 %", lines.get(1));
        assertEquals("PercentFreeSpaceUsed              12.35 %  collecting (137 of 200)  "
                + "-                    -               -", lines.get(2));
        assertEquals("The agent leaves out 1 disk (unclear: 1). lumetra status --skipped lists them.", lines.get(3));
        assertEquals("Lumetra Agent 1.0 at http://127.0.0.1:8642/: 3 cycles, the newest 17 min ago, "
                + "a sample every 5 s.", lines.get(5));
    }

    private static Snapshot.Resource announced(ResourceState state, String record) {
        Snapshot.Resource plain = resource(state, "sda1 /data", 19200.0, 20200L);
        return new Snapshot.Resource(plain.identity(), plain.reading(), plain.standing(), plain.forecast(),
                new Snapshot.Track(6, 0, 1, 5, 3, null, record));
    }

    @Test
    void theTrackRecordStandsBelowWhatIsAnnounced() {
        String record = "announced 6 times in 14 days: reached 0, freed 1, levelled off 5";
        for (ResourceState state : ResourceState.values()) {
            List<String> lines = lines(PIPE, announced(state, record), resource(state, "last", null, null));
            boolean isAnnounced = state == ResourceState.FORECAST || state == ResourceState.PENDING;
            assertEquals(isAnnounced, lines.contains("  " + record), state.words());
            assertEquals(isAnnounced ? 3 : 2, lines.indexOf(lines.stream()
                    .filter(line -> line.contains("last")).findFirst().orElseThrow()), state.words());
        }
        assertEquals(5, lines(PIPE, announced(ResourceState.FORECAST, null)).size(), "nothing to say is no line");
    }

    @Test
    void theTrackRecordFitsATerminalAndMovesNoCursor() {
        Terminal narrow = new Terminal(true, Map.of("TERM", "dumb", "COLUMNS", "40"));
        String record = "announced\u001b[2J " + "long ".repeat(20) + "end";
        String line = lines(narrow, announced(ResourceState.PENDING, record)).get(2);
        assertEquals(40, line.length(), line);
        assertTrue(line.startsWith("  announced\\x1b[2J") && line.contains("…") && line.endsWith("end"), line);
        assertTrue(lines(PIPE, announced(ResourceState.PENDING, record)).get(2).endsWith("long long long end"));
    }

    @Test
    void whatTheAgentCannotDoForNowStandsBelowTheTable() {
        Snapshot.Agent agent = new Snapshot.Agent(
                "1.0", "/home", 1, 2, true, false, 3, 4L, 5.0, 200, 0, 24, "No \u001bdisks yet.", 1234);
        List<String> lines = new StatusTable(PIPE).lines(
                new Snapshot(agent, List.of()), PAGE, Instant.ofEpochSecond(1000));
        assertEquals(List.of("No resources yet.", "No \\x1bdisks yet.", ""), lines.subList(0, 3));
        assertTrue(lines.get(3).endsWith(", a sample every 5 s, resumed with 1234 samples."), lines.get(3));
    }

    @Test
    void whatIsLeftOutIsListedWithItsReasonAndMovesNoCursor() {
        assertEquals(List.of("The agent leaves out nothing."), StatusTable.skipped(List.of()));
        assertEquals(List.of("tmpfs /r\\x1b: a rule", "/dev/loop0 /snap: an image",
                "The agent leaves out 2 disks (rule mount /r\\x1b: 1; squashfs: 1)."),
                StatusTable.skipped(List.of(
                        new Snapshot.LeftOut("tmpfs /r\u001b", "a rule", LeftOutKind.PATTERN, "rule mount /r\u001b"),
                        new Snapshot.LeftOut("/dev/loop0 /snap", "an image", LeftOutKind.NATURE, "squashfs"))));
    }

    @Test
    void anExhaustionThatIsDueIsNow() {
        assertTrue(lines(PIPE, resource(ResourceState.FORECAST, "", 5.0, 999L)).get(1).contains("  now  "));
        assertTrue(lines(PIPE, resource(ResourceState.FORECAST, "", 90.0, null)).get(1)
                .contains("in about 90 s"));
    }

    @Test
    void whatIsAtItsLimitIsExhaustedNowAndOnlyWhatIsForecastNowCountsDown() {
        for (ResourceState state : ResourceState.values()) {
            boolean isForecast = state == ResourceState.FORECAST || state == ResourceState.PENDING;
            String expected = state == ResourceState.AT_LIMIT ? "now" : isForecast ? "in about 8 min" : "-";
            String line = lines(PIPE, resource(state, "", 480.0, 1480L)).get(1);
            assertTrue(line.contains("  " + expected + "  "), line);
        }
        String without = lines(PIPE, resource(ResourceState.AT_LIMIT, "", null, null)).get(1);
        assertTrue(without.contains("  now  "), without);
    }

    @Test
    void everyStateIsShownInWordsWithAndWithoutColour() {
        for (ResourceState state : ResourceState.values()) {
            String plain = lines(PIPE, resource(state, "", null, null)).get(1);
            String coloured = lines(COLOURED, resource(state, "", null, null)).get(1);
            assertTrue(plain.contains(state.words()), plain);
            assertEquals(plain, coloured.replaceAll("\u001b\\[[0-9;]*m", ""));
        }
        String urgent = lines(COLOURED, resource(ResourceState.AT_LIMIT, "", null, null)).get(1);
        assertTrue(urgent.contains("\u001b[1m\u001b[31mat its limit\u001b["), urgent);
    }

    @Test
    void colourIsLeftOutWhereItIsNotWanted() {
        for (Map<String, String> environment : List.of(Map.of("TERM", "dumb"), Map.<String, String>of(),
                Map.of("TERM", "xterm", "NO_COLOR", "1"))) {
            assertEquals(Ansi.OFF, new Terminal(true, environment).colours().ansi());
        }
        assertEquals(Ansi.ON, new Terminal(true, Map.of("TERM", "xterm", "NO_COLOR", "")).colours().ansi());
        assertEquals(Ansi.OFF, PIPE.colours().ansi());
    }

    @Test
    void linesFitATerminalAndAreWholeInAFile() {
        Terminal narrow = new Terminal(true, Map.of("TERM", "dumb", "COLUMNS", "120"));
        String instance = "start" + "é😀".repeat(100) + "end";
        Snapshot.Resource resource = resource(ResourceState.FORECAST, instance, 19200.0, 20200L);
        String line = lines(narrow, resource).get(1);
        assertEquals(120, line.codePointCount(0, line.length()), line);
        assertTrue(line.contains("start") && line.contains("…") && line.contains("end"), line);
        assertTrue(lines(PIPE, resource).get(1).contains(instance));
        assertEquals(80, new Terminal(true, Map.of("COLUMNS", "wide")).columns().getAsInt());
    }

    @Test
    void foreignTextCannotMoveTheCursor() {
        for (Terminal terminal : List.of(PIPE, new Terminal(true, Map.of()))) {
            String text = String.join("", lines(terminal,
                    resource(ResourceState.FORECAST, "a\u001b[2J\n\u202eb", null, null)));
            assertTrue(text.chars().allMatch(c -> c >= ' ' && c != 0x202e), text);
        }
    }

    @Test
    void withoutResourcesItSaysSo() {
        assertEquals("No resources yet.", lines(PIPE).get(0));
    }

    @Test
    void aTextIsShortenedInItsMiddle() {
        assertEquals("abc", StatusTable.shorten("abc", 3));
        assertEquals("a…d", StatusTable.shorten("abcd", 3));
        assertEquals("…", StatusTable.shorten("abcd", 1));
        assertEquals("😀…😀😀", StatusTable.shorten("😀😀😀😀😀", 4));
    }
}
