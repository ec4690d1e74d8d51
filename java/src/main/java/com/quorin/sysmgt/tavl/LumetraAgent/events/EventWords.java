package com.quorin.sysmgt.tavl.LumetraAgent.events;

import com.quorin.sysmgt.tavl.LumetraAgent.files.Culprit;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.time.Duration;
import java.util.List;
import java.util.Locale;

/** Events as a person reads them on the console: one line each, without control characters. */
public final class EventWords {

    /** So many culprits stand in the line; the file of events has them all. */
    private static final int SHOWN_CULPRITS = 3;

    private EventWords() {}

    /** The line for an event, without its time. */
    static String of(Event event) {
        if (event instanceof Event.Exhaustion e) {
            String line = "FORECAST  " + sentence(e);
            String by = culprits(e);
            return by.isEmpty() ? line : line + "; largest users: " + by;
        }
        return (event instanceof Event.LimitReached ? "LIMIT     " : "FATAL     ") + sentence(event);
    }

    /** What happened, in one sentence without a full stop. */
    public static String sentence(Event event) {
        if (event instanceof Event.Exhaustion e) {
            return resource(e.subject()) + " will be exhausted in " + timeToGo(e);
        }
        if (event instanceof Event.LimitReached e) {
            return String.format(Locale.ROOT, "%s has reached its limit of %.2f %%", resource(e.subject()), e.limit());
        }
        return Words.printable(((Event.Failure) event).message());
    }

    /** The library's own words have every unit down to the second, also for a week; a person needs fewer. */
    public static String timeToGo(Event.Exhaustion event) {
        double seconds = event.secondsToExhaustion();
        if (seconds > 0 && seconds < Integer.MAX_VALUE) {
            return Words.ofDuration(Duration.ofMillis(Math.round(seconds * 1000)));
        }
        return event.timeToExhaustion() == null ? "an unknown time" : Words.printable(event.timeToExhaustion());
    }

    /** The largest users; empty when none are known. */
    public static String culprits(Event.Exhaustion event) {
        List<Culprit> all = event.culprits();
        if (all.isEmpty()) {
            return Words.printable(event.culpritText()).strip();
        }
        String shown = String.join(", ", all.stream().limit(SHOWN_CULPRITS).map(Culprit::inWords).toList());
        int rest = all.size() - SHOWN_CULPRITS;
        return rest > 0 ? shown + " and " + rest + " more" : shown;
    }

    /** The resource and, in brackets, which one of several. */
    public static String resource(Event.Subject subject) {
        String who = subject.resource() == null ? "a resource without a name" : Words.printable(subject.resource());
        String where = subject.instance();
        return where == null || where.isEmpty() ? who : who + " [" + Words.printable(where) + "]";
    }
}
