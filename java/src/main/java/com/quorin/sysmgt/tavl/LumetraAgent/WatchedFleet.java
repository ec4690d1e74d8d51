package com.quorin.sysmgt.tavl.LumetraAgent;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.BasicFileAttributes;
import java.time.Duration;
import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Collection;
import java.util.Comparator;
import java.util.Deque;
import java.util.HashSet;
import java.util.List;
import java.util.Map;
import java.util.OptionalDouble;
import java.util.Set;
import java.util.concurrent.ConcurrentHashMap;
import java.util.function.Supplier;
import java.util.stream.Collectors;

/**
 * All resources of the archive: their samples, their names, and how they stand. The view's thread alone uses
 * it, but for {@link #shown} and {@link #newestCycle}.
 */
final class WatchedFleet {

    /** So many samples of a resource are kept. */
    static final int SAMPLES = 2048;

    /** So many resources that are gone stay in the list. */
    static final int MOST_ABSENT = 1000;

    /** Of a fleet that is larger than this, so many samples of each further resource are kept. */
    private static final int LARGE_FLEET = 2000;
    private static final int SAMPLES_OF_LARGE_FLEET = 256;

    private static final long LIST_AGAIN = Duration.ofMinutes(1).toNanos();
    private static final int MOST_TIMES = 32;

    private final AgentConfiguration configuration;
    private final List<DeclaredResource> declared;
    private final SamplePlan plan;
    private final Capacities machine;
    private final Map<Integer, WatchedResource> all = new ConcurrentHashMap<>();
    private final Deque<Long> newestTimes = new ArrayDeque<>();
    private MachineCapacities capacities;
    private boolean askedForNew;
    private boolean hasSeenDisk;
    private long listedAt;
    private long lines;
    private volatile long newestCycle = Long.MIN_VALUE;

    /**
     * A fleet without resources.
     *
     * @param configuration the configuration
     * @param declared      the declarations that the agent starts with
     * @param machine       asked for the machine's capacities, now and then
     */
    WatchedFleet(AgentConfiguration configuration, List<DeclaredResource> declared,
            Capacities machine) {
        this.configuration = configuration;
        this.declared = declared;
        this.plan = SamplePlan.of(configuration, declared);
        this.machine = machine;
        this.capacities = machine.newest();
    }

    /**
     * Asks for the machine's capacities.
     *
     * @param nanoTime the present time
     */
    void askCapacities(long nanoTime) {
        machine.ask();
        listedAt = nanoTime;
    }

    /**
     * Takes up the capacities that were asked for, when they have come.
     *
     * @return whether there were new ones
     */
    boolean takeCapacities() {
        MachineCapacities newest = machine.newest();
        if (newest == capacities) {
            return false;
        }
        capacities = newest;
        if (askedForNew) {
            askedForNew = false;
            all.values().forEach(r -> r.awaitsListing = false);
        }
        all.values().stream().filter(r -> r.isListed && r.known != null).forEach(this::setFacts);
        return true;
    }

    /**
     * Takes up a line of an earlier run.
     *
     * @param line the line
     */
    void takeHistory(ArchiveLine line) {
        line.values().forEach((id, value) -> resource(id).history.add(line.epochSeconds(), value));
    }

    /**
     * Takes up a line of this run.
     *
     * @param line the line
     */
    void take(ArchiveLine line) {
        lines++;
        newestTimes.addLast(line.epochSeconds());
        if (newestTimes.size() > MOST_TIMES) {
            newestTimes.removeFirst();
        }
        line.values().forEach((id, value) -> resource(id).take(line.epochSeconds(), lines, value));
        newestCycle = line.epochSeconds();
    }

    private WatchedResource resource(int id) {
        return all.computeIfAbsent(id, i -> new WatchedResource(
                i, all.size() < LARGE_FLEET ? SAMPLES : SAMPLES_OF_LARGE_FLEET));
    }

    /**
     * A resource that the list has shown. Any thread may call.
     *
     * @param id its number
     * @return the resource; null when there is none
     */
    WatchedResource shown(int id) {
        WatchedResource resource = all.get(id);
        return resource != null && resource.isShown ? resource : null;
    }

    /**
     * The time of the newest line of this run. Any thread may call.
     *
     * @return seconds since the epoch; {@link Long#MIN_VALUE} before the first
     */
    long newestCycle() {
        return newestCycle;
    }

    /**
     * How many lines this run has written.
     *
     * @return the count
     */
    long cycles() {
        return lines;
    }

    /**
     * The distance of two cycles: the pause between them and the work in each.
     *
     * @return the mean of the last ones in seconds; the pause as long as there is nothing to measure
     */
    double cycleSeconds() {
        double pause = plan.pause().toSeconds();
        if (newestTimes.size() < 2) {
            return pause;
        }
        return Math.max(pause, (double) (newestTimes.getLast() - newestTimes.getFirst())
                / (newestTimes.size() - 1));
    }

    /**
     * Finds out what the resources of the newest line are.
     *
     * @param names    asked for the resources' names as the library has them when there are new ones
     * @param nanoTime the present time
     */
    void describe(Supplier<Collection<TrendReader.Resource>> names, long nanoTime) {
        takeCapacities();
        readScratchPad(names);
        boolean mustList = false;
        for (WatchedResource r : all.values()) {
            if (r.isListed && r.known != null) {
                setFacts(r);
                r.awaitsListing &= r.facts.isDisk()
                        && (lines > 1 || r.facts.kind() == ResourceFacts.Kind.UNKNOWN_CAPACITY);
                mustList |= r.awaitsListing && isPresent(r);
                hasSeenDisk |= r.known.isDisk();
            }
        }
        // a listing that is under way may have begun before there was the disk that it is asked for
        if (mustList && nanoTime - listedAt >= LIST_AGAIN && !machine.isListing()) {
            askedForNew = true;
            askCapacities(nanoTime);
            takeCapacities();
        }
    }

    /**
     * What the agent cannot do for now.
     *
     * @return one sentence; null for nothing
     */
    String notice() {
        boolean allKnown = all.values().stream().noneMatch(r -> r.isListed && r.known == null);
        boolean awaited = lines > 0 && allKnown && !hasSeenDisk && !capacities.hasNoDisks()
                && DeclaredResource.areDisksDeclared(declared);
        return awaited ? DiskListing.AWAITED : null;
    }

    private void setFacts(WatchedResource r) {
        r.facts = ResourceFacts.of(r.known, declared, capacities);
        r.limit = ResourceJudge.limit(r.facts);
        double window = plan.effectiveHours(r.facts.windowHours(), configuration) * 3600;
        r.windowSeconds = Math.round(Math.min(Integer.MAX_VALUE, window));
    }

    private boolean isPresent(WatchedResource r) {
        return r.lastLine == lines;
    }

    /**
     * The scratch pad may be large, and a record may come later than its resource: it is read once for each
     * new resource, and again for what it lacked when it has changed.
     */
    private void readScratchPad(Supplier<Collection<TrendReader.Resource>> names) {
        List<WatchedResource> unnamed =
                all.values().stream().filter(r -> r.isListed && r.known == null).toList();
        Path file = FileText.path(configuration.scratchPad());
        Object state = unnamed.isEmpty() ? null : state(file);
        Set<Integer> wanted = new HashSet<>();
        unnamed.stream().filter(r -> state != null && !state.equals(r.soughtIn)).forEach(r -> {
            r.soughtIn = state;
            wanted.add(r.id);
        });
        if (wanted.isEmpty()) {
            return;
        }
        Map<Integer, KnownResource> found = ScratchPadFile.read(file, wanted);
        if (!found.isEmpty()) {
            Set<TrendReader.Resource> inLibrary = new HashSet<>(names.get());
            found.forEach((id, known) -> name(all.get(id), known, inLibrary));
        }
    }

    private static Object state(Path file) {
        try {
            BasicFileAttributes a = Files.readAttributes(file, BasicFileAttributes.class);
            return List.of(a.size(), a.lastModifiedTime());
        } catch (IOException e) {
            return null;
        }
    }

    private void name(WatchedResource r, KnownResource known, Set<TrendReader.Resource> inLibrary) {
        r.known = known;
        setFacts(r);
        r.displayName = r.facts.name();
        TrendReader.Resource own = new TrendReader.Resource(
                Words.asFromLibrary(r.facts.name()), Words.asFromLibrary(known.instance()));
        r.key = inLibrary.contains(own) ? own : nearest(own, inLibrary);
    }

    /** The library holds at most 127 bytes of a declared name; one that it does not know stays as it is. */
    private static TrendReader.Resource nearest(
            TrendReader.Resource own, Collection<TrendReader.Resource> inLibrary) {
        List<TrendReader.Resource> near = inLibrary.stream()
                .filter(n -> n.instance().equals(own.instance()) && !n.name().isEmpty()
                        && own.name().startsWith(n.name()))
                .toList();
        return near.size() == 1 ? near.get(0) : own;
    }

    /**
     * The resources whose forecast says something.
     *
     * @return those of the newest line that can have one and have a limit, by number
     */
    List<WatchedResource> withForecast() {
        return all.values().stream()
                .filter(r -> r.isListed && isPresent(r))
                .filter(r -> r.canHaveForecast(window(r)) && r.facts.hasLimit())
                .sorted(Comparator.comparingInt(r -> r.id)).toList();
    }

    /**
     * How many samples of a resource the agent keeps.
     *
     * @param r the resource
     * @return the count, 0 when its record is not known
     */
    long window(WatchedResource r) {
        return r.facts == null ? 0 : plan.samplesIn(r.facts.windowHours(), configuration);
    }

    /**
     * How all resources of this run stand.
     *
     * @param stale whether the newest line is too old
     * @return the resources, most urgent first
     */
    List<Snapshot.Resource> resources(boolean stale) {
        forgetLongGone();
        List<Snapshot.Resource> rows = new ArrayList<>();
        all.values().stream().filter(r -> r.isListed).forEach(r -> rows.add(row(r, stale)));
        rows.sort(ResourceJudge.MOST_URGENT_FIRST);
        return List.copyOf(rows);
    }

    /**
     * The listed resources as the library, and so events, name them.
     *
     * @return the names by number, without those that are not known yet
     */
    Map<Integer, TrendReader.Resource> keys() {
        return all.values().stream().filter(r -> r.isListed && r.key != null)
                .collect(Collectors.toUnmodifiableMap(r -> r.id, r -> r.key));
    }

    private void forgetLongGone() {
        List<WatchedResource> gone = new ArrayList<>(
                all.values().stream().filter(r -> r.isListed && !isPresent(r)).toList());
        if (gone.size() > MOST_ABSENT) {
            gone.sort(Comparator.comparingLong(r -> -r.lastLine));
            gone.subList(MOST_ABSENT, gone.size()).forEach(r -> all.remove(r.id));
        }
    }

    private Snapshot.Resource row(WatchedResource r, boolean stale) {
        r.isShown = true;
        boolean unknown = r.facts != null && r.facts.kind() == ResourceFacts.Kind.UNKNOWN_CAPACITY;
        boolean readable = !unknown || r.awaitsListing || !capacities.hasSource(r.known);
        long window = window(r);
        ResourceJudge.Case c = new ResourceJudge.Case(
                r.facts, r.value, isPresent(r), readable, stale, window, r.headline);
        ResourceState state = ResourceJudge.state(c);
        boolean hasForecast = r.headline != null
                && state != ResourceState.ABSENT && state != ResourceState.NO_LIMIT;
        TrendReader.Headline h = hasForecast ? r.headline : null;
        Double seconds = h == null ? null : secondsToExhaustion(h);
        String disk = r.facts != null && r.facts.isDisk() ? r.known.instance() : null;
        int mount = disk == null ? -1 : disk.indexOf(" /");
        int samples = r.history.usable(r.facts == null ? Integer.MAX_VALUE : window);
        return new Snapshot.Resource(r.id,
                r.facts == null ? "resource " + r.id : Words.ofBytes(r.facts.name()),
                r.known == null || r.known.type() == 1 ? "" : Words.ofBytes(r.known.instance()),
                disk == null ? null : Words.ofBytes(mount < 0 ? disk : disk.substring(0, mount)),
                mount < 0 ? null : Words.ofBytes(disk.substring(mount + 1)),
                value(r, state), r.facts == null ? null : r.facts.amount().orElse(null),
                state, state.words(), ResourceJudge.note(c), samples,
                state == ResourceState.COLLECTING ? firstForecastAt(samples, window) : null,
                seconds, seconds == null ? null : h.time() + Math.round(seconds),
                h == null || h.model().isEmpty() ? null : Words.printable(h.model()),
                h == null || h.hours().isEmpty() ? null : boxed(h.notificationLevel()),
                state == ResourceState.ABSENT ? null : limit(h, r.limit),
                h == null ? null : h.time(), r.history.recent(newestCycle, r.windowSeconds));
    }

    private Double value(WatchedResource r, ResourceState state) {
        boolean counted = r.facts == null || r.facts.kind() != ResourceFacts.Kind.NOT_MEASURED;
        return state != ResourceState.ABSENT && counted && Double.isFinite(r.value) ? r.value : null;
    }

    private Long firstForecastAt(int samples, long window) {
        if (window < SamplePlan.SAMPLES_FOR_FORECAST) {
            return null;
        }
        int missing = Math.max(0, SamplePlan.SAMPLES_FOR_FORECAST - samples);
        return newestCycle + Math.round(missing * cycleSeconds());
    }

    /**
     * The time to exhaustion of a forecast.
     *
     * @param headline the forecast's outcome
     * @return seconds; null for none in sight
     */
    static Double secondsToExhaustion(TrendReader.Headline headline) {
        double hours = headline.hours().orElse(Double.MAX_VALUE);
        return hours < 1e9 ? (Double) (double) Math.round(hours * 3600) : null; // 0.00 is less than 18 s
    }

    /**
     * A number that may be missing.
     *
     * @param value the number
     * @return the number; null when it is missing or none
     */
    static Double boxed(OptionalDouble value) {
        double number = value.orElse(Double.NaN);
        return Double.isFinite(number) ? (Double) number : null;
    }

    /**
     * The limit to show.
     *
     * @param headline the forecast's outcome; may be null
     * @param byMethod the limit before there is a forecast; may be null
     * @return per cent; null for none
     */
    static Double limit(TrendReader.Headline headline, Double byMethod) {
        if (headline == null) {
            return byMethod;
        }
        return headline.limit().isPresent() ? (Double) (double) headline.limit().getAsInt() : null;
    }
}
