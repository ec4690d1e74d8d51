package com.quorin.sysmgt.tavl.LumetraAgent.watch;

import com.quorin.sysmgt.tavl.LumetraAgent.resource.Curves;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.RunResource;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.TrendView;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.util.Arrays;
import java.util.stream.DoubleStream;

/** Makes the charts of resources. */
final class Charts {

    private Charts() {}

    /** The chart of a forecast. */
    static TrendView ofForecast(int id, Curves.Forecast forecast, TrendView.Curve samples, Double limit,
            TrendView.Curve announcements) {
        RunResource.Forecast outcome = forecast.outcome();
        return new TrendView(id, "forecast", outcome.time(), modelOf(outcome), secondsToExhaustion(outcome),
                outcome.hasExhaustion() ? (Double) rounded(forecast.level()) : null, limit, finite(samples),
                finite(forecast.points()), announcements.length() == 0 ? null : announcements);
    }

    /**
     * The chart of a resource that has no forecast.
     *
     * @param earlier samples before those that the agent keeps
     * @param kept    samples that the agent keeps
     */
    static TrendView ofHistory(int id, TrendView.Curve earlier, TrendView.Curve kept, Double limit) {
        TrendView.Curve samples = new TrendView.Curve(
                DoubleStream.concat(Arrays.stream(earlier.times()), Arrays.stream(kept.times())).toArray(),
                DoubleStream.concat(Arrays.stream(earlier.values()), Arrays.stream(kept.values())).toArray());
        return new TrendView(id, "history", null, null, null, null, limit, finite(samples), null);
    }

    /** The model's name; null when none was chosen. */
    static String modelOf(RunResource.Forecast forecast) {
        return forecast.model().isEmpty() ? null : Words.ofBytes(forecast.model());
    }

    /** Whole seconds from the forecast to the exhaustion; null for none in sight. */
    static Double secondsToExhaustion(RunResource.Forecast forecast) {
        return forecast.hasExhaustion() ? (Double) Math.rint(forecast.hours() * 3600) : null;
    }

    /** To four decimals, which is finer than anybody reads and keeps the JSON short. */
    static double rounded(double value) {
        return Math.rint(value * 1e4) / 1e4;
    }

    /** The points that are numbers. */
    private static TrendView.Curve finite(TrendView.Curve curve) {
        double[] times = new double[curve.times().length];
        double[] values = new double[times.length];
        int count = 0;
        for (int i = 0; i < times.length; i++) {
            if (Double.isFinite(curve.times()[i]) && Double.isFinite(curve.values()[i])) {
                times[count] = rounded(curve.times()[i]);
                values[count++] = rounded(curve.values()[i]);
            }
        }
        return new TrendView.Curve(Arrays.copyOf(times, count), Arrays.copyOf(values, count));
    }
}
