package com.quorin.sysmgt.tavl.LumetraAgent;

import com.fasterxml.jackson.databind.JsonNode;
import java.time.Duration;
import java.util.List;
import java.util.Map;
import java.util.Optional;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.TimeoutException;
import java.util.function.BooleanSupplier;
import java.util.function.LongSupplier;

/**
 * Watches the agent that runs in this process, from its archive and its forecasts. A thread of its own,
 * "lumetra-view", does all the work; those who ask are given finished objects.
 *
 * <p>Made and started before the agent, so that it sees the first cycle; closed after the agent has ended.
 */
final class AgentWatch implements AgentView, AutoCloseable {

    private static final Duration POLL_EVERY = Duration.ofMillis(250);
    private static final long BETWEEN_SNAPSHOTS = Duration.ofMillis(950).toNanos();
    private static final long CULPRITS_LAST = Duration.ofSeconds(1).toNanos();
    private static final long LONG_WAIT = Duration.ofMillis(500).toNanos();
    private static final int HISTORY_BYTES = 16 * 1024 * 1024;
    private static final int MOST_PENDING = 64;
    private static final int MOST_TRIES = 3;
    private static final int STALE_PERIODS = 3;
    private static final double STALE_SECONDS = 5;
    private static final double HEADLINE_SECONDS = 60;

    /**
     * The clocks, and how long a request waits, so that a test can stand in for time.
     *
     * @param millis   the time of day, see {@link System#currentTimeMillis}
     * @param nanoTime see {@link System#nanoTime}
     * @param patience how long a request for a chart waits at most
     */
    record Timing(LongSupplier millis, LongSupplier nanoTime, Duration patience) {

        /**
         * The real time.
         *
         * @return the timing
         */
        static Timing real() {
            return new Timing(System::currentTimeMillis, System::nanoTime, Duration.ofSeconds(1));
        }
    }

    private record CachedReport(long nanoTime, CulpritReport report) {}

    private final AgentConfiguration configuration;
    private final String home;
    private final String version;
    private final BooleanSupplier running;
    private final EventHistory events;
    private final Timing timing;
    private final long startedAt;
    private final SamplePlan plan;
    private final WatchedFleet fleet;
    private final ArchiveTail tail;
    private final MetricsCycles measured;
    private final LockWindow window;
    private final ForecastDesk desk;
    private final Thread thread = new Thread(this::work, "lumetra-view");
    private final Map<Integer, CompletableFuture<TrendView>> pending = new ConcurrentHashMap<>();
    private final Map<Integer, CachedReport> reports = new ConcurrentHashMap<>();
    private final Object bell = new Object();
    private boolean rung;
    private volatile boolean closed;
    private volatile Snapshot snapshot;
    private boolean hasNewLine;
    private long newLineSeen;
    private int triesLeft;
    private boolean isDue;
    private long snapshotMade;
    private String lastFailure = "";

    /**
     * A watch on the agent of this process. Remembers where the archive ends, so it is made before the agent
     * starts.
     *
     * @param configuration the agent's configuration
     * @param home          the agent's home, as it is shown
     * @param version       the agent's version, as it is shown
     * @param running       whether the agent runs: false after its end
     * @param reader        reads the forecasts
     * @param events        the events; whoever makes it has {@link AgentEvents#tellTo} feed it
     * @param capacities    asked for the machine's capacities, now and then
     */
    AgentWatch(AgentConfiguration configuration, String home, String version, BooleanSupplier running,
            TrendReader reader, EventHistory events, Capacities capacities) {
        this(configuration, home, version, running, reader, events, capacities, Timing.real());
    }

    /**
     * A watch with given clocks.
     *
     * @param configuration the agent's configuration
     * @param home          the agent's home, as it is shown
     * @param version       the agent's version, as it is shown
     * @param running       whether the agent runs
     * @param reader        reads the forecasts
     * @param events        the events
     * @param capacities    asked for the machine's capacities, now and then
     * @param timing        the clocks
     */
    AgentWatch(AgentConfiguration configuration, String home, String version, BooleanSupplier running,
            TrendReader reader, EventHistory events, Capacities capacities, Timing timing) {
        this.configuration = configuration;
        this.home = Words.printable(home);
        this.version = version;
        this.running = running;
        this.events = events;
        this.timing = timing;
        this.startedAt = epochSeconds();
        List<DeclaredResource> declared = DeclarationFile.read(FileText.path(configuration.resourceText()));
        this.plan = SamplePlan.of(configuration, declared);
        this.fleet = new WatchedFleet(configuration, declared, capacities);
        this.tail = new ArchiveTail(FileText.path(configuration.archive()), fleet::take);
        this.measured = new MetricsCycles(plan.pause());
        this.window = new LockWindow(plan.pause(), POLL_EVERY);
        this.desk = new ForecastDesk(reader, window, !plan.pause().isZero(), timing.nanoTime());
        this.snapshot = new Snapshot(agent(false), List.of());
        thread.setDaemon(true);
    }

    /** Starts to watch. */
    void start() {
        thread.start();
    }

    /** Stops watching; what was seen last may still be asked for. */
    @Override
    public void close() {
        closed = true;
        ring();
        try {
            thread.join(Duration.ofSeconds(1).toMillis());
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }

    @Override
    public Snapshot snapshot() {
        return snapshot;
    }

    @Override
    public Optional<TrendView> trend(int id) {
        WatchedResource resource = fleet.shown(id);
        if (resource == null) {
            return Optional.empty();
        }
        WatchedResource.Chart chart = resource.chart;
        if (chart != null && chart.cycle() == fleet.newestCycle()) {
            return Optional.of(chart.view());
        }
        return Optional.of(request(id).flatMap(this::await).orElseGet(() -> lastKnown(resource)));
    }

    private Optional<CompletableFuture<TrendView>> request(int id) {
        CompletableFuture<TrendView> asked = closed ? null : pending.get(id);
        if (asked == null && !closed && pending.size() < MOST_PENDING) {
            asked = pending.computeIfAbsent(id, i -> new CompletableFuture<>());
            ring();
        }
        return Optional.ofNullable(asked);
    }

    private Optional<TrendView> await(CompletableFuture<TrendView> asked) {
        try {
            return Optional.of(asked.get(timing.patience().toMillis(), TimeUnit.MILLISECONDS));
        } catch (TimeoutException | ExecutionException e) {
            return Optional.empty();
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
            return Optional.empty();
        }
    }

    private void ring() {
        synchronized (bell) {
            rung = true;
            bell.notifyAll();
        }
    }

    @Override
    public Optional<CulpritReport> culprits(int id) {
        WatchedResource resource = fleet.shown(id);
        if (resource == null) {
            return Optional.empty();
        }
        long now = timing.nanoTime().getAsLong();
        CachedReport cached = reports.compute(id, (i, old) ->
                old != null && now - old.nanoTime < CULPRITS_LAST ? old : new CachedReport(
                        now, CulpritFile.read(id, resource.displayName, configuration.homeDirectory())));
        return Optional.of(cached.report);
    }

    @Override
    public List<JsonNode> events(int limit) {
        return events.newest(limit);
    }

    @Override
    public Optional<List<JsonNode>> events(int id, int limit) {
        WatchedResource resource = fleet.shown(id);
        if (resource == null) {
            return Optional.empty();
        }
        TrendReader.Resource key = resource.key;
        return Optional.of(key == null ? List.of() : events.newestOf(key.name(), key.instance(), limit));
    }

    @Override
    public MetricsEvents eventCounts() {
        return events.counts();
    }

    private void work() {
        boolean prepared = false;
        while (!closed) {
            try {
                if (!prepared) {
                    prepared = true;
                    prepare();
                }
                round();
            } catch (RuntimeException | Error e) {
                tell(e);
            }
            sleep();
        }
        pending.forEach((id, asked) -> asked.completeExceptionally(new IllegalStateException("closed")));
    }

    /** A round that fails leaves what was seen last; the next may succeed. */
    private void tell(Throwable problem) {
        try {
            String failure = Words.printable(problem.toString());
            if (!failure.equals(lastFailure)) {
                System.err.println("The agent's state cannot be shown for now: " + failure);
            }
            lastFailure = failure;
        } catch (OutOfMemoryError e) {
            // no memory for words either; the next round may have some
        }
    }

    private void sleep() {
        synchronized (bell) {
            try {
                if (!rung) {
                    bell.wait((hasNewLine ? LockWindow.AFTER_LINE : POLL_EVERY).toMillis());
                }
                rung = false;
            } catch (InterruptedException e) {
                closed = true; // nobody interrupts this thread but to end it
            }
        }
    }

    /** Takes up the history of earlier runs. */
    void prepare() {
        tail.readBack(HISTORY_BYTES, WatchedFleet.SAMPLES, fleet::takeHistory);
        fleet.askCapacities(timing.nanoTime().getAsLong());
    }

    /** Looks at the archive and does what is due. */
    void round() {
        long lines = tail.poll();
        measured.take(lines, tail.written());
        if (lines > 0) {
            noteLine();
        }
        long now = timing.nanoTime().getAsLong();
        boolean mayShow = snapshotMade == 0 || now - snapshotMade >= BETWEEN_SNAPSHOTS;
        if (hasNewLine && mayShow && now - newLineSeen >= LockWindow.AFTER_LINE.toNanos()) {
            describe(now);
        }
        isDue |= snapshotMade != 0 && !hasNewLine && fleet.takeCapacities();
        if (mayShow && (isDue || !hasNewLine && isOutdated())) {
            show();
        }
        serve();
    }

    private void noteLine() {
        long now = timing.nanoTime().getAsLong();
        window.lineSeen(now);
        if (!hasNewLine) {
            newLineSeen = now;
        }
        hasNewLine = fleet.cycles() > 0;
        triesLeft = MOST_TRIES;
    }

    private void describe(long now) {
        triesLeft--;
        boolean done = false;
        try {
            fleet.describe(desk::names, now);
            done = desk.readHeadlines(fleet.withForecast(), fleet.newestCycle(), triesLeft == 0);
        } finally {
            if (done || triesLeft == 0 || !desk.isOpen()) {
                hasNewLine = false;
                isDue = true;
            }
            // whoever waits for a busy agent's forecasts sees its samples meanwhile
            isDue |= timing.nanoTime().getAsLong() - now >= LONG_WAIT;
        }
    }

    /** Whether the snapshot says something of the agent that is no longer so. */
    private boolean isOutdated() {
        return snapshot.agent().stale() != isStale() || snapshot.agent().running() != running.getAsBoolean();
    }

    private void show() {
        boolean stale = isStale();
        dropOldHeadlines();
        List<Snapshot.Resource> rows = fleet.resources(stale);
        snapshot = new Snapshot(agent(stale), rows, new Snapshot.Measures(
                measured.count(), measured.sum(), tail.size(), fleet.keys()));
        isDue = false;
        snapshotMade = timing.nanoTime().getAsLong();
    }

    private void dropOldHeadlines() {
        double oldest = fleet.newestCycle()
                - Math.max(HEADLINE_SECONDS, STALE_PERIODS * fleet.cycleSeconds());
        fleet.withForecast().stream().filter(r -> r.headline != null && r.headline.time() < oldest)
                .forEach(r -> r.headline = null);
    }

    private boolean isStale() {
        if (fleet.cycles() == 0) {
            return false;
        }
        double age = timing.millis().getAsLong() / 1000.0 - fleet.newestCycle();
        boolean old = age > STALE_PERIODS * fleet.cycleSeconds() && age >= STALE_SECONDS;
        return old || !running.getAsBoolean();
    }

    private Snapshot.Agent agent(boolean stale) {
        return new Snapshot.Agent(version, home, startedAt, epochSeconds(), running.getAsBoolean(), stale,
                fleet.cycles(), fleet.cycles() == 0 ? null : (Long) fleet.newestCycle(),
                plan.pause().toSeconds(), SamplePlan.SAMPLES_FOR_FORECAST,
                configuration.minForecastHours(), configuration.maxForecastHours(), fleet.notice());
    }

    private long epochSeconds() {
        return timing.millis().getAsLong() / 1000;
    }

    /** Answers the requests for charts that can be answered now. */
    private void serve() {
        long from = timing.nanoTime().getAsLong();
        for (Map.Entry<Integer, CompletableFuture<TrendView>> entry : pending.entrySet()) {
            if (timing.nanoTime().getAsLong() - from >= ForecastDesk.LONGEST_SERIES) {
                return; // the archive is looked at meanwhile
            }
            boolean answered = true;
            try {
                TrendView chart = answer(entry.getKey());
                answered = chart != null && entry.getValue().complete(chart);
            } finally {
                if (answered) {
                    pending.remove(entry.getKey());
                    entry.getValue().completeExceptionally(new IllegalStateException("no chart"));
                }
            }
        }
    }

    /** The chart, or null when it must wait for the next pause of the agent. */
    private TrendView answer(int id) {
        WatchedResource resource = fleet.shown(id);
        if (resource == null) {
            return Charts.of(id, new TrendView.Curve(new double[0], new double[0]), null);
        }
        if (!resource.canHaveForecast(fleet.window(resource))) {
            TrendView view = history(resource);
            resource.keep(fleet.newestCycle(), view);
            return view;
        }
        if (isStale()) {
            return lastKnown(resource);
        }
        if (!desk.isOpen()) {
            return null;
        }
        desk.readChart(resource);
        return lastKnown(resource);
    }

    private TrendView lastKnown(WatchedResource resource) {
        WatchedResource.Chart chart = resource.chart;
        return chart != null ? chart.view() : history(resource);
    }

    private TrendView history(WatchedResource resource) {
        long from = fleet.newestCycle() - resource.windowSeconds;
        return Charts.of(resource.id, resource.history.since(from), resource.limit);
    }
}
