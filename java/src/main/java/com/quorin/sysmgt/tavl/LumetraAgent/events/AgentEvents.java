package com.quorin.sysmgt.tavl.LumetraAgent.events;

import com.fasterxml.jackson.core.json.JsonWriteFeature;
import com.fasterxml.jackson.databind.JsonNode;
import com.fasterxml.jackson.databind.ObjectMapper;
import com.fasterxml.jackson.databind.json.JsonMapper;
import com.fasterxml.jackson.databind.node.ArrayNode;
import com.fasterxml.jackson.databind.node.ObjectNode;
import com.quorin.sysmgt.tavl.LumetraAgent.ExecPrediction;
import com.quorin.sysmgt.tavl.LumetraAgent.files.Culprit;
import com.quorin.sysmgt.tavl.LumetraAgent.files.EventFile;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.io.IOException;
import java.io.PrintStream;
import java.time.Duration;
import java.time.Instant;
import java.time.LocalDateTime;
import java.time.ZoneId;
import java.time.format.DateTimeFormatter;
import java.util.List;
import java.util.Locale;
import java.util.concurrent.atomic.AtomicLong;
import java.util.concurrent.atomic.AtomicReference;
import java.util.function.Consumer;
import java.util.function.Supplier;

/**
 * Where the agent's events arrive: six static methods that the native library calls by name and signature, on
 * the class of the object that was given to {@link ExecPrediction#research_main}.
 *
 * <p>Every event becomes one line of output and is accepted, and one line of JSON in the file that
 * {@link #recordTo} names. All methods may be called from any thread, and none throws: an event that cannot
 * be shown is refused by returning false. One that cannot be recorded is accepted all the same, as the disk
 * that is running out may be the one that holds the file.
 */
public final class AgentEvents {

    /**
     * The first argument of {@link #sendEvent} for an event that tells of a failure and not of a forecast.
     */
    public static final String FATAL = "fatal";

    /** What the library sends in the place of an instance where there is none. */
    static final String NO_INSTANCE = "Null";

    /** So many culprits stand in the line of output; the file of events has them all. */
    private static final int SHOWN_CULPRITS = 3;

    /** Everything beyond ASCII is escaped, so that a line is one line for every reader. */
    private static final ObjectMapper MAPPER =
            JsonMapper.builder().enable(JsonWriteFeature.ESCAPE_NON_ASCII).build();

    private static final DateTimeFormatter CLOCK =
            DateTimeFormatter.ofPattern("uuuu-MM-dd HH:mm:ss", Locale.ROOT);
    private static final DateTimeFormatter ISO =
            DateTimeFormatter.ofPattern("uuuu-MM-dd'T'HH:mm:ss.SSSXXX", Locale.ROOT);

    /** The last forecast that was announced: when, and how far away the exhaustion was. */
    private record Announced(long epochSeconds, double secondsToExhaustion) {}

    private static final Announced NONE = new Announced(0, 0.0);
    private static final AtomicReference<Announced> PREVIOUS = new AtomicReference<>(NONE);
    private static final AtomicLong FATAL_COUNT = new AtomicLong();
    private static final AtomicReference<PrintStream> OUTPUT = new AtomicReference<>(System.out);
    private static final AtomicReference<EventFile> RECORD = new AtomicReference<>();
    private static final AtomicReference<Consumer<? super JsonNode>> LISTENER = new AtomicReference<>();

    /** Creates an events object; all of them share one state, as the callbacks are static. */
    public AgentEvents() {
        // the native library asks the object for its class only
    }

    /**
     * An exhaustion is forecast, or, when {@code timeText} is "fatal", something failed and {@code name} says
     * what.
     *
     * @param timeText the time to exhaustion in words, or "fatal"
     * @param seconds  the seconds to exhaustion
     * @param name     the resource's display name, or the text of a failure; may be null
     * @param instance the instance, "Null" where there is none
     * @param culprit  the processes that use most of the resource; may be null
     * @return true: the event is accepted
     */
    public static boolean sendEvent(
            String timeText, double seconds, String name, String instance, String culprit) {
        if (FATAL.equals(timeText)) {
            FATAL_COUNT.incrementAndGet();
            record(FATAL, event -> event.put("message", name));
            return show(() -> "FATAL     " + Words.printable(name));
        }
        record("exhaustion", event -> describeExhaustion(event, timeText, seconds, name, instance, culprit));
        boolean shown = show(() -> exhaustionLine(timeText, seconds, name, instance, culprit));
        if (shown) {
            PREVIOUS.set(new Announced(System.currentTimeMillis() / 1000, seconds));
        }
        return shown;
    }

    /**
     * A resource has reached the upper limit of its tolerance. The agent sends it for a lower limit as well.
     *
     * @param name     the resource's display name; may be null
     * @param instance the instance, "Null" where there is none
     * @param limit    the limit that was reached, in the resource's unit (per cent)
     * @return true: the event is accepted
     */
    public static boolean sendUpperToleranceEvent(String name, String instance, double limit) {
        record("upperTolerance", event -> describeTolerance(event, name, instance, limit));
        return show(() -> toleranceLine(name, instance, limit));
    }

    /**
     * A resource has reached the inner limit of its tolerance.
     *
     * @param name     the resource's display name; may be null
     * @param instance the instance, "Null" where there is none
     * @param limit    the limit that was reached, in the resource's unit (per cent)
     * @return true: the event is accepted
     */
    public static boolean sendInnerToleranceEvent(String name, String instance, double limit) {
        record("innerTolerance", event -> describeTolerance(event, name, instance, limit));
        return show(() -> toleranceLine(name, instance, limit));
    }

    /**
     * Whether this operating system is one that the host supports.
     *
     * @return 1, always: the host runs where the library runs
     */
    public static int getOs_support() {
        return 1;
    }

    /**
     * When the previous forecast was announced. Failures and tolerance events do not count.
     *
     * @return seconds since the epoch, 0 when there was none
     */
    public static long getPrev_time() {
        return PREVIOUS.get().epochSeconds();
    }

    /**
     * How far away the exhaustion was in the previous forecast. Failures and tolerance events do not count.
     *
     * @return seconds to exhaustion, 0.0 when there was none
     */
    public static double getPrev_tte() {
        return PREVIOUS.get().secondsToExhaustion();
    }

    /**
     * How many failures ("fatal" events) were told since the start of the process.
     *
     * @return the count
     */
    public static long fatalCount() {
        return FATAL_COUNT.get();
    }

    /**
     * Records every event from now on. A first event is put into words here and thrown away, so that all
     * classes are loaded before a machine runs out of descriptors.
     *
     * @param file where each event becomes a line; null records none
     */
    public static void recordTo(EventFile file) {
        RECORD.set(file);
        Words.printable(exhaustionLine("soon", 1.0, "", "", " warm(1)1"));
        ObjectNode event = stamped("exhaustion");
        describeExhaustion(event, "soon", 1.0, "", "", " warm(1)1");
        try {
            MAPPER.writeValueAsString(event);
        } catch (IOException e) {
            // an event that fails is recorded no more than this one
        }
    }

    /**
     * Sends the lines of events elsewhere.
     *
     * @param stream where they go from now on
     */
    public static void showOn(PrintStream stream) {
        OUTPUT.set(stream);
    }

    /**
     * Hands every event over from now on, as it stands in the file of events.
     *
     * @param listener receives the events, on the thread that brings them; null for none
     */
    public static void tellTo(Consumer<? super JsonNode> listener) {
        LISTENER.set(listener);
    }

    /**
     * What reads and writes events.
     *
     * @return the mapper, which writes one line of ASCII
     */
    static ObjectMapper mapper() {
        return MAPPER;
    }

    /**
     * Sends the lines of events elsewhere, records none and forgets what was announced before.
     *
     * @param stream where the lines go from now on
     */
    static void reset(PrintStream stream) {
        OUTPUT.set(stream);
        RECORD.set(null);
        LISTENER.set(null);
        PREVIOUS.set(NONE);
        FATAL_COUNT.set(0);
    }

    private static String exhaustionLine(
            String timeText, double seconds, String name, String instance, String culprit) {
        String line = "FORECAST  " + resource(name, instance) + " will be exhausted in "
                + timeToGo(timeText, seconds);
        String by = culprits(culprit);
        return by.isEmpty() ? line : line + "; largest users: " + by;
    }

    /** The library's own words have every unit down to the second, also for a week; a person needs fewer. */
    private static String timeToGo(String timeText, double seconds) {
        boolean known = seconds > 0 && seconds < Integer.MAX_VALUE;
        return known ? Words.ofDuration(Duration.ofMillis(Math.round(seconds * 1000)))
                : timeText == null ? "an unknown time" : Words.printable(timeText);
    }

    private static String culprits(String text) {
        List<Culprit> all = Culprit.parse(text);
        if (all.isEmpty()) {
            return Words.printable(text).strip();
        }
        String shown = String.join(", ", all.stream().limit(SHOWN_CULPRITS).map(Culprit::inWords).toList());
        int rest = all.size() - SHOWN_CULPRITS;
        return rest > 0 ? shown + " and " + rest + " more" : shown;
    }

    private static String toleranceLine(String name, String instance, double limit) {
        return String.format(Locale.ROOT, "LIMIT     %s has reached its limit of %.2f %%",
                resource(name, instance), limit);
    }

    private static String resource(String name, String instance) {
        String who = name == null ? "a resource without a name" : Words.printable(name);
        String where = present(instance);
        return where == null || where.isEmpty() ? who : who + " [" + Words.printable(where) + "]";
    }

    /** The instance, or null for the word that the library sends in the place of none. */
    private static String present(String instance) {
        return NO_INSTANCE.equals(instance) ? null : instance;
    }

    private static void describeExhaustion(ObjectNode event, String timeText, double seconds, String name,
            String instance, String culprit) {
        event.put("resource", name).put("instance", present(instance))
                .put("secondsToExhaustion", finite(seconds)).put("timeToExhaustion", timeText)
                .put("culpritText", culprit);
        ArrayNode culprits = event.withArray("culprits");
        for (Culprit c : Culprit.parse(culprit)) {
            culprits.addObject().put("name", c.name()).put("pid", c.pid()).put("value", c.value());
        }
    }

    private static void describeTolerance(ObjectNode event, String name, String instance, double limit) {
        event.put("resource", name).put("instance", present(instance)).put("limit", finite(limit));
    }

    /** A number that JSON can spell, or null. */
    private static Double finite(double value) {
        return Double.isFinite(value) ? value : null;
    }

    /** An event with all its members, most of which are still to be filled in. */
    private static ObjectNode stamped(String type) {
        Instant now = Instant.now();
        ObjectNode event = MAPPER.createObjectNode()
                .put("time", ISO.format(now.atZone(ZoneId.systemDefault())))
                .put("epochSeconds", now.getEpochSecond()).put("type", type);
        event.putNull("resource").putNull("instance").putNull("secondsToExhaustion")
                .putNull("timeToExhaustion").putNull("limit").putArray("culprits");
        return event.putNull("culpritText").putNull("message");
    }

    /** Whatever goes wrong here leaves the event as it is: shown and accepted. */
    private static void record(String type, Consumer<ObjectNode> describe) {
        EventFile file = RECORD.get();
        Consumer<? super JsonNode> listener = LISTENER.get();
        if (file == null && listener == null) {
            return;
        }
        try {
            ObjectNode event = stamped(type);
            describe.accept(event);
            if (file != null) {
                file.append(MAPPER.writeValueAsString(event));
            }
            if (listener != null) {
                listener.accept(event);
            }
        } catch (Exception | StackOverflowError | OutOfMemoryError e) {
            // nothing to clean up: the file keeps whole lines only
        }
    }

    /** The native caller cannot use an exception, so whatever goes wrong here is a refused event. */
    private static boolean show(Supplier<String> line) {
        try {
            OUTPUT.get().println(CLOCK.format(LocalDateTime.now()) + "  " + line.get());
            return true;
        } catch (Exception | StackOverflowError | OutOfMemoryError e) {
            return false;
        }
    }
}
