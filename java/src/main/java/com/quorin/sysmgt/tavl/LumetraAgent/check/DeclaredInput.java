package com.quorin.sysmgt.tavl.LumetraAgent.check;

import com.quorin.sysmgt.tavl.LumetraAgent.resource.Counters;
import java.util.OptionalLong;

/**
 * One input of the declarations as the agent reads it. Texts have one character for each byte.
 *
 * @param window     hours; negative asks for the automatic one
 * @param upperLimit the capacity to reckon with, in the resource's own unit; 0 or less takes the measured one
 * @param trendFile  name of the file with its forecast; of disks as if they had no instance
 */
public record DeclaredInput(Place.Of<String> object, Place.Of<String> instance, Place.Of<String> counter,
        Place.Of<String> name, Place.Of<Double> window, Place.Of<Integer> method,
        Place.Of<Double> upperLimit, Sized sized, String trendFile) {

    /** What becomes of a window, in the library's order. */
    public enum Fate {
        /** It stays. */
        OWN,
        /** The automatic window takes its place, as it asks for. */
        AUTOMATIC,
        /** The same, as not even one period fits into it. */
        BELOW_PERIOD,
        /** No ring can hold its samples: the resource is not taken up. */
        TOO_LONG
    }

    /**
     * The window in force.
     *
     * @param samples that it holds; empty when no ring can hold them
     */
    public record Sized(Fate fate, OptionalLong samples) {}

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
