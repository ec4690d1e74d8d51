package com.quorin.sysmgt.tavl.LumetraAgent.resource;

import com.quorin.sysmgt.tavl.LumetraAgent.score.EndedEpisode;
import java.time.Duration;
import java.util.List;
import java.util.Optional;

/**
 * How the agent stands, whole: all of it as of one cycle. Texts are texts of bytes. Immutable.
 *
 * @param awaitsDisks whether the newest attempt to list the disks gave nothing
 * @param leftOut     what is not watched
 * @param resources   what is watched, in the agent's order
 * @param ended       the newest episodes that ended in this process, oldest first
 */
public record RunState(Cycle cycle, Archive archive, Settings settings, boolean awaitsDisks, List<LeftOut> leftOut,
        List<RunResource> resources, List<EndedEpisode> ended) {

    /** The state of a run without episodes. */
    public RunState(Cycle cycle, Archive archive, Settings settings, boolean awaitsDisks, List<LeftOut> leftOut,
            List<RunResource> resources) {
        this(cycle, archive, settings, awaitsDisks, leftOut, resources, List.of());
    }

    private static final String DISKS_AWAITED = "The disks cannot be listed yet: df has not answered; "
            + "they are taken up as soon as it does.";

    /**
     * The newest cycle. Durations in seconds.
     *
     * @param time       seconds since the epoch
     * @param clockSteps seconds by which the clock has stepped during the run, all steps together
     * @param total      duration of all cycles of the run together
     */
    public record Cycle(long time, long clockSteps, double sampling, double forecasts, double writing, double total) {

        /** A cycle of a run whose clock nobody has set. */
        public Cycle(long time, double sampling, double forecasts, double writing, double total) {
            this(time, 0, sampling, forecasts, writing, total);
        }

        /** How long the cycle took, without the pause behind it. */
        double seconds() {
            return sampling + forecasts + writing;
        }
    }

    /**
     * The archive of samples.
     *
     * @param file    its name
     * @param bytes   its size; negative when it is not known
     * @param resumed what the present resources took over from it
     */
    public record Archive(String file, long bytes, Resumed resumed) {}

    /**
     * Samples of earlier times that forecasts go on from.
     *
     * @param resources which took over any
     */
    public record Resumed(long samples, int resources) {

        public static final Resumed NOTHING = new Resumed(0, 0);

        public boolean isAnything() {
            return samples > 0;
        }
    }

    /**
     * The configuration in force.
     *
     * @param home          the data home directory, as it stands before other names
     * @param periodMillis  milliseconds per sample, after automatic choice
     * @param neededSamples so many samples does a forecast need
     */
    public record Settings(String home, int periodMillis, int minForecastHours, int maxForecastHours,
            int neededSamples) {

        /** The pause between two cycles, which the agent counts in whole seconds; zero without one. */
        public Duration pause() {
            return Duration.ofSeconds(Math.max(0, periodMillis / 1000));
        }
    }

    /**
     * Something that is not watched, and the reason.
     *
     * @param rule of the kinds TYPE and PATTERN as it is written, of NATURE the type; empty for the others
     */
    public record LeftOut(String what, String why, LeftOutKind kind, String rule) {}

    /** The distance of two cycles: the pause between them and the work in each. */
    public double secondsPerCycle() {
        return settings.pause().toSeconds() + cycle.seconds();
    }

    /** What the agent cannot do for now, in one sentence; empty for nothing. */
    public Optional<String> notice() {
        boolean hasNoDisksYet = awaitsDisks && resources.stream().noneMatch(r -> r.identity().isDisk());
        return hasNoDisksYet ? Optional.of(DISKS_AWAITED) : Optional.empty();
    }
}
