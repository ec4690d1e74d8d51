package com.quorin.sysmgt.tavl.LumetraAgent;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.ByteArrayOutputStream;
import java.io.PrintStream;
import java.lang.invoke.MethodType;
import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

class AgentEventsTest {

    private final ByteArrayOutputStream output = new ByteArrayOutputStream();

    @BeforeEach
    void catchTheLines() {
        AgentEvents.reset(new PrintStream(output, true, StandardCharsets.UTF_8));
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
                List.of("FORECAST  Swap [_Total] will be exhausted in 0 day(s) 3 hr(s) 0 min(s) and 0 sec(s) "
                        + "(10800 s); largest users: java 12"),
                lines());
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
        AgentEvents.sendEvent("%s%n", 1.0, "a\nFATAL", "\u001b[2J%d", "x\r");
        assertEquals(List.of("FORECAST  a\\nFATAL [\\x1b[2J%d] will be exhausted in %s%n (1 s); "
                + "largest users: x\\r"), lines());
    }

    @Test
    void thePreviousForecastIsKept() {
        assertEquals(0L, AgentEvents.getPrev_time());
        assertEquals(0.0, AgentEvents.getPrev_tte());
        long before = System.currentTimeMillis() / 1000;
        AgentEvents.sendEvent("soon", 77.5, "Swap", "_Total", "");
        assertTrue(AgentEvents.getPrev_time() >= before);
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
