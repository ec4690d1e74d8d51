package com.quorin.sysmgt.tavl.LumetraAgent.resource;

/**
 * What the chart of one resource shows. Immutable. The components' names are those of the JSON.
 *
 * @param id                  the resource's number
 * @param source              "forecast", or as long as there is none "history": samples, earlier runs included
 * @param forecastAt          when the forecast was made, seconds since the epoch; null without one
 * @param model               null without a forecast
 * @param secondsToExhaustion from {@code forecastAt} on; null for none
 * @param notificationLevel   value from which on events go out, per cent; null without exhaustion
 * @param limit               per cent; null for none
 * @param samples             oldest first
 * @param forecast            null without one
 * @param announcements       of the last day: {@code times} when, {@code values} the moment of exhaustion that was
 *                            announced then, both in seconds since the epoch; null where nothing was announced
 */
public record TrendView(int id, String source, Long forecastAt, String model, Double secondsToExhaustion,
        Double notificationLevel, Double limit, Curve samples, Curve forecast, Curve announcements) {

    /** The chart of a resource about which nothing was announced. */
    public TrendView(int id, String source, Long forecastAt, String model, Double secondsToExhaustion,
            Double notificationLevel, Double limit, Curve samples, Curve forecast) {
        this(id, source, forecastAt, model, secondsToExhaustion, notificationLevel, limit, samples, forecast, null);
    }

    /**
     * A curve; both arrays are equally long.
     *
     * @param times  seconds since the epoch
     * @param values per cent
     */
    public record Curve(double[] times, double[] values) {

        public static final Curve EMPTY = new Curve(new double[0], new double[0]);

        /** How many points it has. */
        public int length() {
            return times.length;
        }
    }
}
