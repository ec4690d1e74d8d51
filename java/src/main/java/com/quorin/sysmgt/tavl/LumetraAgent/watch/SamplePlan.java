package com.quorin.sysmgt.tavl.LumetraAgent.watch;

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
 */
public record SamplePlan(Duration pause, OptionalInt longest, int needed) {

    public static SamplePlan of(RunState state) {
        return new SamplePlan(state.settings().pause(),
                state.resources().stream().mapToInt(r -> r.analysis().slots()).max(),
                state.settings().neededSamples());
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
        Duration wait = pause.multipliedBy(needed);
        String when = wait.isZero()
                ? "as soon as there are"
                : "in about " + Words.ofDuration(wait) + ", after";
        return "The first forecast can come " + when + " " + needed + " samples.";
    }
}
