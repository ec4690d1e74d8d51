package com.quorin.sysmgt.tavl.LumetraAgent.watch;

import com.quorin.sysmgt.tavl.LumetraAgent.resource.RunResource;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.RunState;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.time.Duration;
import java.util.OptionalInt;

/**
 * How often the agent samples and when it can forecast, in words.
 *
 * @param pause   between two cycles, zero without one
 * @param longest samples that the longest analysis window holds; empty without resources
 * @param needed  so many samples does a forecast need
 * @param resumed so many does the resource have that is nearest to one, of a run that resumed; otherwise 0
 */
public record SamplePlan(Duration pause, OptionalInt longest, int needed, int resumed) {

    public static SamplePlan of(RunState state) {
        return new SamplePlan(state.settings().pause(),
                state.resources().stream().mapToInt(r -> r.analysis().slots()).max(),
                state.settings().neededSamples(), resumed(state));
    }

    private static int resumed(RunState state) {
        return !state.archive().resumed().isAnything() ? 0 : state.resources().stream()
                .map(RunResource::analysis).filter(a -> a.slots() >= state.settings().neededSamples())
                .mapToInt(RunResource.Analysis::samples).max().orElse(0);
    }

    /** The period. */
    public String period() {
        return pause.isZero() ? "samples without a pause" : "a sample every " + Words.ofDuration(pause);
    }

    /** When the first forecast can come, seen from the first sample: a sentence. */
    public String firstForecast() {
        if (longest.isPresent() && longest.getAsInt() < needed) {
            return "No forecast can come: the longest analysis window holds " + longest.getAsInt()
                    + " samples, and a forecast needs " + needed + ".";
        }
        if (resumed >= needed) {
            return "There are samples enough for forecasts.";
        }
        int missing = needed - resumed;
        Duration wait = pause.multipliedBy(missing);
        String when = wait.isZero()
                ? "as soon as there are"
                : "in about " + Words.ofDuration(wait) + ", after";
        return "The first forecast can come " + when + " " + missing + (resumed > 0 ? " more samples." : " samples.");
    }
}
