package com.quorin.sysmgt.tavl.LumetraAgent.score;

import com.quorin.sysmgt.tavl.LumetraAgent.text.LibraryBytes;
import java.util.List;

/**
 * From the onset of an announcement to its end. Times are seconds since the epoch, 0 for never.
 *
 * @param rule             who announced: 0 the agent, from 1 on the rules that it is compared with
 * @param firstEvent       when the first event went out
 * @param announcedAtOnset the moment of exhaustion that was announced at the onset
 * @param announcedAtEvent the same at the first event
 * @param onsetValue       per cent used at the onset
 * @param highest          the most that was used, per cent
 * @param errorsHours      of one that reached its limit: announced moment less true moment, one at each of
 *                         {@link #MARKS_HOURS}; NaN where nothing was announced then
 */
public record Episode(int rule, long onset, long firstEvent, long end, Outcome outcome, long announcedAtOnset,
        long announcedAtEvent, double onsetValue, double highest, List<Double> errorsHours) {

    /** So long before the limit was reached the announced moment is compared with it. */
    public static final List<Integer> MARKS_HOURS = List.of(24, 12, 6, 3, 1);

    private static final int HOUR = 3600;

    /** Reads one as the library hands it over. */
    public static Episode read(LibraryBytes bytes) {
        return new Episode(bytes.number("a rule"), bytes.longNumber("an onset"), bytes.longNumber("an event"),
                bytes.longNumber("an end"),
                bytes.oneOf(Outcome.values(), "an outcome"),
                bytes.longNumber("an announced moment"), bytes.longNumber("an announced moment"),
                bytes.real("a value"), bytes.real("a value"),
                bytes.list(Double.BYTES, "the errors", () -> bytes.real("an error")));
    }

    /** Whether the limit was not reached, and it is over. */
    public boolean isFalse() {
        return outcome == Outcome.FREED || outcome == Outcome.LEVELLED_OFF;
    }

    /** Whether an event went out. */
    public boolean hasEvent() {
        return firstEvent != 0;
    }

    /** Hours from the onset to the end. */
    public double onsetLeadHours() {
        return (end - onset) / (double) HOUR;
    }

    /** Hours from the first event to the end. */
    public double eventLeadHours() {
        return (end - firstEvent) / (double) HOUR;
    }
}
