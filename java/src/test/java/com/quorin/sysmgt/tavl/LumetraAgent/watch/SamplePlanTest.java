package com.quorin.sysmgt.tavl.LumetraAgent.watch;

import static org.junit.jupiter.api.Assertions.assertEquals;

import com.quorin.sysmgt.tavl.LumetraAgent.resource.GivenResource;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.RunState;
import java.time.Duration;
import java.util.OptionalInt;
import org.junit.jupiter.api.Test;

class SamplePlanTest {

    private static SamplePlan plan(int pauseSeconds, int longest) {
        return new SamplePlan(Duration.ofSeconds(pauseSeconds), OptionalInt.of(longest), 200, 0);
    }

    @Test
    void itIsTheLibrarysOfTheLongestWindow() {
        GivenResource shorter = GivenResource.swap(3);
        shorter.slots = 180;
        assertEquals(plan(10, 1728), SamplePlan.of(
                GivenResource.state(1000, shorter, GivenResource.swap(4))));
    }

    @Test
    void theFirstForecastComesAfterTheSamplesThatItNeeds() {
        assertEquals("a sample every 10 s", plan(10, 1728).period());
        assertEquals("The first forecast can come in about 33 min, after 200 samples.",
                plan(10, 200).firstForecast());
    }

    @Test
    void thePauseIsCountedInWholeSeconds() {
        assertEquals(Duration.ofSeconds(1), new RunState.Settings("", 1999, 0, 48, 200).pause());
        assertEquals(Duration.ZERO, new RunState.Settings("", 999, 0, 48, 200).pause());
        assertEquals(Duration.ZERO, new RunState.Settings("", -5000, 0, 48, 200).pause());
        assertEquals("samples without a pause", plan(0, 300).period());
        assertEquals("The first forecast can come as soon as there are 200 samples.", plan(0, 300).firstForecast());
    }

    @Test
    void aWindowThatIsTooShortForAForecastIsTold() {
        assertEquals("No forecast can come: the longest analysis window holds 180 samples, "
                + "and a forecast needs 200.", plan(10, 180).firstForecast());
    }

    private static String firstForecast(int samples, int slots) {
        GivenResource swap = GivenResource.swap(4);
        swap.samples = samples;
        swap.slots = slots;
        return SamplePlan.of(GivenResource.resumed(GivenResource.state(1000, GivenResource.swap(3), swap), 9, 1))
                .firstForecast();
    }

    @Test
    void whatWasResumedWithIsNotWaitedForAgain() {
        assertEquals("The first forecast can come in about 10 min, after 60 more samples.", firstForecast(140, 1728));
        assertEquals("There are samples enough for forecasts.", firstForecast(200, 1728));
        assertEquals("The first forecast can come in about 33 min, after 199 more samples.", firstForecast(150, 180));
    }

    @Test
    void withoutResourcesTheWindowIsNotKnown() {
        assertEquals("The first forecast can come in about 33 min, after 200 samples.",
                SamplePlan.of(GivenResource.state(1000)).firstForecast());
    }
}
