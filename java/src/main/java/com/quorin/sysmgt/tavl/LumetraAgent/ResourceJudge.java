package com.quorin.sysmgt.tavl.LumetraAgent;

import java.util.Comparator;

/** The rules by which a resource gets its state, its note, its limit and its place in the list. */
final class ResourceJudge {

    /** Most urgent first. */
    static final Comparator<Snapshot.Resource> MOST_URGENT_FIRST = Comparator
            .comparing(Snapshot.Resource::state)
            .thenComparing(Snapshot.Resource::secondsToExhaustion,
                    Comparator.nullsLast(Comparator.naturalOrder()))
            .thenComparing(Snapshot.Resource::value, Comparator.nullsLast(Comparator.reverseOrder()))
            .thenComparing(Snapshot.Resource::id);

    /**
     * What is to be judged.
     *
     * @param facts    what is known of the resource; null when its record is not in the scratch pad
     * @param value    its newest value
     * @param present  whether it is in the newest line of the archive
     * @param readable whether the machine still tells how much there is of it
     * @param stale    whether the newest line is too old
     * @param window   how many samples its analysis window holds
     * @param headline its newest forecast; null without one
     */
    record Case(ResourceFacts facts, double value, boolean present, boolean readable, boolean stale,
            long window, TrendReader.Headline headline) {}

    private ResourceJudge() {}

    /**
     * How a resource stands.
     *
     * @param c the resource
     * @return its state
     */
    static ResourceState state(Case c) {
        if (!c.present || isAbsent(c)) {
            return ResourceState.ABSENT;
        }
        if (c.facts != null && !c.facts.hasLimit()) {
            return ResourceState.NO_LIMIT;
        }
        if (c.stale) {
            return ResourceState.STALE;
        }
        if (!c.readable || !Double.isFinite(c.value)) {
            return ResourceState.UNREADABLE;
        }
        if (c.facts != null && c.facts.isAtLimit(c.value)) {
            return ResourceState.AT_LIMIT;
        }
        return c.headline == null ? ResourceState.COLLECTING : forecast(c);
    }

    private static boolean isAbsent(Case c) {
        return c.facts != null && c.facts.kind() == ResourceFacts.Kind.NO_SWAP;
    }

    private static ResourceState forecast(Case c) {
        if (c.headline.hours().isEmpty()) {
            return ResourceState.NO_EXHAUSTION;
        }
        boolean reached = c.headline.notificationLevel().isPresent()
                && c.value >= c.headline.notificationLevel().getAsDouble();
        return reached ? ResourceState.FORECAST : ResourceState.PENDING;
    }

    /**
     * What there is to say of a resource beside its state.
     *
     * @param c the resource
     * @return the note; null when the state says it all
     */
    static String note(Case c) {
        if (c.facts == null) {
            return "its record is not in the scratch pad";
        }
        if (!c.facts.remark().isEmpty()) {
            return c.facts.remark();
        }
        if (!c.facts.methodRemark().isEmpty()) {
            return c.facts.methodRemark();
        }
        if (c.window < SamplePlan.SAMPLES_FOR_FORECAST) {
            return "window holds only " + c.window + (c.window == 1 ? " sample" : " samples")
                    + ", a forecast needs " + SamplePlan.SAMPLES_FOR_FORECAST;
        }
        if (c.present && !c.readable) {
            return "the machine does not tell how much there is of it; the value is the last that was read";
        }
        return null;
    }

    /**
     * The limit that a resource is forecast against, by its method and as the agent's headline has it: the
     * lower one where there are two.
     *
     * @param facts what is known of the resource
     * @return per cent; null for none
     */
    static Double limit(ResourceFacts facts) {
        if (!facts.hasLimit()) {
            return null;
        }
        return facts.hasLowerLimit() ? 0.0 : 100.0;
    }
}
