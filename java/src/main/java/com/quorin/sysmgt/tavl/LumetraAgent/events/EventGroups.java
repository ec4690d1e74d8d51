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

    /** The newest group of a key, and the episode that it is of; 0 while that is unknown. */
    private record Latest(EventGroup group, long episode) {}

    private final int most;
    private final Deque<EventGroup> newestFirst = new ArrayDeque<>();
    private final Map<Key, Latest> latest = new HashMap<>();

    EventGroups(int most) {
        this.most = most;
    }

    void add(Event event) {
        Key key = Key.of(event);
        Latest before = latest.get(key);
        long episode = event instanceof Event.Exhaustion exhaustion ? exhaustion.background().episodeSince() : 0;
        if (before != null && goesOn(before, event, episode)) {
            newestFirst.remove(before.group());
            put(key, new EventGroup(event, before.group().times() + 1, before.group().since()),
                    Math.max(before.episode(), episode));
        } else {
            put(key, new EventGroup(event, 1, event.at().epochSeconds()), episode);
        }
    }

    private void put(Key key, EventGroup group, long episode) {
        newestFirst.addFirst(group);
        latest.put(key, new Latest(group, episode));
        if (newestFirst.size() > most) {
            EventGroup eldest = newestFirst.removeLast();
            latest.computeIfPresent(Key.of(eldest.newest()), (k, known) -> known.group() == eldest ? null : known);
        }
    }

    List<EventGroup> newestFirst() {
        return new ArrayList<>(newestFirst);
    }

    /** The first event of an episode may come before its onset is known. */
    private static boolean goesOn(Latest before, Event event, long episode) {
        if (before.episode() != 0 && episode != 0) {
            return before.episode() == episode;
        }
        long newest = before.group().newest().at().epochSeconds();
        return episode <= newest && event.at().epochSeconds() - newest <= LONGEST_SILENCE;
    }
}
