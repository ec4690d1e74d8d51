package com.quorin.sysmgt.tavl.LumetraAgent;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.file.Path;
import org.junit.jupiter.api.Test;

class AgentConfigurationTest {

    private static final String NAMES = "../data/ Archive.txt ../data/Pad.txt ../log/A.log ../config/r.txt ";

    @Test
    void theItemsAreToldApartByPosition() {
        AgentConfiguration c =
                AgentConfiguration.parse(NAMES.replace(' ', '\n') + "10000\n0\n48\n50\n0\n0\n").get();
        assertEquals(new AgentConfiguration("../data/", "../data/Archive.txt", "../data/Pad.txt",
                "../config/r.txt", 10000, 0, 48, 50), c);
    }

    @Test
    void aHomeWithoutItsSeparatorIsGluedToTheFileName() {
        AgentConfiguration c = AgentConfiguration.parse("../data Archive.txt p l r 1 2 3 4").get();
        assertEquals("../dataArchive.txt", c.archive());
    }

    @Test
    void aMalformedNumberLeavesItAndAllLaterOnesAtZero() {
        AgentConfiguration c = AgentConfiguration.parse(NAMES + "10000 zero 48 50").get();
        assertEquals(10000, c.periodMillis());
        assertEquals(0, c.minForecastHours());
        assertEquals(0, c.maxForecastHours());
        assertEquals(0, c.maxArchiveMegabytes());
    }

    @Test
    void aFractionIsReadUpToItsPointAndStopsTheNumbersAfterIt() {
        AgentConfiguration c = AgentConfiguration.parse(NAMES + "10.5 1 48 50").get();
        assertEquals(10, c.periodMillis());
        assertEquals(0, c.maxForecastHours());
    }

    @Test
    void theNumbersMayBeMissingButNotTheNames() {
        assertEquals(0, AgentConfiguration.parse(NAMES).get().periodMillis());
        assertTrue(AgentConfiguration.parse("../data/ Archive.txt pad log").isEmpty());
        assertTrue(AgentConfiguration.parse("").isEmpty());
    }

    @Test
    void aFileThatCannotBeReadIsNoConfiguration() {
        assertTrue(AgentConfiguration.read(Path.of("/nonexistent/AutoConfig.ini")).isEmpty());
        assertTrue(AgentConfiguration.read(Path.of("/")).isEmpty());
    }
}
