package com.quorin.sysmgt.tavl.LumetraAgent.resource;

/**
 * One resource as the agent has it after a cycle. Texts are texts of bytes. Immutable.
 *
 * @param forecast the newest forecast; null before the first
 */
public record RunResource(Identity identity, Reading reading, Analysis analysis, Forecast forecast,
        Notification notification, WatchReason reason) {

    /** A limit or a capacity that is not set. */
    public static final double NONE = -1;

    /**
     * Which resource it is.
     *
     * @param id         its number, the same across restarts
     * @param name       the display name; may be empty
     * @param mountPoint where the mount point begins in the instance; -1 where there is none
     */
    public record Identity(int id, String object, String instance, String counter, String name, int mountPoint) {

        public boolean isDisk() {
            return object.equals(Counters.DISK);
        }

        /** Whether it is one of several, and not of the whole system. */
        boolean hasInstance() {
            return isDisk() || object.equals(Counters.PROCESS);
        }

        /** The display name, or the counter's where there is none. */
        public String displayName() {
            return name.isEmpty() ? counter : name;
        }
    }

    /**
     * What the machine told.
     *
     * @param value      the newest that was read, per cent
     * @param isRead     whether that was in this cycle
     * @param measured   the machine's capacity, the newest that was read or declared
     * @param isMeasured whether that was read in this cycle
     * @param configured the capacity to reckon with in the machine's place; not above 0: none
     */
    public record Reading(double value, boolean isRead, double measured, boolean isMeasured, double configured) {}

    /** Why it is watched, in the library's order. */
    public enum WatchReason {
        DECLARED("It is watched because the declarations name this counter of the whole system."),
        MOUNTED("It is watched because it is mounted: the declarations want this counter of every disk."),
        NAMED("It is watched because the declarations name this disk; no rule leaves it out.");

        private final String words;

        WatchReason(String words) {
            this.words = words;
        }

        /** One sentence. */
        public String words() {
            return words;
        }
    }

    /** A limit that the newest value has reached. */
    public enum Reached { NONE, LOWER, UPPER }

    /**
     * What is forecast against.
     *
     * @param lower per cent; {@link RunResource#NONE} for none
     * @param upper per cent; {@link RunResource#NONE} for none
     */
    public record Limits(double lower, double upper, Reached reached) {

        public boolean hasLower() {
            return lower != NONE;
        }

        public boolean hasUpper() {
            return upper != NONE;
        }
    }

    /**
     * How it is analysed.
     *
     * @param windowHours length of the analysis window
     * @param slots       samples that the window holds; 0 when there is no memory for them
     * @param samples     that a forecast can use, those taken over from earlier runs included
     */
    public record Analysis(int method, Limits limits, double windowHours, int slots, int samples) {}

    /**
     * A forecast.
     *
     * @param time  of the cycle that made it, seconds since the epoch
     * @param model the model that was chosen
     * @param hours from then to the exhaustion; not above 0: none in sight
     */
    public record Forecast(long time, String model, double hours) {

        public boolean hasExhaustion() {
            return hours > 0;
        }
    }

    /**
     * The intent to tell of an exhaustion.
     *
     * @param level      the value from which on events go out, per cent
     * @param cyclesLeft cycles without an exhaustion in sight until it is dropped
     * @param since      when it arose and the limit was not yet reached, seconds since the epoch; 0 otherwise
     */
    public record Notification(boolean isPending, double level, int cyclesLeft, long since) {}
}
