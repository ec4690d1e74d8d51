package com.quorin.sysmgt.tavl.LumetraAgent;

import com.fasterxml.jackson.annotation.JsonIgnore;
import java.util.List;
import java.util.Map;

/**
 * Everything the overview shows, as of one cycle. Immutable. The components' names are those of the JSON.
 *
 * @param agent     the agent itself
 * @param resources all resources, most urgent first
 * @param measures  what the metrics tell beyond the JSON
 */
record Snapshot(Agent agent, List<Resource> resources, @JsonIgnore Measures measures) {

    /**
     * A snapshot of an agent that has measured nothing of itself.
     *
     * @param agent     the agent itself
     * @param resources all resources, most urgent first
     */
    Snapshot(Agent agent, List<Resource> resources) {
        this(agent, resources, null);
    }

    /** The JSON has no measures: whoever reads it gets those of an agent that has measured nothing. */
    Snapshot {
        measures = measures == null ? new Measures(0, 0, 0, Map.of()) : measures;
    }

    /**
     * What the agent measures of its own work, and how events name its resources.
     *
     * @param cyclesMeasured how many cycles were measured
     * @param cycleSeconds   how long they took together
     * @param archiveBytes   the archive's size
     * @param keys           the resources as events name them, by number, as far as that is known
     */
    record Measures(long cyclesMeasured, double cycleSeconds, long archiveBytes,
            Map<Integer, TrendReader.Resource> keys) {}

    /**
     * The agent itself. Times are seconds since the epoch.
     *
     * @param version            its version
     * @param home               its home directory
     * @param startedAt          when the host started
     * @param generatedAt        when this snapshot was made
     * @param running            whether the agent runs: false after its end
     * @param stale              whether the newest cycle is more than three periods old, or the agent has
     *                           ended
     * @param cycles             completed cycles since the start
     * @param newestCycleAt      time of the newest cycle; null before the first
     * @param periodSeconds      pause between two cycles, 0 without one
     * @param samplesForForecast samples that a resource needs before it is forecast
     * @param minForecastHours   nearest exhaustion that is announced
     * @param maxForecastHours   farthest exhaustion that is announced
     * @param notice             one sentence on what the agent cannot do for now; null for none
     */
    record Agent(String version, String home, long startedAt, long generatedAt, boolean running, boolean stale,
            long cycles, Long newestCycleAt, double periodSeconds, int samplesForForecast,
            int minForecastHours, int maxForecastHours, String notice) {}

    /**
     * One resource. What does not apply or is not known yet is null. Texts hold no control characters.
     *
     * @param id                  its number, the same across restarts
     * @param resource            display name
     * @param instance            device, blank and mount point for a disk; empty for a system-wide resource
     * @param device              device of a disk
     * @param mountpoint          mount point of a disk
     * @param value               newest value, per cent of the limit in use
     * @param capacity            what 100 per cent stand for, in words ("95.7 GiB")
     * @param state               how it stands
     * @param stateText           the same in words
     * @param note                one sentence that explains the state where it needs explaining
     * @param samples             samples of this run that the forecast can use, at most what the window holds
     * @param firstForecastAt     when the first forecast can come; null once there is one or when none can
     *                            come
     * @param secondsToExhaustion seconds from {@code forecastAt} to the forecast exhaustion, to 36 s
     * @param exhaustionAt        the moment of the forecast exhaustion, seconds since the epoch
     * @param model               the model that was chosen
     * @param notificationLevel   value from which on events go out, per cent
     * @param limit               the limit that is forecast against, per cent
     * @param forecastAt          when the forecast was made, seconds since the epoch
     * @param recent              the recent history
     */
    record Resource(int id, String resource, String instance, String device, String mountpoint, Double value,
            String capacity, ResourceState state, String stateText, String note, int samples,
            Long firstForecastAt, Double secondsToExhaustion, Long exhaustionAt, String model,
            Double notificationLevel, Double limit, Long forecastAt, Recent recent) {}

    /**
     * A short history for a small curve: the mean of each of equally long stretches of time.
     *
     * @param from   seconds since the epoch, start of the first stretch
     * @param to     seconds since the epoch, end of the last stretch
     * @param values one for each stretch, null where there is no sample
     */
    record Recent(long from, long to, List<Double> values) {}
}
