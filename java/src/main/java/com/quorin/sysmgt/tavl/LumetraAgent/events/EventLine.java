package com.quorin.sysmgt.tavl.LumetraAgent.events;

import com.fasterxml.jackson.core.JsonProcessingException;
import com.fasterxml.jackson.databind.JsonNode;
import com.quorin.sysmgt.tavl.LumetraAgent.files.Culprit;
import com.quorin.sysmgt.tavl.LumetraAgent.text.AsciiJson;
import java.io.IOException;
import java.util.ArrayList;
import java.util.List;
import java.util.Optional;

/**
 * An event as a line of the file of events and as an object of the JSON interface: all members in one order,
 * null where an event of its type has none.
 */
public record EventLine(String time, long epochSeconds, String type, String resource, String instance,
        Double secondsToExhaustion, String timeToExhaustion, Double limit, List<Culprit> culprits,
        String culpritText, String trackRecord, Long episodeSince, String message) {

    /** The members of an event. */
    public static EventLine of(Event event) {
        if (event instanceof Event.Exhaustion e) {
            return of(e, finite(e.secondsToExhaustion()), e.timeToExhaustion(), null, e.culprits(),
                    e.culpritText(), e.background(), null);
        }
        Event.Background none = Event.Background.NONE;
        if (event instanceof Event.LimitReached e) {
            return of(e, null, null, finite(e.limit()), List.of(), null, none, null);
        }
        return of(event, null, null, null, List.of(), null, none, ((Event.Failure) event).message());
    }

    private static EventLine of(Event event, Double seconds, String time, Double limit, List<Culprit> culprits,
            String culpritText, Event.Background background, String message) {
        Long since = background.episodeSince() == 0 ? null : (Long) background.episodeSince();
        return new EventLine(event.at().text(), event.at().epochSeconds(), event.type().word(),
                event.subject().resource(), event.subject().instance(), seconds, time, limit, culprits,
                culpritText, background.trackRecord(), since, message);
    }

    /** A number that JSON can spell, or null. */
    private static Double finite(double value) {
        return Double.isFinite(value) ? value : null;
    }

    /** One line of ASCII, without a line break. */
    String text() throws IOException {
        return AsciiJson.MAPPER.writeValueAsString(this);
    }

    /** The event that a line tells of; members that it lacks are unknown, a line that is torn or foreign is none. */
    static Optional<Event> read(String line) {
        try {
            return event(AsciiJson.MAPPER.readTree(line));
        } catch (JsonProcessingException | StackOverflowError e) {
            return Optional.empty();
        }
    }

    private static Optional<Event> event(JsonNode line) {
        if (!line.path("time").isTextual() || !line.path("epochSeconds").isIntegralNumber()
                || !line.path("epochSeconds").canConvertToLong()) {
            return Optional.empty();
        }
        Event.Moment at = new Event.Moment(line.path("time").textValue(), line.path("epochSeconds").longValue());
        Event.Subject subject = new Event.Subject(text(line, "resource"), text(line, "instance"));
        String word = line.path("type").asText();
        for (Event.Type type : Event.Type.values()) {
            if (type.word().equals(word)) {
                return Optional.of(switch (type) {
                    case EXHAUSTION -> new Event.Exhaustion(at, subject, number(line, "secondsToExhaustion"),
                            text(line, "timeToExhaustion"), culprits(line), text(line, "culpritText"),
                            new Event.Background(text(line, "trackRecord"), line.path("episodeSince").asLong()));
                    case UPPER_TOLERANCE, INNER_TOLERANCE ->
                            new Event.LimitReached(at, type, subject, number(line, "limit"));
                    case FATAL -> new Event.Failure(at, text(line, "message"));
                });
            }
        }
        return Optional.empty();
    }

    private static String text(JsonNode line, String member) {
        return line.path(member).textValue();
    }

    private static double number(JsonNode line, String member) {
        return line.path(member).asDouble(Double.NaN);
    }

    private static List<Culprit> culprits(JsonNode line) {
        List<Culprit> found = new ArrayList<>();
        for (JsonNode one : line.path("culprits")) {
            if (one.path("name").isTextual() && one.path("pid").canConvertToLong()
                    && one.path("value").canConvertToLong()) {
                found.add(new Culprit(text(one, "name"), one.path("pid").longValue(),
                        one.path("value").longValue()));
            }
        }
        return List.copyOf(found);
    }
}
