package com.quorin.sysmgt.tavl.LumetraAgent.watch;

import com.quorin.sysmgt.tavl.LumetraAgent.TrendReader;
import com.quorin.sysmgt.tavl.LumetraAgent.api.JsonApi;
import com.quorin.sysmgt.tavl.LumetraAgent.events.Event;
import com.quorin.sysmgt.tavl.LumetraAgent.events.EventCounts;
import com.quorin.sysmgt.tavl.LumetraAgent.events.EventGroup;
import com.quorin.sysmgt.tavl.LumetraAgent.files.Culprit;
import com.quorin.sysmgt.tavl.LumetraAgent.files.CulpritReport;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.LeftOutKind;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.ResourceState;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.TrendView;
import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.UncheckedIOException;
import java.util.ArrayList;
import java.util.List;
import java.util.Optional;
import java.util.Set;
import java.util.stream.Collectors;

/** An agent that shows what a test puts into it. */
public class FakeView implements AgentView {

    /** A name with everything that has ever broken a parser. */
    public static final String HOSTILE =
            "</script><img src=x> \"'\\ \u202e\u2028 \ud83d\ude00 %n $(x) `y` \u00e9\u4e2d" + "x".repeat(300);

    public volatile Snapshot snapshot = snapshot(List.of(resource(1, "PercentSwapSpaceUsed", "", 12.5),
            resource(7, "PercentFreeSpaceUsed", HOSTILE, 99.0)));
    public volatile TrendView trend = new TrendView(7, "forecast", 1000L, "Linear", 3600.0, 50.0, 100.0,
            new TrendView.Curve(new double[] {900, 1000}, new double[] {40, 41}),
            new TrendView.Curve(new double[] {1000, 4600}, new double[] {41, 100}));
    public volatile Throwable failure;
    public final List<Event> events = new ArrayList<>();
    public final EventCounts counts = new EventCounts();

    public FakeView() {
        for (int i = 0; i < 1500; i++) {
            events.add(failure(1000 - i, HOSTILE));
        }
    }

    /** An object of the JSON interface as it is sent. */
    public static byte[] json(Object shown) {
        ByteArrayOutputStream out = new ByteArrayOutputStream();
        try {
            JsonApi.write(shown, out);
        } catch (IOException e) {
            throw new UncheckedIOException(e);
        }
        return out.toByteArray();
    }

    public static Snapshot.Resource resource(int id, String name, String instance, Double value) {
        return new Snapshot.Resource(new Snapshot.Identity(id, name, instance, null, null, "counter", null),
                new Snapshot.Reading(value, "95.7 GiB", 100.0, 200,
                        new Snapshot.Recent(0, 60, new ArrayList<>(List.of(1.0, 2.0)))),
                new Snapshot.Standing(ResourceState.FORECAST, ResourceState.FORECAST.words(), null, null),
                new Snapshot.Forecast(null, 3600.0, 4600L, "Linear", 50.0, 1000L));
    }

    public static Snapshot snapshot(List<Snapshot.Resource> resources) {
        return new Snapshot(new Snapshot.Agent("1.0", "/home", 1, 2, true, false, 3, 4L, 5.0, 200, 0, 24, null, 0),
                resources, List.of(new Snapshot.LeftOut(HOSTILE, "it cannot be read",
                        LeftOutKind.UNREADABLE, "unclear")),
                new Snapshot.Measures(0, 0, resources.stream().collect(Collectors.toMap(Snapshot.Resource::id,
                        r -> new TrendReader.Resource(r.identity().resource(), r.identity().instance()),
                        (first, second) -> first)), Set.of()));
    }

    public static Event failure(long epochSeconds, String message) {
        return new Event.Failure(new Event.Moment("2026-11-21T06:00:00.000Z", epochSeconds), message);
    }

    private boolean has(int id) {
        return snapshot.resources().stream().anyMatch(r -> r.id() == id);
    }

    @Override
    public Snapshot snapshot() {
        if (failure instanceof Error error) {
            throw error;
        }
        if (failure != null) {
            throw (RuntimeException) failure;
        }
        return snapshot;
    }

    @Override
    public Optional<TrendView> trend(int id) {
        return has(id) ? Optional.of(trend) : Optional.empty();
    }

    @Override
    public Optional<CulpritReport> culprits(int id) {
        return has(id)
                ? Optional.of(new CulpritReport(id, "descriptors", "descriptors", 9L,
                        List.of(new Culprit(HOSTILE, 2, 3))))
                : Optional.empty();
    }

    @Override
    public List<Event> events(int limit) {
        return List.copyOf(events.subList(0, Math.min(limit, events.size())));
    }

    @Override
    public Optional<List<Event>> events(int id, int limit) {
        return has(id) ? Optional.of(events(limit)) : Optional.empty();
    }

    @Override
    public List<EventGroup> eventGroups(int limit) {
        return events(limit).stream().map(event -> new EventGroup(event, 3, 700)).toList();
    }

    @Override
    public Optional<List<EventGroup>> eventGroups(int id, int limit) {
        return has(id) ? Optional.of(eventGroups(limit)) : Optional.empty();
    }

    @Override
    public EventCounts eventCounts() {
        return counts;
    }
}
