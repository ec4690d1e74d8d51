package com.quorin.sysmgt.tavl.LumetraAgent.events;

import com.quorin.sysmgt.tavl.LumetraAgent.TrendReader;
import java.util.HashMap;
import java.util.Map;

/** Counts the events of this process. All methods may be called from any thread. */
public final class EventCounts {

    /**
     * Disks that come and go for years cannot fill the memory; events of further names are not counted.
     * Failures have no name and always are.
     */
    private static final int MOST_NAMES = 10_000;

    private record Key(Event.Type type, Event.Subject subject) {}

    private final Map<Key, Long> counts = new HashMap<>();
    private long told;

    public synchronized void add(Event event) {
        boolean isFatal = event.type() == Event.Type.FATAL;
        Key key = new Key(event.type(), event.subject().plain());
        told++;
        if (isFatal || counts.size() < MOST_NAMES || counts.containsKey(key)) {
            counts.merge(key, 1L, Long::sum);
        }
    }

    /** How many events there were: a count that changes with every event. */
    public synchronized long told() {
        return told;
    }

    /** How many failures were told. */
    public synchronized long fatal() {
        return counts.getOrDefault(new Key(Event.Type.FATAL, Event.Subject.NONE.plain()), 0L);
    }

    /** How many events of a type a resource had, by the library's names for it. */
    public synchronized long of(Event.Type type, TrendReader.Resource resource) {
        return counts.getOrDefault(new Key(type, new Event.Subject(resource.name(), resource.instance()).plain()), 0L);
    }
}
