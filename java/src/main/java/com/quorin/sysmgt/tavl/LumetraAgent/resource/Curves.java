package com.quorin.sysmgt.tavl.LumetraAgent.resource;

import java.util.Optional;

/**
 * The samples of a resource that the agent keeps, and its newest forecast; with one, the samples end with those
 * that it was made from.
 *
 * @param announcements of the last day: when, and the moment that was announced, seconds since the epoch
 */
public record Curves(TrendView.Curve samples, Optional<Forecast> forecast, TrendView.Curve announcements) {

    /** Curves of a resource about which nothing was announced. */
    public Curves(TrendView.Curve samples, Optional<Forecast> forecast) {
        this(samples, forecast, TrendView.Curve.EMPTY);
    }

    /**
     * A forecast with its points.
     *
     * @param level the value from which on events go out, per cent
     */
    public record Forecast(RunResource.Forecast outcome, double level, TrendView.Curve points) {}
}
