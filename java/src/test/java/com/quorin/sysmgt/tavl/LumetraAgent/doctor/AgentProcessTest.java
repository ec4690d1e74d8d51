package com.quorin.sysmgt.tavl.LumetraAgent.doctor;

import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import org.junit.jupiter.api.Test;

class AgentProcessTest {
    private static final long EIGHT_ONE = 0x801;

    @Test
    void aLockIsOfTheFileWithItsDeviceAndNumber() {
        assertTrue(AgentProcess.isOf("08:01:4711", EIGHT_ONE, 4711));
        assertFalse(AgentProcess.isOf("08:01:4712", EIGHT_ONE, 4711));
        assertFalse(AgentProcess.isOf("08:02:4711", EIGHT_ONE, 4711));
        assertFalse(AgentProcess.isOf("4711", EIGHT_ONE, 4711));
    }

    @Test
    void withoutADiskOfItsOwnTheNumberDecides() {
        assertTrue(AgentProcess.isOf("00:2a:4711", 0x17, 4711));
        assertFalse(AgentProcess.isOf("00:2a:4712", 0x17, 4711));
    }

    @Test
    void aNumberOfAnOverlayMayUseAllBits() {
        assertTrue(AgentProcess.isOf("00:2a:18446744073709551615", 0x17, -1));
    }
}
