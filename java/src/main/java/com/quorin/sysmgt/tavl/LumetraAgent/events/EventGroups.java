package com.quorin.sysmgt.tavl.LumetraAgent.events;

import java.time.Duration;
import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Deque;
import java.util.HashMap;
import java.util.List;
import java.util.Map;

/**
 * Gathers events as they come: the agent repeats a forecast in every cycle, and a reader wants to see it once.
 *
 * <p>Not safe for several threads.
 */
final class EventGroups {

    /** Without an episode to go by, an event that comes after a longer silence begins anew. */
    private static final long LONGEST_SILENCE = Duration.ofHours(1).toSeconds();

    /** What events that repeat each other have in common. */
    private record Key(Event.Type type, Event.Subject subject, String message) {

        static Key of(Event event) {
            return new Key(event.type(), event.subject().plain(),
                    event instanceof Event.Failure failure ? failure.message() : null);
        }
    }

    private final int most;
    private final Deque<EventGroup> newestFirst = new ArrayDeque<>();
    private final Map<Key, EventGroup> latest = new HashMap<>();

    EventGroups(int most) {
        this.most = most;
    }

    void add(Event event) {
        Key key = Key.of(event);
        EventGroup before = latest.get(key);
        EventGroup group;
        if (before != null && goesOn(before.newest(), event)) {
            newestFirst.remove(before);
            group = new EventGroup(event, before.times() + 1, before.since());
        } else {
            group = new EventGroup(event, 1, event.at().epochSeconds());
        }
        newestFirst.addFirst(group);
        latest.put(key, group);
        if (newestFirst.size() > most) {
            EventGroup eldest = newestFirst.removeLast();
            latest.remove(Key.of(eldest.newest()), eldest);
        }
    }

    List<EventGroup> newestFirst() {
        return new ArrayList<>(newestFirst);
    }

    private static boolean goesOn(Event before, Event event) {
        long begun = episode(before);
        long begins = episode(event);
        return begun != 0 && begins != 0 ? begun == begins
                : event.at().epochSeconds() - before.at().epochSeconds() <= LONGEST_SILENCE;
    }

    private static long episode(Event event) {
        return event instanceof Event.Exhaustion exhaustion ? exhaustion.background().episodeSince() : 0;
    }
}
