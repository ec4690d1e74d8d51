package com.quorin.sysmgt.tavl.LumetraAgent;

import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.time.Duration;
import org.junit.jupiter.api.Test;

class LockWindowTest {

    private static final long MS = 1_000_000;

    private static LockWindow window(int pauseSeconds) {
        LockWindow window = new LockWindow(Duration.ofSeconds(pauseSeconds), Duration.ofMillis(250));
        assertFalse(window.isOpen(0));
        window.lineSeen(0);
        return window;
    }

    @Test
    void itIsOpenInThePauseOnly() {
        LockWindow window = window(10);
        assertFalse(window.isOpen(99 * MS));
        assertTrue(window.isOpen(100 * MS));
        assertTrue(window.isOpen(9250 * MS));
        assertFalse(window.isOpen(9251 * MS));
        window.lineSeen(10_000 * MS);
        assertFalse(window.isOpen(10_050 * MS));
        assertTrue(window.isOpen(10_100 * MS));
    }

    @Test
    void aShortPauseLeavesALittle() {
        assertTrue(window(2).isOpen(1250 * MS));
        assertFalse(window(2).isOpen(1251 * MS));
        assertTrue(window(1).isOpen(500 * MS));
        assertFalse(window(1).isOpen(501 * MS));
    }

    @Test
    void anAgentWithoutAPauseIsDisturbedForTwoPerCentAtMost() {
        LockWindow window = window(0);
        long now = 0;
        long held = 0;
        while (now < 100_000 * MS) {
            if (window.isOpen(now)) {
                window.used(now, now + 3 * MS);
                held += 3 * MS;
                now += 3 * MS;
            } else {
                now += MS;
            }
        }
        assertTrue(held <= now / 50 + 30 * MS, held + " of " + now);
        assertTrue(held >= now / 100, held + " of " + now);
    }

    @Test
    void theRestAfterASeriesIsAsLongAsTheSeriesAsks() {
        LockWindow window = window(0);
        window.used(0, 2 * MS);
        assertTrue(window.isOpen(2 * MS));
        window.rest(2 * MS);
        assertFalse(window.isOpen(99 * MS));
        assertTrue(window.isOpen(100 * MS));
    }

    @Test
    void waitingForTheLockIsNotHoldingIt() {
        LockWindow window = window(0);
        window.used(0, 3001 * MS);
        window.rest(3001 * MS);
        assertFalse(window.isOpen(3049 * MS));
        assertTrue(window.isOpen(3050 * MS));
    }
}
