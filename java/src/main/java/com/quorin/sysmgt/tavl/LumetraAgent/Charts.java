package com.quorin.sysmgt.tavl.LumetraAgent;

import java.util.Arrays;

/** Makes the charts of resources. */
final class Charts {

    private Charts() {}

    /**
     * The chart of a forecast. Points that are no numbers are left out.
     *
     * @param id    the resource's number
     * @param trend the forecast
     * @return the chart
     */
    static TrendView of(int id, TrendReader.Trend trend) {
        TrendReader.Headline h = trend.headline();
        return new TrendView(id, "forecast", h.time() < 0 ? null : (Long) h.time(),
                h.model().isEmpty() ? null : Words.printable(h.model()), WatchedFleet.secondsToExhaustion(h),
                h.hours().isEmpty() ? null : WatchedFleet.boxed(h.notificationLevel()),
                WatchedFleet.limit(h, null), curve(trend, trend.samples()), curve(trend, trend.forecast()));
    }

    /**
     * The chart of a resource that has no forecast.
     *
     * @param id      the resource's number
     * @param samples its samples
     * @param limit   its limit by its method; null for none
     * @return the chart
     */
    static TrendView of(int id, TrendView.Curve samples, Double limit) {
        return new TrendView(id, "history", null, null, null, null, limit, samples, null);
    }

    private static TrendView.Curve curve(TrendReader.Trend trend, TrendReader.Curve curve) {
        double[] times = new double[curve.seconds().length];
        double[] values = new double[times.length];
        int count = 0;
        for (int i = 0; i < times.length; i++) {
            float value = curve.values()[i];
            if (Float.isFinite(value) && Float.isFinite(curve.seconds()[i])) {
                times[count] = trend.epochSeconds(curve.seconds()[i]);
                values[count++] = decimal(value);
            }
        }
        return new TrendView.Curve(Arrays.copyOf(times, count), Arrays.copyOf(values, count));
    }

    /** The number with the digits that the file has, not those of its binary form. */
    private static double decimal(float value) {
        return Double.parseDouble(Float.toString(value));
    }
}
