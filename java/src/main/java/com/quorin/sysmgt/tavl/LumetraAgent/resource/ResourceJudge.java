package com.quorin.sysmgt.tavl.LumetraAgent.resource;

import java.util.Comparator;

/** The rules by which a resource gets its state, its note and its place in the list. */
public final class ResourceJudge {

    /** Most urgent first. */
    public static final Comparator<Snapshot.Resource> MOST_URGENT_FIRST = Comparator
            .comparing(Snapshot.Resource::state)
            .thenComparing(r -> r.forecast().secondsToExhaustion(),
                    Comparator.nullsLast(Comparator.naturalOrder()))
            .thenComparing(r -> r.reading().value(), Comparator.nullsLast(Comparator.reverseOrder()))
            .thenComparing(Snapshot.Resource::id);

    /**
     * What is to be judged.
     *
     * @param present  whether the agent had it in its newest cycle
     * @param hasValue whether its value was read in any cycle
     * @param stale    whether the newest cycle is too old
     * @param forecast the newest; null without one that still counts
     * @param needed   so many samples does a forecast need
     */
    public record Case(ResourceFacts facts, boolean present, boolean hasValue, boolean stale,
            RunResource.Forecast forecast, int needed) {

        private RunResource.Reading reading() {
            return facts.resource().reading();
        }

        private RunResource.Analysis analysis() {
            return facts.resource().analysis();
        }
    }

    private ResourceJudge() {}

    public static ResourceState state(Case c) {
        if (!c.present || c.facts.kind() == ResourceFacts.Kind.NONE_THERE) {
            return ResourceState.ABSENT;
        }
        if (!c.facts.hasLimit()) {
            return ResourceState.NO_LIMIT;
        }
        if (c.stale) {
            return ResourceState.STALE;
        }
        if (!isReadable(c)) {
            return ResourceState.UNREADABLE;
        }
        if (c.analysis().limits().reached() != RunResource.Reached.NONE) {
            return ResourceState.AT_LIMIT;
        }
        return c.forecast == null ? withoutForecast(c) : withForecast(c);
    }

    private static boolean isReadable(Case c) {
        return c.reading().isRead() && Double.isFinite(c.reading().value());
    }

    private static ResourceState withoutForecast(Case c) {
        return c.analysis().samples() < c.needed ? ResourceState.COLLECTING : ResourceState.NO_EXHAUSTION;
    }

    private static ResourceState withForecast(Case c) {
        if (!c.forecast.hasExhaustion()) {
            return ResourceState.NO_EXHAUSTION;
        }
        // the agent compares in its own, shorter numbers
        float level = (float) c.facts.resource().notification().level();
        return (float) c.reading().value() >= level ? ResourceState.FORECAST : ResourceState.PENDING;
    }

    /** Whether there are samples enough and yet no forecast, so that nothing is known of an exhaustion. */
    private static boolean lacksModel(Case c) {
        return c.forecast == null && state(c) == ResourceState.NO_EXHAUSTION;
    }

    /** The state in words. */
    public static String words(Case c) {
        return lacksModel(c) ? "no forecast" : state(c).words();
    }

    /** What there is to say of a resource beside its state; null when the state says it all. */
    public static String note(Case c) {
        if (!c.facts.remark().isEmpty()) {
            return c.facts.remark();
        }
        if (!c.facts.methodRemark().isEmpty()) {
            return c.facts.methodRemark();
        }
        int slots = c.analysis().slots();
        if (slots == 0) {
            return "there is no memory for its samples, so it is not forecast";
        }
        if (slots < c.needed) {
            return "window holds only " + slots + (slots == 1 ? " sample" : " samples")
                    + ", a forecast needs " + c.needed;
        }
        if (c.present && !isReadable(c)) {
            return "it could not be read in the newest cycle"
                    + (c.hasValue ? "; the value is the last that was read" : "");
        }
        return lacksModel(c) ? "no model could be fitted" : null;
    }
}
