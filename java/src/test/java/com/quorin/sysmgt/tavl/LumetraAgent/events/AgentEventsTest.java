package com.quorin.sysmgt.tavl.LumetraAgent.events;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorin.sysmgt.tavl.LumetraAgent.ExecPrediction;
import com.quorin.sysmgt.tavl.LumetraAgent.LumetraSubagent;
import com.quorin.sysmgt.tavl.LumetraAgent.files.EventFile;
import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.PrintStream;
import java.lang.invoke.MethodType;
import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Clock;
import java.time.Instant;
import java.time.OffsetDateTime;
import java.time.ZoneOffset;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class AgentEventsTest {

    private static final String STAMP = "^\\{\"time\":\"[^\"]*\",\"epochSeconds\":\\d+,";

    private static final Instant NOW = Instant.parse("2026-03-29T00:59:59.750Z");

    @TempDir
    private Path directory;

    private final ByteArrayOutputStream output = new ByteArrayOutputStream();

    @BeforeEach
    void catchTheLines() {
        AgentEvents.reset(new PrintStream(output, true, StandardCharsets.UTF_8), Clock.fixed(NOW, ZoneOffset.UTC));
    }

    @AfterEach
    void giveTheLinesBack() {
        AgentEvents.reset(System.out);
    }

    /** The lines printed so far, each without its date and time. */
    private List<String> lines() {
        return output.toString(StandardCharsets.UTF_8).lines().map(l -> l.substring(21)).toList();
    }

    @Test
    void theSixMethodsHaveTheSignaturesThatTheLibraryLooksUp() {
        Map<String, String> wanted = Map.of(
                "sendEvent", "(Ljava/lang/String;DLjava/lang/String;Ljava/lang/String;Ljava/lang/String;)Z",
                "sendUpperToleranceEvent", "(Ljava/lang/String;Ljava/lang/String;D)Z",
                "sendInnerToleranceEvent", "(Ljava/lang/String;Ljava/lang/String;D)Z",
                "getOs_support", "()I", "getPrev_time", "()J", "getPrev_tte", "()D");
        wanted.forEach((name, signature) -> {
            List<String> found = new ArrayList<>();
            for (Method m : AgentEvents.class.getDeclaredMethods()) {
                if (m.getName().equals(name) && Modifier.isStatic(m.getModifiers())
                        && Modifier.isPublic(m.getModifiers())) {
                    found.add(MethodType.methodType(m.getReturnType(), m.getParameterTypes())
                            .toMethodDescriptorString());
                }
            }
            assertEquals(List.of(signature), found, name);
        });
    }

    @Test
    void theNativeMethodsHaveTheNamesThatTheLibraryExports() throws NoSuchMethodException {
        Method main = ExecPrediction.class.getDeclaredMethod(
                "research_main", Object.class, int.class, String.class, String.class);
        Method stop = LumetraSubagent.class.getDeclaredMethod("javaThreadSyncPleaseStop");
        for (Method m : List.of(main, stop)) {
            assertEquals(int.class, m.getReturnType());
            assertEquals(Modifier.PUBLIC | Modifier.NATIVE, m.getModifiers());
        }
        assertEquals("com.quorin.sysmgt.tavl.LumetraAgent", ExecPrediction.class.getPackageName());
    }

    @Test
    void aForecastIsOneLineWithItsCulprits() {
        assertTrue(AgentEvents.sendEvent(
                "0 day(s) 3 hr(s) 0 min(s) and 0 sec(s)", 10800.4, "Swap", "_Total", "java 12"));
        assertEquals(
                List.of("FORECAST  Swap [_Total] will be exhausted in 3 h; largest users: java 12"), lines());
    }

    @Test
    void culpritsAreShownAsNamesWithTheirNumbersTheFirstThreeOnly() {
        AgentEvents.sendEvent("soon", 90.0, "Swap", "Null", " java(1234)210 sshd(901)3");
        AgentEvents.sendEvent("soon", 7.2, "Swap", "_Total", " a(1)9 b(2)8 c(3)7 d(4)6 e(5)5");
        assertEquals(List.of(
                "FORECAST  Swap will be exhausted in 90 s; "
                        + "largest users: java (pid 1234) 210, sshd (pid 901) 3",
                "FORECAST  Swap [_Total] will be exhausted in 7 s; "
                        + "largest users: a (pid 1) 9, b (pid 2) 8, c (pid 3) 7 and 2 more"),
                lines());
    }

    @Test
    void aTimeThatIsNoneIsShownInTheLibrarysWords() {
        AgentEvents.sendEvent("- 0 day(s)", -5.0, "Swap", "_Total", null);
        AgentEvents.sendEvent(null, Double.NaN, "Swap", "_Total", null);
        assertEquals(List.of("FORECAST  Swap [_Total] will be exhausted in - 0 day(s)",
                "FORECAST  Swap [_Total] will be exhausted in an unknown time"), lines());
    }

    @Test
    void aFailureLooksLikeOneAndShowsItsText() {
        assertTrue(AgentEvents.sendEvent("fatal", 0.0, "Call To predictor Failed", "Null", null));
        assertEquals(List.of("FATAL     Call To predictor Failed"), lines());
        assertEquals(1, AgentEvents.fatalCount());
    }

    @Test
    void aToleranceEventIsOneLine() {
        assertTrue(AgentEvents.sendUpperToleranceEvent("Space", "/dev/vda /", 100.0));
        assertTrue(AgentEvents.sendInnerToleranceEvent("Swap", "Null", 0.0));
        assertEquals(List.of("LIMIT     Space [/dev/vda /] has reached its limit of 100.00 %",
                "LIMIT     Swap has reached its limit of 0.00 %"), lines());
    }

    @Test
    void absentTextsAreShownAsAbsent() {
        assertTrue(AgentEvents.sendEvent(null, Double.NaN, null, null, null));
        assertTrue(AgentEvents.sendUpperToleranceEvent(null, null, Double.POSITIVE_INFINITY));
        assertTrue(AgentEvents.sendEvent("fatal", 0.0, null, null, null));
        assertEquals(3, lines().size());
    }

    @Test
    void aHostileNameStaysOnItsLine() {
        AgentEvents.sendEvent("%s%n", -1.0, "a\nFATAL", "\u001b[2J%d", "x\r");
        assertEquals(List.of("FORECAST  a\\nFATAL [\\x1b[2J%d] will be exhausted in %s%n; "
                + "largest users: x\\r"), lines());
    }

    @Test
    void thePreviousForecastIsKept() {
        assertEquals(0L, AgentEvents.getPrev_time());
        assertEquals(0.0, AgentEvents.getPrev_tte());
        AgentEvents.sendEvent("soon", 77.5, "Swap", "_Total", "");
        assertEquals(NOW.getEpochSecond(), AgentEvents.getPrev_time());
        assertEquals(77.5, AgentEvents.getPrev_tte());
    }

    @Test
    void failuresAndToleranceEventsAreNoForecasts() {
        AgentEvents.sendEvent("fatal", 0.0, "no", "Null", null);
        AgentEvents.sendUpperToleranceEvent("Swap", "Null", 100.0);
        assertEquals(0L, AgentEvents.getPrev_time());
    }

    @Test
    void anEventThatCannotBeShownIsRefusedAndDoesNotThrow() {
        AgentEvents.reset(new PrintStream(output) {
            @Override
            public void println(String line) {
                throw new IllegalStateException("no output");
            }
        });
        assertFalse(AgentEvents.sendEvent("soon", 5.0, "Swap", "_Total", ""));
        assertFalse(AgentEvents.sendUpperToleranceEvent("Swap", "_Total", 100.0));
        assertFalse(AgentEvents.sendInnerToleranceEvent("Swap", "_Total", 100.0));
        assertEquals(0L, AgentEvents.getPrev_time());
    }

    /** Sends events into a file and returns its lines, each without its time. */
    private List<String> recorded(Runnable events) throws IOException {
        Path file = directory.resolve("events.jsonl");
        AgentEvents.recordTo(new EventFile(file, EventFile.TEN_MEGABYTES));
        events.run();
        return Files.readAllLines(file).stream().map(line -> line.replaceFirst(STAMP, "{")).toList();
    }

    @Test
    void everyKindOfEventIsRecordedAsOneLine() throws IOException {
        List<String> lines = recorded(() -> {
            AgentEvents.sendEvent("0 day(s)", 90.5, "Swap", "_Total", " java(12)210 sshd(9)3");
            AgentEvents.sendUpperToleranceEvent("Space", "/dev/vda /", 100.0);
            AgentEvents.sendInnerToleranceEvent("Space", "Null", 0.0);
            AgentEvents.sendEvent("fatal", 0.0, "Call To predictor Failed", "Null", null);
        });
        assertEquals(List.of(
                "{\"type\":\"exhaustion\",\"resource\":\"Swap\",\"instance\":\"_Total\","
                        + "\"secondsToExhaustion\":90.5,\"timeToExhaustion\":\"0 day(s)\",\"limit\":null,"
                        + "\"culprits\":[{\"name\":\"java\",\"pid\":12,\"value\":210},"
                        + "{\"name\":\"sshd\",\"pid\":9,\"value\":3}],"
                        + "\"culpritText\":\" java(12)210 sshd(9)3\",\"trackRecord\":null,"
                        + "\"episodeSince\":null,\"message\":null}",
                "{\"type\":\"upperTolerance\",\"resource\":\"Space\",\"instance\":\"/dev/vda /\","
                        + "\"secondsToExhaustion\":null,\"timeToExhaustion\":null,\"limit\":100.0,"
                        + "\"culprits\":[],\"culpritText\":null,\"trackRecord\":null,"
                        + "\"episodeSince\":null,\"message\":null}",
                "{\"type\":\"innerTolerance\",\"resource\":\"Space\",\"instance\":null,"
                        + "\"secondsToExhaustion\":null,\"timeToExhaustion\":null,\"limit\":0.0,"
                        + "\"culprits\":[],\"culpritText\":null,\"trackRecord\":null,"
                        + "\"episodeSince\":null,\"message\":null}",
                "{\"type\":\"fatal\",\"resource\":null,\"instance\":null,"
                        + "\"secondsToExhaustion\":null,\"timeToExhaustion\":null,\"limit\":null,"
                        + "\"culprits\":[],\"culpritText\":null,\"trackRecord\":null,"
                        + "\"episodeSince\":null,\"message\":\"Call To predictor Failed\"}"),
                lines);
    }

    @Test
    void aRecordCarriesTheTimeWithItsZoneAndInSeconds() throws IOException {
        Path file = directory.resolve("events.jsonl");
        AgentEvents.recordTo(new EventFile(file, EventFile.TEN_MEGABYTES));
        AgentEvents.sendUpperToleranceEvent("Space", "/", 100.0);
        Matcher stamp = Pattern.compile("\\{\"time\":\"([^\"]*)\",\"epochSeconds\":(\\d+),.*")
                .matcher(Files.readString(file).strip());
        assertTrue(stamp.matches());
        assertEquals(NOW, OffsetDateTime.parse(stamp.group(1)).toInstant());
        assertEquals(NOW.getEpochSecond(), Long.parseLong(stamp.group(2)));
    }

    @Test
    void aLineBeginsWithTheTime() {
        AgentEvents.sendUpperToleranceEvent("Space", "/", 100.0);
        String printed = output.toString(StandardCharsets.UTF_8);
        assertTrue(printed.startsWith("2026-03-29 00:59:59  LIMIT "), printed);
    }

    @Test
    void absentAndHostileTextsAreRecorded() throws IOException {
        List<String> lines = recorded(() -> {
            AgentEvents.sendEvent(null, Double.NaN, null, null, null);
            AgentEvents.sendUpperToleranceEvent("a\n\"\ud800\u00fc\u2028", "\u001b[2J", Double.POSITIVE_INFINITY);
        });
        assertEquals(List.of(
                "{\"type\":\"exhaustion\",\"resource\":null,\"instance\":null,\"secondsToExhaustion\":null,"
                        + "\"timeToExhaustion\":null,\"limit\":null,\"culprits\":[],\"culpritText\":null,"
                        + "\"trackRecord\":null,"
                        + "\"episodeSince\":null,\"message\":null}",
                "{\"type\":\"upperTolerance\",\"resource\":\"a\\n\\\"\\uD800\\u00FC\\u2028\","
                        + "\"instance\":\"\\u001B[2J\",\"secondsToExhaustion\":null,"
                        + "\"timeToExhaustion\":null,\"limit\":null,\"culprits\":[],\"culpritText\":null,"
                        + "\"trackRecord\":null,\"episodeSince\":null,\"message\":null}"), lines);
    }

    @Test
    void anEventThatCannotBeRecordedIsShownAndAccepted() {
        AgentEvents.recordTo(new EventFile(directory.resolve("none/events.jsonl"), 1000));
        assertTrue(AgentEvents.sendEvent("soon", 5.0, "Swap", "_Total", ""));
        assertTrue(AgentEvents.sendUpperToleranceEvent("Swap", "_Total", 100.0));
        assertTrue(AgentEvents.sendEvent("fatal", 0.0, "no", "Null", null));
        assertEquals(3, lines().size());
        assertEquals(5.0, AgentEvents.getPrev_tte());
    }

    @Test
    void namingTheFileShowsAndRecordsNothing() {
        AgentEvents.recordTo(new EventFile(directory.resolve("events.jsonl"), 1000));
        assertEquals(List.of(), lines());
        assertFalse(Files.exists(directory.resolve("events.jsonl")));
        assertEquals(0L, AgentEvents.getPrev_time());
    }

    @Test
    void eventsFromManyThreadsAreWholeLines() throws InterruptedException {
        List<Thread> threads = new ArrayList<>();
        for (int i = 0; i < 8; i++) {
            Thread t = new Thread(() -> {
                for (int n = 0; n < 100; n++) {
                    AgentEvents.sendUpperToleranceEvent("Swap", "_Total", 100.0);
                }
            });
            threads.add(t);
            t.start();
        }
        for (Thread t : threads) {
            t.join();
        }
        assertEquals(800,
                lines().stream()
                        .filter("LIMIT     Swap [_Total] has reached its limit of 100.00 %"::equals)
                        .count());
    }
}
