package com.quorin.sysmgt.tavl.LumetraAgent;

import com.quorin.sysmgt.tavl.LumetraAgent.TrendUnavailable.Reason;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.util.ArrayList;
import java.util.List;
import java.util.OptionalDouble;
import java.util.OptionalInt;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/**
 * Reads the forecasts of the agent that runs in this process. The native library must have been loaded, see
 * {@link NativeLibrary#load}.
 *
 * <p>Any thread may read at any time, before, during and after a run. Each read takes the trend-file lock for
 * as long as it takes to read a resource's three small files; while the agent itself is at work on them it
 * waits up to three seconds. An agent that finds the lock taken waits a whole second, so read rarely: the
 * forecasts change once a cycle, right after the agent appended a line to its archive.
 */
public final class TrendReader {

    private static final Pattern HEADLINE = Pattern.compile(
            "Algorithm: (.*?)\\.      (?:(\\d+\\.\\d+) hours to exhaustion|no exhaustion within horizon)\\.",
            Pattern.DOTALL);
    private static final String UNKNOWN = "Unknown hours to exhaustion.";
    private static final Pattern NUMBER = Pattern.compile("[-+]?\\d+(\\.\\d*)?([eE][-+]?\\d+)?");

    /** The library's methods, so that a test can stand in for it. */
    interface Natives {
        /** See {@link LumetraSubagent#trendViewerGetDescriptors}. */
        int descriptors(Object list);

        /** See {@link LumetraSubagent#trendViewerLockAndGetTimeStampLabel}. */
        int lockAndLabel(String name, String instance, Object intOut, Object textOut, Object floatOut);

        /** See {@link LumetraSubagent#trendViewerGetLimit}. */
        int limit(String name, String instance, Object intOut);

        /** See {@link LumetraSubagent#trendViewerGetXYPairs}. */
        int pairs(String name, String instance, String kind, Object list);

        /** See {@link LumetraSubagent#trendViewerUnlockFiles}. */
        int unlock();
    }

    /**
     * A resource of the agent, by its display name.
     *
     * @param instance "*" for a declaration that stands for all disks and has no forecast itself
     */
    public record Resource(String name, String instance) {}

    /**
     * The outcome of a forecast.
     *
     * @param time              when it was made, seconds since the epoch; -1 when the file does not say
     * @param model             empty when the file does not say
     * @param hours             from the newest sample to the exhaustion; empty for none in sight
     * @param notificationLevel value from which on events go out, per cent; empty without an exhaustion
     * @param limit             that is forecast against, per cent; empty for none
     * @param text              all of it in words, as a person reads it
     */
    public record Headline(long time, String model, OptionalDouble hours, OptionalDouble notificationLevel,
            OptionalInt limit, String text) {}

    /**
     * A curve; both arrays are equally long and belong to the caller. Where a model gives no finite number, the value
     * is infinite or NaN.
     *
     * @param seconds since the oldest sample
     * @param values  per cent
     */
    public record Curve(float[] seconds, float[] values) {}

    /**
     * A whole forecast, of one cycle.
     *
     * @param samples those it was made from, oldest first
     */
    public record Trend(Headline headline, Curve samples, Curve forecast) {

        /**
         * A moment of one of the curves in seconds since the epoch: the headline's time is that of the newest sample.
         *
         * @param seconds since the oldest sample
         */
        public double epochSeconds(float seconds) {
            int last = samples.seconds.length - 1;
            return headline.time - (last < 0 ? 0.0 : samples.seconds[last]) + (double) seconds;
        }
    }

    /** Receives what a native method hands over; the library finds the methods by name and signature. */
    static final class Values {
        final List<String> texts = new ArrayList<>();

        final List<Integer> ints = new ArrayList<>();

        final List<Float> floats = new ArrayList<>();

        public void AppendCompUnicode(String text) {
            texts.add(text);
        }

        public void AppendInt(int value) {
            ints.add(value);
        }

        public void AppendFloat(float value) {
            floats.add(value);
        }
    }

    private static final class Library implements Natives {
        private final LumetraSubagent subagent = new LumetraSubagent();

        @Override
        public int descriptors(Object list) {
            return subagent.trendViewerGetDescriptors(list);
        }

        @Override
        public int lockAndLabel(
                String name, String instance, Object intOut, Object textOut, Object floatOut) {
            return subagent.trendViewerLockAndGetTimeStampLabel(name, instance, intOut, textOut, floatOut);
        }

        @Override
        public int limit(String name, String instance, Object intOut) {
            return subagent.trendViewerGetLimit(name, instance, intOut);
        }

        @Override
        public int pairs(String name, String instance, String kind, Object list) {
            return subagent.trendViewerGetXYPairs(name, instance, kind, list);
        }

        @Override
        public int unlock() {
            return subagent.trendViewerUnlockFiles();
        }
    }

    private final Natives natives;

    public TrendReader() {
        this(new Library());
    }

    /** A reader on other methods than the library's. */
    TrendReader(Natives natives) {
        this.natives = natives;
    }

    /**
     * The resources that the agent watches, in its order, the declarations of disks included. Takes no lock.
     *
     * @throws TrendUnavailable when no agent runs
     */
    public List<Resource> resources() throws TrendUnavailable {
        String what = "the list of resources";
        Values values = new Values();
        refuse(natives.descriptors(values), what);
        if (values.texts.size() % 2 != 0) {
            throw new TrendUnavailable(what, Reason.MALFORMED);
        }
        List<Resource> found = new ArrayList<>();
        for (int i = 0; i < values.texts.size(); i += 2) {
            found.add(new Resource(values.texts.get(i), values.texts.get(i + 1)));
        }
        return found;
    }

    /**
     * The outcome of a resource's newest forecast.
     *
     * @throws TrendUnavailable when it cannot be read; a resource has no forecast before its 200th sample
     */
    public Headline headline(Resource resource) throws TrendUnavailable {
        String instance = fileText(resource.instance);
        try {
            return lockedHeadline(resource, instance);
        } finally {
            natives.unlock();
        }
    }

    /**
     * A resource's newest forecast with its curves, all of one cycle.
     *
     * @throws TrendUnavailable when it cannot be read; a resource has no forecast before its 200th sample
     */
    public Trend read(Resource resource) throws TrendUnavailable {
        String instance = fileText(resource.instance);
        Headline headline;
        Values samples = new Values();
        Values forecast = new Values();
        try {
            headline = lockedHeadline(resource, instance);
            readPairs(resource, instance, "SMP", samples);
            readPairs(resource, instance, "PRD", forecast);
        } finally {
            natives.unlock();
        }
        return new Trend(headline, curve(samples, resource), curve(forecast, resource));
    }

    /** An instance as it stands in file names: what means something there becomes an underscore. */
    private static String fileText(String instance) {
        return instance.replaceAll("[/: *?\"><|]", "_");
    }

    private static String what(Resource resource) {
        return "the forecast of " + Words.printable(resource.name) + " "
                + Words.printable(resource.instance);
    }

    /** The lock is held afterwards unless this throws, and may be even then. */
    private Headline lockedHeadline(Resource resource, String instance) throws TrendUnavailable {
        String what = what(resource);
        Values label = new Values();
        refuse(natives.lockAndLabel(resource.name, instance, label, label, label), what);
        Values limit = new Values();
        refuse(natives.limit(resource.name, instance, limit), what);
        if (label.texts.size() != 1 || label.ints.size() != 1 || label.floats.size() != 1
                || limit.ints.size() != 1) {
            throw new TrendUnavailable(what, Reason.MALFORMED);
        }
        return headline(label, limit.ints.get(0), what);
    }

    private static Headline headline(Values label, int limit, String what) throws TrendUnavailable {
        String text = label.texts.get(0);
        OptionalInt known = limit == -1 ? OptionalInt.empty() : OptionalInt.of(limit);
        if (text.equals(UNKNOWN)) {
            return new Headline(
                    label.ints.get(0), "", OptionalDouble.empty(), OptionalDouble.empty(), known, text);
        }
        Matcher m = HEADLINE.matcher(text);
        if (!m.matches()) {
            throw new TrendUnavailable(what, Reason.MALFORMED);
        }
        OptionalDouble hours = m.group(2) == null ? OptionalDouble.empty()
                : OptionalDouble.of(Double.parseDouble(m.group(2)));
        return new Headline(
                label.ints.get(0), m.group(1), hours, level(label.floats.get(0)), known, text);
    }

    /** -1 stands for no exhaustion, -2 for no headline, -3 for a level that is no number. */
    private static OptionalDouble level(float level) {
        boolean none = level == -1 || level == -2 || level == -3 || Float.isNaN(level);
        // by way of its decimal digits, which are those of the file
        return none ? OptionalDouble.empty() : OptionalDouble.of(Double.parseDouble(Float.toString(level)));
    }

    private void readPairs(Resource resource, String instance, String kind, Values values)
            throws TrendUnavailable {
        int result = natives.pairs(resource.name, instance, kind, values);
        if (values.texts.isEmpty() && result != 0) {
            refuse(result, what(resource));
        }
        if (result != values.texts.size() || result % 2 != 0) {
            throw new TrendUnavailable(what(resource), Reason.MALFORMED);
        }
    }

    private static Curve curve(Values values, Resource resource) throws TrendUnavailable {
        int points = values.texts.size() / 2;
        Curve curve = new Curve(new float[points], new float[points]);
        for (int i = 0; i < points; i++) {
            curve.seconds[i] = number(values.texts.get(2 * i), resource);
            curve.values[i] = number(values.texts.get(2 * i + 1), resource);
        }
        return curve;
    }

    private static float number(String token, Resource resource) throws TrendUnavailable {
        if (NUMBER.matcher(token).matches()) {
            return Float.parseFloat(token);
        }
        return switch (token) {
            case "nan", "-nan" -> Float.NaN;
            case "inf" -> Float.POSITIVE_INFINITY;
            case "-inf" -> Float.NEGATIVE_INFINITY;
            default -> throw new TrendUnavailable(what(resource), Reason.MALFORMED);
        };
    }

    private static void refuse(int result, String what) throws TrendUnavailable {
        switch (result) {
            case LumetraSubagent.SUCCESS -> { }
            case LumetraSubagent.NO_RESOURCES -> throw new TrendUnavailable(what, Reason.NO_RESOURCES);
            case LumetraSubagent.STOPPING -> throw new TrendUnavailable(what, Reason.STOPPING);
            case LumetraSubagent.NO_FILE -> throw new TrendUnavailable(what, Reason.NO_FILE);
            case LumetraSubagent.BUSY -> throw new TrendUnavailable(what, Reason.BUSY);
            default -> throw new TrendUnavailable(what, Reason.MALFORMED);
        }
    }
}
