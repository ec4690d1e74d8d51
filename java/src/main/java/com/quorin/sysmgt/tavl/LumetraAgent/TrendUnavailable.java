package com.quorin.sysmgt.tavl.LumetraAgent;

/** Says that a forecast cannot be read, and why. Nothing is locked afterwards. */
public final class TrendUnavailable extends Exception {

    private static final long serialVersionUID = 1L;

    /** Why a forecast cannot be read. */
    public enum Reason {
        /** No resources are declared, or no agent runs in this process. */
        NO_RESOURCES("no agent runs, or it has no resources"),
        /** The agent is stopping; its forecasts go with it. */
        STOPPING("the agent is stopping"),
        /** There is no forecast of this resource, or not yet. */
        NO_FILE("there is no forecast of it"),
        /** The agent was at work on the forecasts for more than three seconds; try again later. */
        BUSY("the agent is busy with the forecasts"),
        /** What was read is no forecast. */
        MALFORMED("its files hold something else than a forecast");

        private final String words;

        Reason(String words) {
            this.words = words;
        }
    }

    /** Why; an enum, so it goes wherever the exception goes. */
    private final Reason reason;

    TrendUnavailable(String what, Reason reason) {
        super("Cannot read " + what + ": " + reason.words);
        this.reason = reason;
    }

    public Reason reason() {
        return reason;
    }
}
