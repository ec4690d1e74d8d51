package com.quorin.sysmgt.tavl.LumetraAgent.files;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.List;
import java.util.Map;
import org.junit.jupiter.api.Test;

class ArchiveLineTest {

    @Test
    void theValuesStandInTheLinesOrder() {
        ArchiveLine line = ArchiveLine.parse("1008921600 7 0 41.27 3 0 12.50 \n").get();
        assertEquals(1008921600L, line.epochSeconds());
        assertEquals(Map.of(7, 41.27, 3, 12.5), line.values());
        assertEquals(List.of(7, 3), List.copyOf(line.values().keySet()));
    }

    @Test
    void aLineWithoutResourcesHasNoValues() {
        assertTrue(ArchiveLine.parse("1008921600 ").get().values().isEmpty());
    }

    @Test
    void whatFollowsADamagedTripleIsLeftOut() {
        assertEquals(Map.of(1, 2.0), ArchiveLine.parse("5 1 0 2.00 x 0 3.00 4 0 1.00").get().values());
        assertEquals(Map.of(1, 2.0), ArchiveLine.parse("5 1 0 2.00 3 0").get().values());
    }

    @Test
    void valuesThatAreNoFiniteNumbersAreRead() {
        Map<Integer, Double> values = ArchiveLine.parse("5 1 0 nan 2 0 -nan 3 0 inf 4 0 -inf").get().values();
        assertTrue(values.get(1).isNaN() && values.get(2).isNaN());
        assertEquals(Double.POSITIVE_INFINITY, values.get(3));
        assertEquals(Double.NEGATIVE_INFINITY, values.get(4));
    }

    @Test
    void textWithoutATimeIsNoLine() {
        assertTrue(ArchiveLine.parse("").isEmpty());
        assertTrue(ArchiveLine.parse(" \n").isEmpty());
        assertTrue(ArchiveLine.parse("abc 1 0 2.00").isEmpty());
        assertTrue(ArchiveLine.parse("99999999999999999999999 1 0 2.00").isEmpty());
    }
}
