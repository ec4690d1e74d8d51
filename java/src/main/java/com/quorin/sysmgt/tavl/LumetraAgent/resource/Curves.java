package com.quorin.sysmgt.tavl.LumetraAgent.resource;

import java.util.Optional;

/**
 * The samples of a resource that the agent keeps, and its newest forecast; with one, the samples end with those
 * that it was made from.
 */
public record Curves(TrendView.Curve samples, Optional<Forecast> forecast) {

    /**
     * A forecast with its points.
     *
     * @param level the value from which on events go out, per cent
     */
    public record Forecast(RunResource.Forecast outcome, double level, TrendView.Curve points) {}
}
