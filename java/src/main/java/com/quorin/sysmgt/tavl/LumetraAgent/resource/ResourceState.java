package com.quorin.sysmgt.tavl.LumetraAgent.resource;

import com.fasterxml.jackson.annotation.JsonValue;

/** How a resource stands, in the order of what a person must act upon first. */
public enum ResourceState {
    /** Its newest value has reached its limit. */
    AT_LIMIT("at-limit", "at its limit"),
    /** An exhaustion is forecast, and the value has reached the notification level: events go out. */
    FORECAST("forecast", "exhaustion forecast"),
    /** An exhaustion is forecast, and the value has not yet reached the notification level. */
    PENDING("pending", "notification pending"),
    /** No new cycle for three periods, or the agent has ended: nothing is known of the present. */
    STALE("stale", "stale"),
    /** The agent could not read it in the newest cycle. */
    UNREADABLE("unreadable", "unreadable"),
    /** There are too few samples for a forecast. */
    COLLECTING("collecting", "collecting"),
    /** The forecast reaches no limit within the alert window, or no model could be fitted. */
    NO_EXHAUSTION("no-exhaustion", "no exhaustion within the horizon"),
    /** It has no limit that it could reach, or is sampled only. */
    NO_LIMIT("no-limit", "no limit"),
    /** It was there earlier in this run and is gone, or the machine has none of it. */
    ABSENT("absent", "absent");

    private final String id;
    private final String words;

    ResourceState(String id, String words) {
        this.id = id;
        this.words = words;
    }

    /** The state as programs read it: lower-case words joined by hyphens. */
    @JsonValue
    public String id() {
        return id;
    }

    /** The state as people read it. */
    public String words() {
        return words;
    }

    /** Whether the resource runs out or has run out: the first three states. */
    public boolean isUrgent() {
        return this == AT_LIMIT || this == FORECAST || this == PENDING;
    }
}
