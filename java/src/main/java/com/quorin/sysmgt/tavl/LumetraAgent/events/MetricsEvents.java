package com.quorin.sysmgt.tavl.LumetraAgent.events;

import com.fasterxml.jackson.databind.JsonNode;
import com.quorin.sysmgt.tavl.LumetraAgent.TrendReader;
import java.util.HashMap;
import java.util.List;
import java.util.Map;

/** Counts the events of this process. All methods may be called from any thread. */
public final class MetricsEvents {

    /** The types of events that belong to a resource. */
    public static final List<String> TYPES_OF_RESOURCES = List.of("exhaustion", "upperTolerance", "innerTolerance");

    /**
     * Disks that come and go for years cannot fill the memory; events of further names are not counted.
     * Failures have no name and always are.
     */
    private static final int MOST_NAMES = 10_000;

    private record Key(String type, String name, String instance) {}

    private final Map<Key, Long> counts = new HashMap<>();
    private long told;

    /** Counts from zero. */
    public MetricsEvents() {
        // the map is there
    }

    /**
     * Counts an event.
     *
     * @param event the event, as it stands in the file of events
     */
    public synchronized void add(JsonNode event) {
        String type = event.path("type").asText();
        boolean isFatal = type.equals(AgentEvents.FATAL);
        Key key = isFatal ? new Key(type, "", "")
                : new Key(type, event.path("resource").asText(""),
                        instance(event.path("instance").asText("")));
        told++;
        if (isFatal || counts.size() < MOST_NAMES || counts.containsKey(key)) {
            counts.merge(key, 1L, Long::sum);
        }
    }

    private static String instance(String told) {
        return told.equals(AgentEvents.NO_INSTANCE) || told.equals("null") ? "" : told;
    }

    /**
     * How many events there were.
     *
     * @return the count, which changes with every event
     */
    public synchronized long told() {
        return told;
    }

    /**
     * How many failures were told.
     *
     * @return the count
     */
    public synchronized long fatal() {
        return counts.getOrDefault(new Key(AgentEvents.FATAL, "", ""), 0L);
    }

    /**
     * How many events of a type a resource had.
     *
     * @param type     the type
     * @param resource the resource as the library names it
     * @return the count
     */
    public synchronized long of(String type, TrendReader.Resource resource) {
        return counts.getOrDefault(new Key(type, resource.name(), instance(resource.instance())), 0L);
    }
}
