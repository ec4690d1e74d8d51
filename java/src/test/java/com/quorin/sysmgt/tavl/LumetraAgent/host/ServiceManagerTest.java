package com.quorin.sysmgt.tavl.LumetraAgent.host;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;

import java.nio.charset.StandardCharsets;
import java.util.HashMap;
import java.util.Map;
import java.util.Optional;
import org.junit.jupiter.api.Test;

class ServiceManagerTest {

    private static Optional<ServiceManager> of(String... environment) {
        Map<String, String> map = new HashMap<>();
        for (int i = 0; i < environment.length; i += 2) {
            map.put(environment[i], environment[i + 1]);
        }
        return ServiceManager.of(map, 17);
    }

    @Test
    void withoutASocketThereIsNone() {
        assertEquals(Optional.empty(), of());
        assertEquals(Optional.empty(), of("NOTIFY_SOCKET", "", "WATCHDOG_USEC", "5"));
    }

    @Test
    void itSaysWhereItListensAndHowOftenItWantsToHear() {
        assertEquals(Optional.of(new ServiceManager("/run/n", 0)), of("NOTIFY_SOCKET", "/run/n"));
        assertEquals(Optional.of(new ServiceManager("@n", 300_000_000)),
                of("NOTIFY_SOCKET", "@n", "WATCHDOG_USEC", "300000000", "WATCHDOG_PID", "17"));
        assertEquals(Optional.of(new ServiceManager("@n", 5)), of("NOTIFY_SOCKET", "@n", "WATCHDOG_USEC", "5"));
    }

    @Test
    void aWishThatIsMeantForAnotherProcessOrIsNoNumberIsNone() {
        assertEquals(0, of("NOTIFY_SOCKET", "@n", "WATCHDOG_USEC", "5", "WATCHDOG_PID", "18").orElseThrow()
                .watchdogMicroseconds());
        assertEquals(0, of("NOTIFY_SOCKET", "@n", "WATCHDOG_USEC", "5", "WATCHDOG_PID", "me").orElseThrow()
                .watchdogMicroseconds());
        assertEquals(0, of("NOTIFY_SOCKET", "@n", "WATCHDOG_USEC", "often").orElseThrow().watchdogMicroseconds());
        assertEquals(0, of("NOTIFY_SOCKET", "@n", "WATCHDOG_USEC", "-5").orElseThrow().watchdogMicroseconds());
    }

    @Test
    void theLibraryIsToldWhomToTell() {
        ServiceManager manager = new ServiceManager("/run/ä", 7);
        assertEquals(Optional.empty(), manager.introduce((socket, watchdog) -> {
            assertArrayEquals("/run/ä".getBytes(StandardCharsets.UTF_8), socket);
            assertEquals(7, watchdog);
            return true;
        }));
    }

    @Test
    void aSocketThatCannotBeUsedIsTold() {
        assertEquals(Optional.of("The service manager cannot be told how the agent is: its socket vsock:\\x1b "
                + "cannot be used."), new ServiceManager("vsock:\u001b", 7).introduce((socket, watchdog) -> false));
    }
}
