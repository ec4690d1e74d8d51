package com.quorin.sysmgt.tavl.LumetraAgent.events;

import com.quorin.sysmgt.tavl.LumetraAgent.ExecPrediction;
import com.quorin.sysmgt.tavl.LumetraAgent.files.Culprit;
import com.quorin.sysmgt.tavl.LumetraAgent.files.EventFile;
import java.io.IOException;
import java.io.PrintStream;
import java.time.Clock;
import java.time.LocalDateTime;
import java.time.format.DateTimeFormatter;
import java.util.List;
import java.util.Locale;
import java.util.concurrent.CopyOnWriteArrayList;
import java.util.concurrent.atomic.AtomicLong;
import java.util.concurrent.atomic.AtomicReference;
import java.util.function.BiFunction;
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

    /** The first argument of {@link #sendEvent} for an event that tells of a failure and not of a forecast. */
    private static final String FATAL = Event.Type.FATAL.word();

    private static final DateTimeFormatter CLOCK =
            DateTimeFormatter.ofPattern("uuuu-MM-dd HH:mm:ss", Locale.ROOT);

    /** The last forecast that was announced: when, and how far away the exhaustion was. */
    private record Announced(long epochSeconds, double secondsToExhaustion) {}

    private static final Announced NONE = new Announced(0, 0.0);
    private static final AtomicReference<Announced> PREVIOUS = new AtomicReference<>(NONE);
    private static final AtomicLong FATAL_COUNT = new AtomicLong();
    private static final AtomicReference<Clock> TIME = new AtomicReference<>(Clock.systemDefaultZone());
    private static final AtomicReference<PrintStream> OUTPUT = new AtomicReference<>(System.out);
    private static final BiFunction<String, String, Event.Background> NOTHING_KNOWN =
            (name, instance) -> Event.Background.NONE;
    private static final AtomicReference<BiFunction<String, String, Event.Background>> BACKGROUND =
            new AtomicReference<>(NOTHING_KNOWN);
    private static final AtomicReference<EventFile> RECORD = new AtomicReference<>();
    private static final List<Consumer<? super Event>> LISTENERS = new CopyOnWriteArrayList<>();

    /**
     * An exhaustion is forecast, or, when {@code timeText} is "fatal", something failed and {@code name} says what.
     * True: the event is accepted.
     *
     * @param timeText the time to exhaustion in words, or "fatal"
     * @param name     the resource's display name, or the text of a failure; may be null
     * @param instance "Null" where there is none
     * @param culprit  the processes that use most of the resource; may be null
     */
    public static boolean sendEvent(
            String timeText, double seconds, String name, String instance, String culprit) {
        if (FATAL.equals(timeText)) {
            FATAL_COUNT.incrementAndGet();
            return tell(() -> new Event.Failure(now(), name));
        }
        boolean shown = tell(() -> exhaustion(timeText, seconds, name, instance, culprit));
        if (shown) {
            PREVIOUS.set(new Announced(TIME.get().instant().getEpochSecond(), seconds));
        }
        return shown;
    }

    /**
     * A resource has reached the upper limit of its tolerance; the agent sends it for a lower limit as well. True:
     * the event is accepted.
     *
     * @param name     may be null
     * @param instance "Null" where there is none
     * @param limit    in the resource's unit (per cent)
     */
    public static boolean sendUpperToleranceEvent(String name, String instance, double limit) {
        return tell(() -> limitReached(Event.Type.UPPER_TOLERANCE, name, instance, limit));
    }

    /** A resource has reached the inner limit of its tolerance. As {@link #sendUpperToleranceEvent}. */
    public static boolean sendInnerToleranceEvent(String name, String instance, double limit) {
        return tell(() -> limitReached(Event.Type.INNER_TOLERANCE, name, instance, limit));
    }

    /**
     * Whether this operating system is one that the host supports: 1, always, as the host runs where the library
     * runs.
     */
    public static int getOs_support() {
        return 1;
    }

    /**
     * When the previous forecast was announced, in seconds since the epoch; 0 when there was none. Failures and
     * tolerance events do not count.
     */
    public static long getPrev_time() {
        return PREVIOUS.get().epochSeconds();
    }

    /**
     * How many seconds away the exhaustion was in the previous forecast; 0.0 when there was none. Failures and
     * tolerance events do not count.
     */
    public static double getPrev_tte() {
        return PREVIOUS.get().secondsToExhaustion();
    }

    /** How many failures ("fatal" events) were told since the start of the process. */
    public static long fatalCount() {
        return FATAL_COUNT.get();
    }

    /**
     * Records every event from now on as a line of the file; null records none. A first event is put into words here
     * and thrown away, so that all classes are loaded before a machine runs out of descriptors.
     */
    public static void recordTo(EventFile file) {
        RECORD.set(file);
        try {
            Event first = exhaustion("soon", 1.0, "", "", " warm(1)1");
            EventWords.of(first);
            EventLine.of(first).text();
        } catch (IOException e) {
            // an event that fails is recorded no more than this one
        }
    }

    /** Sends the lines of events elsewhere from now on. */
    public static void showOn(PrintStream stream) {
        OUTPUT.set(stream);
    }

    /** Hands every event over from now on, on the thread that brings it; to those before as well. */
    public static void tellTo(Consumer<? super Event> listener) {
        LISTENERS.add(listener);
    }

    /** Asks from now on what else is known of a resource that runs out, by its name and instance. */
    public static void askForBackground(BiFunction<String, String, Event.Background> known) {
        BACKGROUND.set(known);
    }

    /** Sends the lines of events elsewhere, records none and forgets what was announced before. */
    static void reset(PrintStream stream) {
        reset(stream, Clock.systemDefaultZone());
    }

    /** The same, and events happen by this clock from now on. */
    static void reset(PrintStream stream, Clock time) {
        OUTPUT.set(stream);
        TIME.set(time);
        RECORD.set(null);
        LISTENERS.clear();
        BACKGROUND.set(NOTHING_KNOWN);
        PREVIOUS.set(NONE);
        FATAL_COUNT.set(0);
    }

    private static Event.Moment now() {
        return Event.Moment.of(TIME.get().instant());
    }

    private static Event exhaustion(
            String timeText, double seconds, String name, String instance, String culprit) {
        return new Event.Exhaustion(now(), Event.Subject.told(name, instance), seconds, timeText,
                Culprit.parse(culprit), culprit, BACKGROUND.get().apply(name, instance));
    }

    private static Event limitReached(Event.Type type, String name, String instance, double limit) {
        return new Event.LimitReached(now(), type, Event.Subject.told(name, instance), limit);
    }

    /** The native caller cannot use an exception, so whatever goes wrong here is a refused event. */
    private static boolean tell(Supplier<Event> happened) {
        try {
            Event event = happened.get();
            record(event);
            OUTPUT.get().println(CLOCK.format(LocalDateTime.now(TIME.get())) + "  " + EventWords.of(event));
            return true;
        } catch (Exception | StackOverflowError | OutOfMemoryError e) {
            return false;
        }
    }

    /** Whatever goes wrong here leaves the event as it is: shown and accepted. */
    private static void record(Event event) {
        EventFile file = RECORD.get();
        try {
            if (file != null) {
                file.append(EventLine.of(event).text());
            }
        } catch (Exception | StackOverflowError | OutOfMemoryError e) {
            // nothing to clean up: the file keeps whole lines only
        }
        for (Consumer<? super Event> listener : LISTENERS) {
            try {
                listener.accept(event);
            } catch (Exception | StackOverflowError | OutOfMemoryError e) {
                // the others are told all the same
            }
        }
    }
}
