package com.quorin.sysmgt.tavl.LumetraAgent.check;

import com.quorin.sysmgt.tavl.LumetraAgent.resource.Counters;

/**
 * One input of the declarations as the agent reads it. Texts have one character for each byte.
 *
 * @param window     hours; negative asks for the automatic one
 * @param upperLimit the capacity to reckon with, in the resource's own unit; 0 or less takes the measured one
 */
public record DeclaredInput(Place.Of<String> object, Place.Of<String> instance, Place.Of<String> counter,
        Place.Of<String> name, Place.Of<Double> window, Place.Of<Integer> method,
        Place.Of<Double> upperLimit) {

    public Place place() {
        return object.place();
    }

    public boolean isDisk() {
        return object.value().equals(Counters.DISK);
    }

    /** Whether something counts it and its method is none that switches forecasts off. */
    boolean isForecast() {
        return method.value() != 0 && DeclarationJudge.isCounted(this);
    }
}
