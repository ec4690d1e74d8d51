package com.quorin.sysmgt.tavl.LumetraAgent.resource;

import com.fasterxml.jackson.annotation.JsonIgnore;
import com.fasterxml.jackson.annotation.JsonUnwrapped;
import com.fasterxml.jackson.core.JsonParser;
import com.fasterxml.jackson.databind.DeserializationContext;
import com.fasterxml.jackson.databind.JsonDeserializer;
import com.fasterxml.jackson.databind.JsonNode;
import com.fasterxml.jackson.databind.annotation.JsonDeserialize;
import com.quorin.sysmgt.tavl.LumetraAgent.TrendReader;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.io.IOException;
import java.util.List;
import java.util.Map;
import java.util.Set;

/**
 * Everything the overview shows, as of one cycle. Immutable. The components' names are those of the JSON.
 *
 * @param resources most urgent first
 * @param leftOut   what the agent does not watch
 * @param measures  what the metrics tell beyond the JSON
 */
public record Snapshot(Agent agent, List<Resource> resources, List<LeftOut> leftOut, @JsonIgnore Measures measures) {

    /**
     * What the agent measures of its own work, and how events name its resources.
     *
     * @param cycleSeconds duration of all cycles together
     * @param archiveBytes the archive's size
     * @param keys         the resources as events name them, by number
     * @param atLimit      the numbers of those that were at their limit in the newest cycle, however old that is
     */
    public record Measures(double cycleSeconds, long archiveBytes, Map<Integer, TrendReader.Resource> keys,
            Set<Integer> atLimit) {}

    /**
     * The agent itself. Times are seconds since the epoch. Those from the period on are 0 and null until the agent
     * has read its configuration.
     *
     * @param startedAt          when the host started
     * @param generatedAt        when this snapshot was made
     * @param running            whether the agent runs: false after its end
     * @param stale              whether the newest cycle is more than three periods old, or the agent has
     *                           ended
     * @param cycles             completed since the start
     * @param newestCycleAt      null before the first cycle
     * @param periodSeconds      pause between two cycles, 0 without one
     * @param samplesForForecast samples that a resource needs before it is forecast
     * @param minForecastHours   nearest exhaustion that is announced
     * @param maxForecastHours   farthest exhaustion that is announced
     * @param notice             one sentence on what the agent cannot do for now; null for none
     * @param resumedSamples     of earlier runs, that forecasts go on from
     */
    public record Agent(String version, String home, long startedAt, long generatedAt, boolean running, boolean stale,
            long cycles, Long newestCycleAt, double periodSeconds, int samplesForForecast,
            int minForecastHours, int maxForecastHours, String notice, long resumedSamples) {}

    /**
     * Something that is not watched, and the reason. Texts hold no control characters.
     *
     * @param kind null for one that this program does not know
     * @param rule what all have in common that are left out for the same reason, in a few words
     */
    public record LeftOut(String what, String why, LeftOutKind kind, String rule) {

        public static LeftOut of(RunState.LeftOut left) {
            return new LeftOut(Words.ofBytes(left.what()), Words.ofBytes(left.why()), left.kind(),
                    left.kind().words(Words.ofBytes(left.rule())));
        }

        /** An older agent does not say by what. */
        public LeftOut {
            rule = rule == null ? LeftOutKind.OTHER.words("") : rule;
        }
    }

    /**
     * One resource; its parts are one object in the JSON. What does not apply or is not known yet is null. Texts
     * hold no control characters.
     */
    @JsonDeserialize(using = FlatResource.class)
    public record Resource(@JsonUnwrapped Identity identity, @JsonUnwrapped Reading reading,
            @JsonUnwrapped Standing standing, @JsonUnwrapped Forecast forecast, @JsonUnwrapped Track track) {

        /** A resource about which nothing was announced. */
        public Resource(Identity identity, Reading reading, Standing standing, Forecast forecast) {
            this(identity, reading, standing, forecast, Track.NONE);
        }

        public int id() {
            return identity.id;
        }

        public ResourceState state() {
            return standing.state;
        }
    }

    /**
     * Which resource it is.
     *
     * @param id           its number, the same across restarts
     * @param resource     the display name
     * @param instance     device, blank and mount point for a disk; empty for a system-wide resource
     * @param device       null for what is no disk
     * @param mountpoint   null for what is no disk
     * @param counter      as the declaration has it
     * @param counterWords what is counted, for people; null for what the agent has no counter for
     */
    public record Identity(int id, String resource, String instance, String device, String mountpoint, String counter,
            String counterWords) {}

    /**
     * What was read.
     *
     * @param value    the newest, per cent of the limit in use
     * @param capacity what 100 per cent stand for, in words ("95.7 GiB")
     * @param limit    the limit that is forecast against, per cent
     * @param samples  samples that the forecast can use, those of earlier runs that it resumed with included; at
     *                 most what the window holds
     */
    public record Reading(Double value, String capacity, Double limit, int samples, Recent recent) {}

    /**
     * How it stands.
     *
     * @param note       one sentence that explains the state where it needs explaining
     * @param whyWatched one sentence
     */
    public record Standing(ResourceState state, String stateText, String note, String whyWatched) {}

    /**
     * What is forecast. Times are seconds since the epoch.
     *
     * @param firstForecastAt     when the first forecast can come; null once there is one or when none can come
     * @param secondsToExhaustion from {@code forecastAt} on
     * @param notificationLevel   value from which on events go out, per cent
     * @param forecastAt          when the forecast was made
     */
    public record Forecast(Long firstForecastAt, Double secondsToExhaustion, Long exhaustionAt, String model,
            Double notificationLevel, Long forecastAt) {

        /** Without a forecast, and none that is awaited. */
        public static final Forecast NONE = new Forecast(null, null, null, null, null, null);
    }

    /**
     * What came of the announcements about it; one counts once it has ended.
     *
     * @param reached           those after which the limit was reached
     * @param freed             those after which the value fell
     * @param levelledOff       those that were dropped otherwise
     * @param levelledOffInARow how many of the newest were, one after the other
     * @param medianErrorHours  how far off the announced moment was in the median; null when no limit was reached
     * @param trackRecord       the same in words; null when there is nothing to say
     */
    public record Track(int announcements, int reached, int freed, int levelledOff, int levelledOffInARow,
            Double medianErrorHours, String trackRecord) {

        public static final Track NONE = new Track(0, 0, 0, 0, 0, null, null);
    }

    /**
     * A short history for a small curve: the mean of each of equally long stretches of time.
     *
     * @param from   seconds since the epoch, start of the first stretch
     * @param to     seconds since the epoch, end of the last stretch
     * @param values one for each stretch, null where there is no sample
     */
    public record Recent(long from, long to, List<Double> values) {}

    /** Puts the members of one object into the parts that they belong to. */
    static final class FlatResource extends JsonDeserializer<Resource> {

        @Override
        public Resource deserialize(JsonParser parser, DeserializationContext context) throws IOException {
            JsonNode members = context.readTree(parser);
            return new Resource(context.readTreeAsValue(members, Identity.class),
                    context.readTreeAsValue(members, Reading.class),
                    context.readTreeAsValue(members, Standing.class),
                    context.readTreeAsValue(members, Forecast.class),
                    context.readTreeAsValue(members, Track.class));
        }
    }

    /** The JSON has no measures, and that of an older agent does not say what it leaves out. */
    public Snapshot {
        leftOut = leftOut == null ? List.of() : leftOut;
        measures = measures == null ? new Measures(0, 0, Map.of(), Set.of()) : measures;
    }

    /** A snapshot of an agent that watches all and has measured nothing of itself. */
    public Snapshot(Agent agent, List<Resource> resources) {
        this(agent, resources, List.of(), null);
    }
}
