package com.quorin.sysmgt.tavl.LumetraAgent.resource;

import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.util.Locale;
import java.util.Optional;

/**
 * What 100 per cent of a resource stand for, and whether there is anything that it could run out of.
 *
 * @param capacity in the resource's unit; 0 where it is not known
 */
public record ResourceFacts(RunResource resource, Kind kind, double capacity) {

    /** From this size on a kernel's maximum means "as many as you like". */
    private static final double NO_LIMIT = 9.2e18;

    /** What the capacity means. */
    public enum Kind {
        /** The resource has a capacity that it can use up. */
        COUNTED,
        /** The agent has no counter of this name and archives 0. */
        NOT_MEASURED,
        /** The machine has never told the capacity. */
        UNKNOWN_CAPACITY,
        /** The machine has none of it. */
        NONE_THERE,
        /** A file system that counts no space or no inodes of its own. */
        COUNTS_NONE,
        /** The kernel sets no maximum. */
        UNLIMITED
    }

    public static ResourceFacts of(RunResource resource) {
        RunResource.Reading reading = resource.reading();
        double capacity = isOwn(reading) ? reading.configured() : reading.measured();
        return new ResourceFacts(resource, kind(resource.identity(), reading, capacity), capacity);
    }

    private static boolean isOwn(RunResource.Reading reading) {
        return reading.configured() > 0;
    }

    private static Optional<CounterTable.Counter> counterOf(RunResource.Identity identity) {
        return CounterTable.current().of(identity.object(), identity.counter());
    }

    private static Kind kind(RunResource.Identity identity, RunResource.Reading reading, double capacity) {
        Optional<CounterTable.Counter> counter = counterOf(identity);
        if (counter.isEmpty()) {
            return Kind.NOT_MEASURED;
        }
        if (capacity > 0) {
            return capacity >= NO_LIMIT ? Kind.UNLIMITED : Kind.COUNTED;
        }
        if (!reading.isMeasured()) {
            return Kind.UNKNOWN_CAPACITY;
        }
        return counter.get().isAbsent() ? Kind.NONE_THERE
                : counter.get().nothing().isEmpty() ? Kind.COUNTED : Kind.COUNTS_NONE;
    }

    private RunResource.Limits limits() {
        return resource.analysis().limits();
    }

    /** Whether there is something that the resource could run out of, and the method looks at it. */
    boolean hasLimit() {
        boolean canRunOut =
                kind == Kind.COUNTED || kind == Kind.UNKNOWN_CAPACITY || kind == Kind.NONE_THERE;
        return canRunOut && (limits().hasLower() || limits().hasUpper());
    }

    /** The limit that is forecast against, the lower one where there are two; null for none. */
    public Double limit() {
        if (!hasLimit()) {
            return null;
        }
        return limits().hasLower() ? limits().lower() : limits().upper();
    }

    /** Whether the capacity is the user's and not the machine's. */
    public boolean isOwn() {
        return isOwn(resource.reading());
    }

    /** What the capacity means; empty for a capacity that can be used up or is unknown. */
    public String remark() {
        return switch (kind) {
            case COUNTED, UNKNOWN_CAPACITY -> "";
            case NOT_MEASURED -> "not measured: the agent has no counter of this name";
            case NONE_THERE, COUNTS_NONE ->
                counterOf(resource.identity()).map(CounterTable.Counter::nothing).orElse("");
            case UNLIMITED ->
                "no limit on this machine; set UpperLimitAbs to forecast against one of your own";
        };
    }

    /** Why the method forecasts nothing; empty for one that does. */
    public String methodRemark() {
        int method = resource.analysis().method();
        if (limits().hasLower() || limits().hasUpper()) {
            return "";
        }
        return method == 0 ? "sampled only, never forecast (AnalyticalMethod 0)"
                : "no limit to forecast against (AnalyticalMethod " + method + ")";
    }

    /** What 100 per cent stand for, in words; empty when there is nothing to be told. */
    public Optional<String> amount() {
        return kind == Kind.COUNTED ? counterOf(resource.identity()).map(this::inWords) : Optional.empty();
    }

    private String inWords(CounterTable.Counter counter) {
        return counter.unit().isEmpty() ? Words.ofBytes(capacity * counter.bytes())
                : String.format(Locale.ROOT, "%.0f %s", capacity, counter.unit());
    }
}
