package com.quorin.sysmgt.tavl.LumetraAgent.tell;

import com.quorin.sysmgt.tavl.LumetraAgent.events.Event;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Publication;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.RunResource;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.RunState;
import com.quorin.sysmgt.tavl.LumetraAgent.score.EndedEpisode;
import java.time.Duration;
import java.time.Instant;
import java.util.HashMap;
import java.util.HashSet;
import java.util.LinkedHashMap;
import java.util.Map;
import java.util.Set;
import java.util.function.BinaryOperator;
import java.util.function.Consumer;
import java.util.function.LongUnaryOperator;

/**
 * Decides what is worth telling. The agent tells of an exhaustion and of a failure in every cycle in which they last;
 * a person wants to hear of each once:
 *
 * <ul>
 * <li>of the first event of an episode, again after a while if that is wanted, and of the episode's end;
 * <li>of a limit when it is reached, and not before the value has left it again;
 * <li>of a failure that was not there in the cycle before.
 * </ul>
 *
 * <p>Events wait here for the publication of their cycle, which says to which episode they belong. Any thread may
 * bring events; publications come on one thread.
 */
final class NewsDesk {

    /** So many different events of one cycle are looked at. */
    private static final int MOST_WAITING = 1000;

    private record Key(Event.Type type, Event.Subject subject, String message) {

        static Key of(Event event) {
            return new Key(event.type(), event.subject().plain(),
                    event instanceof Event.Failure failure ? failure.message() : null);
        }
    }

    /**
     * Events that say the same and wait for the publications of their cycles.
     *
     * @param first the serial that was the newest when the first came: its cycle is published behind it
     * @param last  the same of the newest
     */
    private record Waiting(Event newest, long first, long last) {

        Waiting and(Waiting later) {
            return new Waiting(later.newest, first, later.last);
        }

        boolean isOf(long serial) {
            return first < serial;
        }

        /** What is left after a publication; null for nothing. */
        Waiting after(long serial) {
            return last < serial ? null : new Waiting(newest, Math.max(first, serial), last);
        }
    }

    /**
     * An exhaustion that was told.
     *
     * @param onset of its episode; 0 when it belongs to none, as when the resource was found at its limit
     * @param at    when it was told last
     */
    private record Told(long onset, long at) {}

    private final Consumer<? super News> reader;
    private final BinaryOperator<String> trackRecords;
    private final long remindAfter;
    private final LongUnaryOperator newestSerial;
    private final Map<Key, Waiting> waiting = new LinkedHashMap<>();
    private final Map<Event.Subject, Told> told = new HashMap<>();
    private final Set<String> failures = new HashSet<>();
    /** Of the resources in the newest publication, whether they were at their limit. */
    private Map<Event.Subject, Boolean> atLimit = Map.of();
    /** Whose limit was told since. */
    private final Set<Event.Subject> toldAtLimit = new HashSet<>();
    /**
     * Whether a cycle was taken up. What is at its limit in the first that is seen was found there, be it the first of
     * the run or not; a disk that comes later and is full has reached it.
     */
    private boolean knowsACycle;
    private long lastEnded;
    private long clockSteps;
    private volatile long lastSerial;

    /**
     * A desk that nothing has come to.
     *
     * @param reader       is handed what is worth telling
     * @param trackRecords what came of announcements about a resource, by its name and instance; null: nothing
     * @param remind       after so long an exhaustion is told again, and again; zero for never
     * @param newestSerial the serial of the newest publication when it is above one that is known, otherwise that one
     */
    NewsDesk(Consumer<? super News> reader, BinaryOperator<String> trackRecords, Duration remind,
            LongUnaryOperator newestSerial) {
        this.reader = reader;
        this.trackRecords = trackRecords;
        this.remindAfter = remind.toSeconds();
        this.newestSerial = newestSerial;
    }

    /** Takes up an event; of several that say the same, the newest counts. */
    void take(Event event) {
        long serial = newestSerial.applyAsLong(lastSerial);
        synchronized (waiting) {
            Key key = Key.of(event);
            if (waiting.size() < MOST_WAITING || waiting.containsKey(key)) {
                waiting.merge(key, new Waiting(event, serial, serial), Waiting::and);
            }
        }
    }

    /** Takes up what the agent has published, and hands on what is worth telling; nothing twice if that fails. */
    synchronized void take(Publication publication) {
        long serial = publication.serial();
        if (serial == lastSerial) {
            return;
        }
        Map<Key, Event> now = eventsBefore(serial);
        followClock(publication.state().map(state -> state.cycle().clockSteps()).orElse(0L));
        new Edition(publication.state().orElse(null), now).tell();
        synchronized (waiting) {
            now.keySet().forEach(key -> waiting.computeIfPresent(key, (same, one) -> one.after(serial)));
        }
        knowsACycle |= publication.cycles() > 0;
        lastSerial = serial;
    }

    /** Hands on what still waits, as no publication follows: a run that could not start has none. */
    synchronized void close() {
        new Edition(null, eventsBefore(Long.MAX_VALUE)).tell();
    }

    /** Moves what was told with the clock, as the library moves its episodes: a step of it makes nothing new. */
    private void followClock(long steps) {
        long step = steps - clockSteps;
        if (step != 0) {
            told.replaceAll((subject, known) -> new Told(known.onset == 0 ? 0 : known.onset + step, known.at + step));
            clockSteps = steps;
        }
    }

    private Map<Key, Event> eventsBefore(long serial) {
        Map<Key, Event> events = new LinkedHashMap<>();
        synchronized (waiting) {
            waiting.forEach((key, one) -> {
                if (one.isOf(serial)) {
                    events.put(key, one.newest);
                }
            });
        }
        return events;
    }

    /** The state in a publication, null without one, and the events that came before it. */
    private final class Edition {
        private final RunState state;
        private final Map<Key, Event> events;
        private final Map<Event.Subject, RunResource> resources = new HashMap<>();

        Edition(RunState state, Map<Key, Event> events) {
            this.state = state;
            this.events = new LinkedHashMap<>(events); // from which some are removed
            if (state != null) {
                state.resources().forEach(resource -> resources.put(
                        Event.Subject.published(resource.identity().name(), resource.identity().instance()), resource));
            }
        }

        void tell() {
            if (state != null) {
                state.ended().forEach(this::tellEnd);
            }
            events.values().forEach(event -> {
                if (event instanceof Event.Exhaustion e) {
                    tellExhaustion(e);
                } else if (event instanceof Event.LimitReached e) {
                    tellLimit(e);
                }
            });
            tellFailures();
            if (state != null) {
                look();
            }
        }

        private void tellEnd(EndedEpisode ended) {
            if (ended.number() <= lastEnded) {
                return;
            }
            Event.Subject subject = Event.Subject.published(ended.resource(), ended.instance());
            Key key = new Key(Event.Type.EXHAUSTION, subject, null);
            if (events.get(key) instanceof Event.Exhaustion e && e.at().epochSeconds() < ended.episode().end()) {
                if (!told.containsKey(subject)) {
                    tellFirst(e, ended.episode().onset()); // the publication of its cycle was passed over
                }
                events.remove(key);
            }
            if (told.containsKey(subject)) {
                reader.accept(News.end(subject, ended.episode(),
                        trackRecords.apply(subject.resource(), subject.instance()), id(subject)));
                told.remove(subject);
            }
            lastEnded = ended.number();
        }

        /** Without its resource, as at the end of a run, what was told goes on, and the newest publication counts. */
        private void tellExhaustion(Event.Exhaustion event) {
            Event.Subject subject = event.subject().plain();
            RunResource resource = resources.get(subject);
            if (resource == null ? atLimit.getOrDefault(subject, false) : isAtLimit(resource)) {
                return; // that the limit is reached says more
            }
            Told before = told.get(subject);
            long onset = resource != null ? resource.notification().since() : before != null ? before.onset : 0;
            if (before == null || before.onset != onset) {
                tellFirst(event, onset);
            } else if (remindAfter > 0 && event.at().epochSeconds() - before.at >= remindAfter) {
                reader.accept(News.reminder(event, id(subject)));
                told.put(subject, new Told(onset, event.at().epochSeconds()));
            }
        }

        private void tellFirst(Event.Exhaustion event, long onset) {
            Event.Subject subject = event.subject().plain();
            reader.accept(News.of(event, id(subject)));
            told.put(subject, new Told(onset, event.at().epochSeconds()));
        }

        private void tellLimit(Event.LimitReached event) {
            Event.Subject subject = event.subject().plain();
            if (!atLimit.getOrDefault(subject, false) && !toldAtLimit.contains(subject)) {
                reader.accept(News.of(event, id(subject)));
                toldAtLimit.add(subject);
            }
        }

        private void tellFailures() {
            Set<String> present = new HashSet<>();
            events.values().forEach(event -> {
                if (event instanceof Event.Failure failure) {
                    present.add(failure.message());
                    if (!failures.contains(failure.message())) {
                        reader.accept(News.of(failure, null));
                        failures.add(failure.message());
                    }
                }
            });
            failures.retainAll(present);
        }

        /** The agent sends one event for the first limit of all that is reached; the others are seen here. */
        private void look() {
            Map<Event.Subject, Boolean> seen = new HashMap<>();
            resources.forEach((subject, resource) -> {
                seen.put(subject, isAtLimit(resource));
                if (isAtLimit(resource) && knowsACycle) {
                    tellLimit(new Event.LimitReached(Event.Moment.of(Instant.ofEpochSecond(state.cycle().time())),
                            Event.Type.UPPER_TOLERANCE, subject, limit(resource)));
                }
            });
            toldAtLimit.clear();
            atLimit = seen;
            told.entrySet().removeIf(entry -> {
                RunResource resource = resources.get(entry.getKey());
                return resource == null || !resource.notification().isPending();
            });
        }

        private Integer id(Event.Subject subject) {
            RunResource resource = resources.get(subject);
            return resource == null ? null : resource.identity().id();
        }
    }

    private static boolean isAtLimit(RunResource resource) {
        return resource.analysis().limits().reached() != RunResource.Reached.NONE;
    }

    private static double limit(RunResource resource) {
        RunResource.Limits limits = resource.analysis().limits();
        return limits.reached() == RunResource.Reached.LOWER ? limits.lower() : limits.upper();
    }
}
