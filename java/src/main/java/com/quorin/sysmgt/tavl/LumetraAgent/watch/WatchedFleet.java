package com.quorin.sysmgt.tavl.LumetraAgent.watch;

import com.quorin.sysmgt.tavl.LumetraAgent.TrendReader;
import com.quorin.sysmgt.tavl.LumetraAgent.files.ArchiveLine;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.ResourceFacts;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.ResourceJudge;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.ResourceState;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.RunResource;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.RunState;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import java.util.ArrayList;
import java.util.Comparator;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.function.BiFunction;
import java.util.stream.Collectors;

/** All resources of this run and how they stand. One thread at a time uses it. */
final class WatchedFleet {

    /** So many samples of a resource are kept. */
    static final int SAMPLES = 2048;

    /** So many resources that are gone stay in the list. */
    static final int MOST_ABSENT = 1000;

    /** Of a fleet that is larger than this, fewer samples of each resource are kept: all must fit into the heap. */
    private static final int LARGE_FLEET = 2000;
    private static final int SAMPLES_OF_LARGE_FLEET = 256;

    private static final double FORECAST_COUNTS_SECONDS = 60;

    private final Map<Integer, WatchedResource> all = new HashMap<>();
    private RunState state;
    private long cycle;
    private long clockSteps;

    /** Takes up a line of an earlier run. */
    void takeHistory(ArchiveLine line) {
        line.values().forEach((id, value) -> resource(id).history().add(line.epochSeconds(), value));
    }

    /**
     * Takes up how the agent stands after a cycle. When that fails half-way, it may be taken up once more.
     *
     * @param number the cycle's number in this run, from 1 on
     */
    void take(long number, RunState newest) {
        long step = newest.cycle().clockSteps() - clockSteps;
        if (step != 0) {
            all.values().forEach(r -> r.history().move(step));
            clockSteps += step;
        }
        for (RunResource said : newest.resources()) {
            resource(said.identity().id()).take(number, newest.cycle().time(), said);
        }
        if (all.values().stream().filter(r -> r.newest() != null).count() > LARGE_FLEET) {
            all.values().forEach(r -> r.history().limit(SAMPLES_OF_LARGE_FLEET));
        }
        state = newest;
        cycle = number;
        forgetLongGone();
    }

    /** What is in the archive only makes no fleet large: its samples were read from a bounded part, and get no more. */
    private WatchedResource resource(int id) {
        return all.computeIfAbsent(id, i -> new WatchedResource(SAMPLES));
    }

    private void forgetLongGone() {
        List<Map.Entry<Integer, WatchedResource>> gone = new ArrayList<>(all.entrySet().stream()
                .filter(e -> e.getValue().newest() != null && !isPresent(e.getValue())).toList());
        if (gone.size() > MOST_ABSENT) {
            gone.sort(Comparator.comparingLong(e -> -e.getValue().cycle()));
            gone.subList(MOST_ABSENT, gone.size()).forEach(e -> all.remove(e.getKey()));
        }
    }

    private boolean isPresent(WatchedResource r) {
        return r.cycle() == cycle;
    }

    /** How many cycles the run has completed. */
    long cycles() {
        return cycle;
    }

    /** A resource of this run; null when there is none of this number. */
    WatchedResource listed(int id) {
        WatchedResource resource = all.get(id);
        return resource == null || resource.newest() == null ? null : resource;
    }

    /**
     * How all resources of this run stand, most urgent first.
     *
     * @param stale whether the newest cycle is too old
     * @param track what came of earlier announcements about a resource
     */
    List<Snapshot.Resource> rows(boolean stale,
            BiFunction<TrendReader.Resource, RunResource.Notification, Snapshot.Track> track) {
        return all.values().stream().filter(r -> r.newest() != null)
                .map(r -> row(r, stale, track.apply(r.names().key(), r.newest().notification())))
                .sorted(ResourceJudge.MOST_URGENT_FIRST).toList();
    }

    /** The resources of this run as the library, and so events, name them, by number. */
    Map<Integer, TrendReader.Resource> keys() {
        return all.entrySet().stream().filter(e -> e.getValue().newest() != null)
                .collect(Collectors.toUnmodifiableMap(Map.Entry::getKey, e -> e.getValue().names().key()));
    }

    /** The numbers of the resources that were at their limit in the newest cycle. */
    Set<Integer> atLimit() {
        return all.entrySet().stream()
                .filter(e -> e.getValue().newest() != null
                        && ResourceJudge.state(judged(e.getValue(), false)) == ResourceState.AT_LIMIT)
                .map(Map.Entry::getKey).collect(Collectors.toUnmodifiableSet());
    }

    /** Whether a forecast says something of now: the agent makes one in every cycle. */
    boolean counts(RunResource.Forecast forecast) {
        double patience = Math.max(FORECAST_COUNTS_SECONDS, AgentWatch.STALE_PERIODS * state.secondsPerCycle());
        return forecast != null && forecast.time() >= state.cycle().time() - patience;
    }

    /** From when on the samples of a resource are looked at, seconds since the epoch. */
    double windowStart(RunResource resource) {
        return state.cycle().time() - windowSeconds(resource);
    }

    private static long windowSeconds(RunResource resource) {
        return Math.round(Math.min(Integer.MAX_VALUE, resource.analysis().windowHours() * 3600));
    }

    private Snapshot.Resource row(WatchedResource r, boolean stale, Snapshot.Track track) {
        ResourceJudge.Case c = judged(r, stale);
        ResourceState standing = ResourceJudge.state(c);
        return new Snapshot.Resource(r.names().shown(), reading(r, c.facts(), standing),
                new Snapshot.Standing(standing, ResourceJudge.words(c), ResourceJudge.note(c),
                        r.newest().reason().words()),
                forecast(c, standing), track);
    }

    private ResourceJudge.Case judged(WatchedResource r, boolean stale) {
        RunResource newest = r.newest();
        return new ResourceJudge.Case(ResourceFacts.of(newest), isPresent(r), r.hasBeenRead(), stale,
                counts(newest.forecast()) ? newest.forecast() : null, state.settings().neededSamples());
    }

    private Snapshot.Reading reading(WatchedResource r, ResourceFacts facts, ResourceState standing) {
        boolean isAbsent = standing == ResourceState.ABSENT;
        double value = r.newest().reading().value();
        boolean isKnown = !isAbsent && r.hasBeenRead() && Double.isFinite(value);
        return new Snapshot.Reading(isKnown ? (Double) Charts.rounded(value) : null,
                facts.amount().orElse(null), isAbsent ? null : facts.limit(), r.newest().analysis().samples(),
                r.history().recent(state.cycle().time(), windowSeconds(r.newest())));
    }

    private Snapshot.Forecast forecast(ResourceJudge.Case c, ResourceState standing) {
        RunResource resource = c.facts().resource();
        RunResource.Forecast made = c.forecast();
        if (standing == ResourceState.ABSENT || standing == ResourceState.NO_LIMIT) {
            return Snapshot.Forecast.NONE;
        }
        if (made == null) {
            Long first = standing == ResourceState.COLLECTING ? firstForecastAt(resource.analysis()) : null;
            return new Snapshot.Forecast(first, null, null, null, null, null);
        }
        Double seconds = Charts.secondsToExhaustion(made);
        return new Snapshot.Forecast(null, seconds, seconds == null ? null : made.time() + Math.round(seconds),
                Charts.modelOf(made),
                seconds == null ? null : (Double) Charts.rounded(resource.notification().level()), made.time());
    }

    private Long firstForecastAt(RunResource.Analysis analysis) {
        int needed = state.settings().neededSamples();
        return analysis.slots() < needed ? null
                : state.cycle().time() + Math.round((needed - analysis.samples()) * state.secondsPerCycle());
    }
}
