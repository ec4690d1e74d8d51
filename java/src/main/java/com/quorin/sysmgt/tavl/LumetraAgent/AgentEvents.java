package com.quorin.sysmgt.tavl.LumetraAgent;

import java.io.PrintStream;
import java.time.LocalDateTime;
import java.time.format.DateTimeFormatter;
import java.util.Locale;
import java.util.concurrent.atomic.AtomicLong;
import java.util.concurrent.atomic.AtomicReference;
import java.util.function.Supplier;

/**
 * Where the agent's events arrive: six static methods that the native library calls by name and signature, on
 * the class of the object that was given to {@link ExecPrediction#research_main}.
 *
 * <p>Every event becomes one line of output and is accepted. All methods may be called from any thread, and
 * none throws: an event that cannot be shown is refused by returning false.
 */
public final class AgentEvents {

    /**
     * The first argument of {@link #sendEvent} for an event that tells of a failure and not of a forecast.
     */
    public static final String FATAL = "fatal";

    private static final DateTimeFormatter CLOCK =
            DateTimeFormatter.ofPattern("uuuu-MM-dd HH:mm:ss", Locale.ROOT);

    /** The last forecast that was announced: when, and how far away the exhaustion was. */
    private record Announced(long epochSeconds, double secondsToExhaustion) {}

    private static final Announced NONE = new Announced(0, 0.0);
    private static final AtomicReference<Announced> PREVIOUS = new AtomicReference<>(NONE);
    private static final AtomicLong FATAL_COUNT = new AtomicLong();
    private static final AtomicReference<PrintStream> OUTPUT = new AtomicReference<>(System.out);

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
            return show(() -> "FATAL     " + Words.printable(name));
        }
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
    static long fatalCount() {
        return FATAL_COUNT.get();
    }

    /**
     * Sends the lines of events elsewhere and forgets what was announced before.
     *
     * @param stream where the lines go from now on
     */
    static void reset(PrintStream stream) {
        OUTPUT.set(stream);
        PREVIOUS.set(NONE);
        FATAL_COUNT.set(0);
    }

    private static String exhaustionLine(
            String timeText, double seconds, String name, String instance, String culprit) {
        String line = String.format(Locale.ROOT, "FORECAST  %s will be exhausted in %s (%.0f s)",
                resource(name, instance), Words.printable(timeText), seconds);
        String by = Words.printable(culprit).strip();
        return by.isEmpty() ? line : line + "; largest users: " + by;
    }

    private static String toleranceLine(String name, String instance, double limit) {
        return String.format(Locale.ROOT, "LIMIT     %s has reached its limit of %.2f %%",
                resource(name, instance), limit);
    }

    private static String resource(String name, String instance) {
        String who = name == null ? "a resource without a name" : Words.printable(name);
        boolean named = instance != null && !instance.isEmpty() && !instance.equals("Null");
        return named ? who + " [" + Words.printable(instance) + "]" : who;
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
