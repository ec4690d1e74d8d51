package com.quorin.sysmgt.tavl.LumetraAgent.watch;

import com.quorin.sysmgt.tavl.LumetraAgent.TrendReader;
import com.quorin.sysmgt.tavl.LumetraAgent.events.AgentEvents;
import com.quorin.sysmgt.tavl.LumetraAgent.events.Event;
import com.quorin.sysmgt.tavl.LumetraAgent.events.EventCounts;
import com.quorin.sysmgt.tavl.LumetraAgent.events.EventGroup;
import com.quorin.sysmgt.tavl.LumetraAgent.events.EventHistory;
import com.quorin.sysmgt.tavl.LumetraAgent.files.ArchiveHistory;
import com.quorin.sysmgt.tavl.LumetraAgent.files.ArchiveLine;
import com.quorin.sysmgt.tavl.LumetraAgent.files.CulpritFile;
import com.quorin.sysmgt.tavl.LumetraAgent.files.CulpritReport;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.CounterTable;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Curves;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Feed;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Publication;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.ResourceFacts;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.ResourceNames;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.RunResource;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.RunState;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.TrendView;
import com.quorin.sysmgt.tavl.LumetraAgent.score.ScoreBook;
import com.quorin.sysmgt.tavl.LumetraAgent.score.TrackRecord;
import com.quorin.sysmgt.tavl.LumetraAgent.text.FileText;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.time.Duration;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.Optional;
import java.util.concurrent.ConcurrentHashMap;
import java.util.function.BooleanSupplier;
import java.util.function.Consumer;
import java.util.function.LongSupplier;

/**
 * What the page shows of the agent that runs in this process, from what the library publishes. Publications are
 * only taken up as they come; whoever asks makes the answer, if nobody has before.
 *
 * <p>All methods may be called from any thread.
 */
public final class AgentWatch implements AgentView, Consumer<Publication> {

    /** After so many periods without a cycle nothing is known of the present. */
    static final int STALE_PERIODS = 3;

    private static final double STALE_SECONDS = 5;
    private static final long CULPRITS_LAST = Duration.ofSeconds(1).toNanos();
    private static final int HISTORY_BYTES = 16 * 1024 * 1024;
    private static final int KEPT_CHARTS = 32;

    /** The clocks, so that a test can turn them: the time of day in milliseconds, and a time that never jumps. */
    public record Timing(LongSupplier millis, LongSupplier nanoTime) {

        public static Timing real() {
            return new Timing(System::currentTimeMillis, System::nanoTime);
        }
    }

    private record CachedReport(long nanoTime, CulpritReport report) {}

    private record CachedChart(long cycle, TrendView chart) {}

    private final String home;
    private final String version;
    private final BooleanSupplier running;
    private final Feed feed;
    private final EventHistory events;
    private final ScoreBook score;
    private final Timing timing;
    private final long startedAt;
    private final Map<Integer, CachedReport> reports = new ConcurrentHashMap<>();

    // guarded by this object
    private final WatchedFleet fleet = new WatchedFleet();
    private final Map<Integer, CachedChart> charts = new LinkedHashMap<>(16, 0.75f, true);
    private boolean hasHistory;
    private RunState state;
    private boolean isOver;
    private long arrived;
    private Snapshot shown;
    private String warning;

    /**
     * A watch that nothing has been published to yet. Made before the agent starts: the lines of the archive that
     * are older are those of earlier runs.
     *
     * @param running whether the agent runs: false after its end
     * @param score   what came of earlier announcements; whoever makes it feeds it
     * @param events  whoever makes it has {@link AgentEvents#tellTo} feed it
     */
    public AgentWatch(String home, String version, BooleanSupplier running, Feed feed, EventHistory events,
            ScoreBook score, Timing timing) {
        this.home = Words.printable(home);
        this.version = version;
        this.running = running;
        this.feed = feed;
        this.events = events;
        this.score = score;
        this.timing = timing;
        this.startedAt = epochSeconds();
    }

    /** Has a sentence stand as the notice whenever there is nothing else to notice. */
    public synchronized void warn(String sentence) {
        warning = sentence;
        shown = null;
    }

    /** Takes up a publication. When that fails, the same one may be handed over again. */
    @Override
    public void accept(Publication publication) {
        publication.state().ifPresent(this::readHistoryOnce);
        takeUp(publication);
    }

    private void readHistoryOnce(RunState first) {
        synchronized (this) {
            if (hasHistory) {
                return;
            }
            hasHistory = true;
        }
        ArchiveHistory.read(FileText.path(first.archive().file()), startedAt, HISTORY_BYTES,
                WatchedFleet.SAMPLES, this::takeHistory);
    }

    private synchronized void takeUp(Publication publication) {
        isOver = publication.state().isEmpty();
        shown = null;
        if (!isOver) {
            RunState newest = publication.state().get();
            if (publication.cycles() > 0) {
                fleet.take(publication.cycles(), newest);
                reports.keySet().removeIf(id -> fleet.listed(id) == null); // long gone
                arrived = timing.nanoTime().getAsLong();
            }
            state = newest;
        }
    }

    private synchronized void takeHistory(ArchiveLine line) {
        fleet.takeHistory(line);
    }

    @Override
    public synchronized Snapshot snapshot() {
        boolean isRunning = isRunning();
        boolean isStale = isStale(isRunning);
        if (shown == null || shown.agent().running() != isRunning || shown.agent().stale() != isStale) {
            shown = new Snapshot(agent(isRunning, isStale), fleet.rows(isStale, this::track), leftOut(), measures());
        }
        return shown;
    }

    private Snapshot.Track track(TrendReader.Resource key, RunResource.Notification notification) {
        TrackRecord known = score.of(key.name(), key.instance());
        long now = epochSeconds();
        double error = known.medianErrorHours();
        return new Snapshot.Track(known.announcements(), known.reached(), known.freed(), known.levelledOff(),
                known.levelledOffInARow(), Double.isFinite(error) ? (Double) Charts.rounded(error) : null,
                known.words(score.since(now), now, notification.since() != 0));
    }

    private boolean isRunning() {
        return running.getAsBoolean() && !isOver;
    }

    private boolean isStale(boolean isRunning) {
        if (fleet.cycles() == 0) {
            return false;
        }
        double age = (timing.nanoTime().getAsLong() - arrived) / 1e9;
        return !isRunning || age > STALE_PERIODS * state.secondsPerCycle() && age >= STALE_SECONDS;
    }

    private Snapshot.Agent agent(boolean isRunning, boolean isStale) {
        if (state == null) {
            return new Snapshot.Agent(version, home, startedAt, epochSeconds(), isRunning, isStale, 0, null, 0, 0,
                    0, 0, null, 0);
        }
        boolean hasCycle = fleet.cycles() > 0;
        RunState.Settings settings = state.settings();
        return new Snapshot.Agent(version, home, startedAt, epochSeconds(), isRunning, isStale, fleet.cycles(),
                hasCycle ? (Long) state.cycle().time() : null, settings.pause().toSeconds(),
                settings.neededSamples(), settings.minForecastHours(), settings.maxForecastHours(),
                hasCycle ? state.notice().orElse(warning) : null, state.archive().resumed().samples());
    }

    private List<Snapshot.LeftOut> leftOut() {
        return state == null ? List.of() : state.leftOut().stream().map(Snapshot.LeftOut::of).toList();
    }

    private Snapshot.Measures measures() {
        return state == null ? null : new Snapshot.Measures(
                state.cycle().total(), Math.max(0, state.archive().bytes()), fleet.keys(), fleet.atLimit());
    }

    private long epochSeconds() {
        return timing.millis().getAsLong() / 1000;
    }

    @Override
    public Optional<TrendView> trend(int id) {
        long cycle;
        synchronized (this) {
            CachedChart known = charts.get(id);
            cycle = fleet.cycles(); // which may have passed by when the curves are there
            if (fleet.listed(id) == null) {
                return Optional.empty();
            }
            if (known != null && known.cycle == cycle) {
                return Optional.of(known.chart);
            }
        }
        Optional<Curves> curves = feed.curves(id); // which takes a lock of the library's: not under this one
        synchronized (this) {
            return Optional.ofNullable(fleet.listed(id)).map(resource -> chart(id, resource, curves, cycle));
        }
    }

    /**
     * Makes a chart.
     *
     * @param cycle the newest before the curves were asked for
     */
    private TrendView chart(int id, WatchedResource resource, Optional<Curves> curves, long cycle) {
        if (curves.isEmpty() && charts.containsKey(id)) {
            return charts.get(id).chart; // the last that was known of what is gone
        }
        RunResource newest = resource.newest();
        Double limit = ResourceFacts.of(newest).limit();
        TrendView.Curve kept = curves.map(Curves::samples).orElse(TrendView.Curve.EMPTY);
        TrendView chart = curves.flatMap(Curves::forecast).filter(f -> fleet.counts(f.outcome()))
                .map(f -> Charts.ofForecast(id, f, kept, limit, curves.get().announcements()))
                .orElseGet(() -> Charts.ofHistory(id, resource.history().between(
                        fleet.windowStart(newest), kept.length() == 0 ? Double.MAX_VALUE : kept.times()[0]),
                        kept, limit));
        charts.put(id, new CachedChart(cycle, chart));
        if (charts.size() > KEPT_CHARTS) {
            charts.remove(charts.keySet().iterator().next());
        }
        return chart;
    }

    private synchronized Optional<ResourceNames> names(int id) {
        return Optional.ofNullable(fleet.listed(id)).map(WatchedResource::names);
    }

    @Override
    public Optional<CulpritReport> culprits(int id) {
        String name;
        String directory;
        synchronized (this) {
            WatchedResource resource = fleet.listed(id);
            if (resource == null) {
                return Optional.empty();
            }
            name = resource.newest().identity().displayName();
            directory = state.settings().home();
        }
        long now = timing.nanoTime().getAsLong();
        return Optional.of(reports.compute(id, (i, old) -> old != null && now - old.nanoTime < CULPRITS_LAST
                ? old : new CachedReport(now, read(id, name, directory))).report);
    }

    private static CulpritReport read(int id, String name, String directory) {
        Optional<CounterTable.Report> about = CounterTable.current().reportOn(name);
        return CulpritFile.read(id, name, directory, about.map(CounterTable.Report::measure).orElse(null),
                about.map(CounterTable.Report::words).orElse(null));
    }

    @Override
    public List<Event> events(int limit) {
        return events.newest(limit);
    }

    @Override
    public Optional<List<Event>> events(int id, int limit) {
        return names(id).map(n -> events.newestOf(n.key().name(), n.key().instance(), limit));
    }

    @Override
    public List<EventGroup> eventGroups(int limit) {
        return events.newestGroups(limit);
    }

    @Override
    public Optional<List<EventGroup>> eventGroups(int id, int limit) {
        return names(id).map(n -> events.newestGroupsOf(n.key().name(), n.key().instance(), limit));
    }

    @Override
    public EventCounts eventCounts() {
        return events.counts();
    }
}
