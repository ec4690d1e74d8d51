package com.quorin.sysmgt.tavl.LumetraAgent;

import java.time.Duration;
import java.util.List;

/**
 * How often the agent samples and when it can forecast, derived from its configuration and declarations by
 * the agent's own rules.
 *
 * @param periodMillis  milliseconds per sample, after automatic choice
 * @param largestWindow the longest analysis window in hours
 */
record SamplePlan(double periodMillis, double largestWindow) {

    /** The agent needs this many samples of a resource before it fits a model. */
    static final int SAMPLES_FOR_FORECAST = 200;

    private static final double MILLIS_PER_HOUR = 3600.0 * 1000.0;

    /**
     * The plan of a run.
     *
     * @param configuration the configuration
     * @param declared      the declarations that the agent starts with
     * @return the plan
     */
    static SamplePlan of(AgentConfiguration configuration, List<DeclaredResource> declared) {
        double automatic = configuration.maxForecastHours() / 10.0;
        double largest = declared.stream().mapToDouble(d -> d.windowHours() < 0 ? automatic : d.windowHours())
                .max().orElse(0.0);
        int period = configuration.periodMillis();
        double chosen = period == -1 ? Math.floor(largest * MILLIS_PER_HOUR / 300) : period;
        // the agent puts the automatic window in the place of one that is shorter than a period
        double corrected = chosen > largest * MILLIS_PER_HOUR ? automatic : largest;
        return new SamplePlan(chosen, corrected);
    }

    /**
     * How many samples an analysis window holds.
     *
     * @param windowHours   the window as it is declared; negative asks for the automatic one
     * @param configuration the configuration
     * @return the samples, 0 when the agent cannot keep any
     */
    long samplesIn(double windowHours, AgentConfiguration configuration) {
        double period = Math.floor(periodMillis);
        if (period == 0) {
            return 0;
        }
        double samples = Math.floor(effectiveHours(windowHours, configuration) * MILLIS_PER_HOUR / period);
        return samples >= 1 ? (long) Math.min(samples, Integer.MAX_VALUE) : 1;
    }

    /**
     * The length of an analysis window, after automatic choice.
     *
     * @param windowHours   the window as it is declared; negative asks for the automatic one
     * @param configuration the configuration
     * @return hours
     */
    double effectiveHours(double windowHours, AgentConfiguration configuration) {
        double automatic = configuration.maxForecastHours() / 10.0;
        double hours = windowHours < 0 ? automatic : windowHours;
        // the agent puts the automatic window in the place of one that is shorter than a period
        return periodMillis > hours * MILLIS_PER_HOUR ? automatic : hours;
    }

    /**
     * The pause between two cycles, which the agent counts in whole seconds.
     *
     * @return the pause, zero when the agent does not pause
     */
    Duration pause() {
        return Duration.ofSeconds(Math.max(0, (long) periodMillis / 1000));
    }

    /**
     * The period in words.
     *
     * @return the text
     */
    String period() {
        return pause().isZero() ? "samples without a pause" : "a sample every " + Words.ofDuration(pause());
    }

    /**
     * When the first forecast can come, seen from the first sample.
     *
     * @return a sentence
     */
    String firstForecast() {
        double ring = periodMillis > 0 ? Math.floor(largestWindow * MILLIS_PER_HOUR / periodMillis) : 0;
        if (ring < SAMPLES_FOR_FORECAST) {
            return "No forecast can come: the longest analysis window holds " + (long) Math.max(1, ring)
                    + " samples, and a forecast needs " + SAMPLES_FOR_FORECAST + ".";
        }
        Duration wait = pause().multipliedBy(SAMPLES_FOR_FORECAST);
        String when = wait.isZero()
                ? "as soon as there are"
                : "in about " + Words.ofDuration(wait) + ", after";
        return "The first forecast can come " + when + " " + SAMPLES_FOR_FORECAST + " samples.";
    }
}
