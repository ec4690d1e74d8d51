package com.quorin.sysmgt.tavl.LumetraAgent.watch;

import com.quorin.sysmgt.tavl.LumetraAgent.resource.ResourceNames;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.RunResource;

/** One resource as {@link WatchedFleet} keeps it: its samples, and what the agent said of it last. */
final class WatchedResource {

    private final SampleHistory history;
    private RunResource newest;
    private ResourceNames names;
    private long cycle;
    private boolean hasBeenRead;

    /** A resource of which nothing is known yet, and of which at most so many samples are kept. */
    WatchedResource(int samples) {
        history = new SampleHistory(samples);
    }

    /**
     * Takes up what the agent says after a cycle; the same cycle once more changes nothing.
     *
     * @param number of the cycle in this run
     * @param time   of the cycle
     */
    void take(long number, long time, RunResource said) {
        if (newest == null || !newest.identity().equals(said.identity())) {
            names = ResourceNames.of(said.identity());
        }
        newest = said;
        hasBeenRead |= said.reading().isRead();
        if (cycle != number) {
            cycle = number;
            history.add(time, said.reading().value());
        }
    }

    SampleHistory history() {
        return history;
    }

    /** What the agent said of it last; null when it was in earlier runs only. */
    RunResource newest() {
        return newest;
    }

    /** Its names; null as long as {@link #newest} is. */
    ResourceNames names() {
        return names;
    }

    /** Whether its value has been read in this run: one that never was is no reading. */
    boolean hasBeenRead() {
        return hasBeenRead;
    }

    /** The number of the cycle that had it last; 0 for none in this run. */
    long cycle() {
        return cycle;
    }
}
