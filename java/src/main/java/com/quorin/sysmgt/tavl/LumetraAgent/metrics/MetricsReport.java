package com.quorin.sysmgt.tavl.LumetraAgent.metrics;

import com.quorin.sysmgt.tavl.LumetraAgent.TrendReader;
import com.quorin.sysmgt.tavl.LumetraAgent.events.Event;
import com.quorin.sysmgt.tavl.LumetraAgent.events.EventCounts;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.LeftOutKind;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.ResourceState;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import java.math.BigDecimal;
import java.util.Arrays;
import java.util.Comparator;
import java.util.HashMap;
import java.util.HashSet;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.function.ToDoubleFunction;
import java.util.stream.Collectors;

/** Everything that the agent measures, as metrics; docs/metrics.md describes them. */
final class MetricsReport {

    private static final double NONE = Double.NaN;
    private static final Map<ResourceState, String> STATES = Arrays.stream(ResourceState.values())
            .collect(Collectors.toMap(state -> state, state -> more("state", state.id())));
    private static final Map<Event.Type, String> TYPES = Event.Type.OF_RESOURCES.stream()
            .collect(Collectors.toMap(type -> type, type -> more("type", type.word())));

    private final MetricsText out;
    private final Snapshot snapshot;
    private final EventCounts events;
    private final List<Snapshot.Resource> resources;
    private final Map<Integer, String> labels;

    private MetricsReport(MetricsText out, Snapshot snapshot, EventCounts events, MetricsNames names) {
        this.out = out;
        this.snapshot = snapshot;
        this.events = events;
        this.resources = snapshot.resources().stream()
                .sorted(Comparator.comparingInt(Snapshot.Resource::id)).toList();
        this.labels = names.of(resources);
    }

    /**
     * Writes all metrics.
     *
     * @param names gives the resources their labels, and remembers which
     */
    static void write(MetricsText out, Snapshot snapshot, EventCounts events, MetricsNames names) {
        MetricsReport report = new MetricsReport(out, snapshot, events, names);
        report.writeResources();
        report.writeForecasts();
        report.writeTrackRecords();
        report.writeEvents();
        report.writeAgent();
        out.finish();
    }

    private static String more(String label, String value) {
        return "," + MetricsText.labels(label, value);
    }

    private void gauge(String name, String unit, String help, ToDoubleFunction<Snapshot.Resource> value) {
        out.family(name, MetricsText.Type.GAUGE, unit, help);
        resources.forEach(r -> out.sample(labels.get(r.id()), value.applyAsDouble(r)));
    }

    private void writeResources() {
        gauge("lumetra_resource_used_ratio", "ratio",
                "Share of the limit in use; NaN when it is not known.", r -> perCent(r.reading().value()));
        gauge("lumetra_resource_time_to_exhaustion_seconds", "seconds",
                "Time from the newest cycle to the forecast exhaustion; +Inf for none in sight, "
                        + "0 at the limit, NaN without a forecast.", this::timeToExhaustion);
        gauge("lumetra_resource_notification_level_ratio", "ratio",
                "Share of the limit from which on exhaustion events go out; NaN for none.",
                r -> perCent(r.forecast().notificationLevel()));
        out.family("lumetra_resource_state", MetricsText.Type.GAUGE, "",
                "How the resource stands: 1 for the present state, 0 for every other.");
        for (Snapshot.Resource r : resources) {
            String its = labels.get(r.id());
            for (ResourceState state : ResourceState.values()) {
                out.sample(its, STATES.get(state), r.state() == state ? 1 : 0);
            }
        }
    }

    /** A share with the digits of its percentage, of which those of a {@link Snapshot} have four behind the point. */
    static double perCent(Double value) {
        if (value == null) {
            return NONE;
        }
        double tenThousandths = Math.rint(value * 1e4);
        return tenThousandths / 1e4 == value && Math.abs(tenThousandths) < 1e15 ? tenThousandths / 1e6
                : BigDecimal.valueOf(value).movePointLeft(2).doubleValue();
    }

    private double timeToExhaustion(Snapshot.Resource r) {
        Long newest = snapshot.agent().newestCycleAt();
        return switch (r.state()) {
            case AT_LIMIT -> 0;
            case UNREADABLE, COLLECTING, ABSENT, NO_LIMIT -> NONE;
            case NO_EXHAUSTION, FORECAST, PENDING, STALE -> {
                if (snapshot.measures().atLimit().contains(r.id())) {
                    yield 0; // an agent that stalls, as on a full machine, makes no room
                }
                if (r.forecast().forecastAt() == null || newest == null) {
                    yield NONE;
                }
                yield r.forecast().exhaustionAt() == null ? Double.POSITIVE_INFINITY
                        : Math.max(0, r.forecast().exhaustionAt() - newest);
            }
        };
    }

    private void writeForecasts() {
        out.family("lumetra_forecast_model_info", MetricsText.Type.INFO, "",
                "The model that was chosen for the newest forecast; none without one.");
        Map<String, String> models = new HashMap<>();
        for (Snapshot.Resource r : resources) {
            String model = r.forecast().model() == null ? "none" : r.forecast().model();
            out.sample(labels.get(r.id()), models.computeIfAbsent(model, m -> more("model", m)), 1);
        }
        gauge("lumetra_forecast_timestamp_seconds", "seconds",
                "When the newest forecast was made; NaN without one.",
                r -> r.forecast().forecastAt() == null ? NONE : r.forecast().forecastAt());
    }

    /** What came of the announcements that have ended. */
    private void writeTrackRecords() {
        out.family("lumetra_resource_announcements", MetricsText.Type.GAUGE, "",
                "Announcements of an exhaustion that have ended, those of earlier runs too, by their outcome.");
        for (Snapshot.Resource r : resources) {
            Snapshot.Track track = r.track();
            outcome(r, "reached", track.reached());
            outcome(r, "freed", track.freed());
            outcome(r, "levelled_off", track.levelledOff());
        }
        gauge("lumetra_resource_announcements_levelled_off_in_a_row", "",
                "How many of the newest announcements levelled off, one after the other.",
                r -> r.track().levelledOffInARow());
        gauge("lumetra_resource_announcement_error_seconds", "seconds",
                "How far off the announced moment was in the median; NaN when no limit was reached.",
                r -> r.track().medianErrorHours() == null ? NONE : Math.rint(r.track().medianErrorHours() * 3600));
    }

    private void outcome(Snapshot.Resource r, String outcome, int count) {
        out.sample(labels.get(r.id()) + "," + MetricsText.labels("outcome", outcome), count);
    }

    /** Events know names only: those of two resources with the same names all count for the first. */
    private void writeEvents() {
        out.family("lumetra_events_total", MetricsText.Type.COUNTER, "",
                "Events since the start of the process; failures (fatal) belong to no resource.");
        Set<TrendReader.Resource> counted = new HashSet<>();
        for (Snapshot.Resource r : resources) {
            TrendReader.Resource key = snapshot.measures().keys().get(r.id());
            boolean isFirst = counted.add(key);
            for (Event.Type type : Event.Type.OF_RESOURCES) {
                out.sample(labels.get(r.id()), TYPES.get(type), isFirst ? events.of(type, key) : 0);
            }
        }
        out.sample(MetricsText.labels("resource", "", "device", "", "mountpoint", "", "type",
                Event.Type.FATAL.word()), events.fatal());
    }

    private void writeAgent() {
        Snapshot.Agent agent = snapshot.agent();
        Snapshot.Measures measures = snapshot.measures();
        out.family("lumetra_agent_cycles_total", MetricsText.Type.COUNTER, "",
                "Completed cycles since the start of the process.");
        out.sample("", agent.cycles());
        out.family("lumetra_agent_cycle_seconds", MetricsText.Type.SUMMARY, "seconds",
                "Duration of the cycles, without the pause between them.");
        out.part("_sum", Math.round(measures.cycleSeconds() * 1e6) / 1e6);
        out.part("_count", agent.cycles());
        writeDisks();
        agentGauge("lumetra_agent_archive_bytes", "bytes", "Size of the archive.", measures.archiveBytes());
        agentGauge("lumetra_agent_start_time_seconds", "seconds", "When the process started its work.",
                agent.startedAt());
        agentGauge("lumetra_agent_newest_cycle_timestamp_seconds", "seconds",
                "Time of the newest cycle; NaN before the first.",
                agent.newestCycleAt() == null ? NONE : agent.newestCycleAt());
        out.family("lumetra_agent_info", MetricsText.Type.INFO, "", "The version of the agent.");
        out.sample(MetricsText.labels("version", agent.version()), 1);
    }

    private void writeDisks() {
        agentGauge("lumetra_agent_disks_watched", "", "Disks that the agent watches, each counted once.",
                resources.stream().filter(r -> r.identity().device() != null && r.state() != ResourceState.ABSENT)
                        .map(r -> r.identity().instance()).distinct().count());
        out.family("lumetra_agent_disks_left_out", MetricsText.Type.GAUGE, "",
                "Disks that the agent leaves out, by the kind of the rule.");
        for (LeftOutKind kind : LeftOutKind.values()) {
            if (kind != LeftOutKind.OTHER) {
                out.sample(MetricsText.labels("rule", kind.id()),
                        snapshot.leftOut().stream().filter(l -> l.kind() == kind).count());
            }
        }
    }

    private void agentGauge(String name, String unit, String help, double value) {
        out.family(name, MetricsText.Type.GAUGE, unit, help);
        out.sample("", value);
    }
}
