package com.quorin.sysmgt.tavl.LumetraAgent;

import static org.junit.jupiter.api.Assertions.assertEquals;

import java.time.Duration;
import java.util.Arrays;
import java.util.List;
import org.junit.jupiter.api.Test;

class SamplePlanTest {

    private static SamplePlan plan(int periodMillis, int maxForecastHours, double... windows) {
        List<DeclaredResource> declared = Arrays.stream(windows)
                .mapToObj(w -> new DeclaredResource("a", "b", "c", w, "d", 1, 0, 0)).toList();
        return SamplePlan.of(
                new AgentConfiguration("h/", "h/a", "p", "r", periodMillis, 0, maxForecastHours, 50),
                declared);
    }

    @Test
    void theFirstForecastComesAfterTwoHundredSamples() {
        SamplePlan plan = plan(10000, 48, -1, -1);
        assertEquals("a sample every 10 s", plan.period());
        assertEquals("The first forecast can come in about 33 min, after 200 samples.", plan.firstForecast());
    }

    @Test
    void anAutomaticPeriodPutsThreeHundredSamplesIntoTheLongestWindow() {
        assertEquals(57600.0, plan(-1, 48, -1).periodMillis());
        assertEquals(Duration.ofSeconds(57), plan(-1, 48, -1, 2).pause());
        assertEquals(120000.0, plan(-1, 48, -1, 10).periodMillis());
    }

    @Test
    void thePauseIsCountedInWholeSeconds() {
        assertEquals(Duration.ofSeconds(1), plan(1500, 48, -1).pause());
        assertEquals("samples without a pause", plan(999, 48, -1).period());
        assertEquals("samples without a pause", plan(0, 48, -1).period());
        assertEquals("The first forecast can come as soon as there are 200 samples.",
                plan(999, 48, -1).firstForecast());
    }

    @Test
    void aWindowThatIsTooShortForAForecastIsTold() {
        assertEquals("No forecast can come: the longest analysis window holds 180 samples, "
                + "and a forecast needs 200.",
                plan(10000, 48, 0.5).firstForecast());
    }

    @Test
    void aWindowShorterThanThePeriodBecomesTheAutomaticOne() {
        assertEquals(4.8, plan(600_000, 48, 0.1).largestWindow());
    }

    @Test
    void aConfigurationOfZeroesBreaksNothing() {
        assertEquals("No forecast can come: the longest analysis window holds 1 samples, "
                + "and a forecast needs 200.",
                plan(0, 0).firstForecast());
    }

    private static long samples(int periodMillis, int maxForecastHours, double window) {
        return plan(periodMillis, maxForecastHours, window).samplesIn(window,
                new AgentConfiguration("h/", "h/a", "p", "r", periodMillis, 0, maxForecastHours, 50));
    }

    @Test
    void aWindowHoldsWhatItsLengthAndThePeriodGive() {
        assertEquals(1728, samples(10000, 48, -1));
        assertEquals(180, samples(10000, 48, 0.5));
        assertEquals(300, samples(-1, 48, -1));
        assertEquals(172800, samples(100, 48, -1));
        assertEquals(1728, samples(10000, 48, 0.001));
        assertEquals(0, samples(0, 48, -1));
        assertEquals(1, samples(-5, 48, -1));
        assertEquals(1, samples(10000, 0, -1));
        assertEquals(Integer.MAX_VALUE, samples(1, 2_000_000_000, -1));
    }
}
