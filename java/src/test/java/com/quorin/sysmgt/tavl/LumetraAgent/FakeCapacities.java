package com.quorin.sysmgt.tavl.LumetraAgent;

import java.nio.file.Path;
import java.util.function.Supplier;

/** Capacities whose listing comes as soon as it is asked for, or, while it is held, once it is let go. */
final class FakeCapacities implements Capacities {

    private final Supplier<MachineCapacities> machine;
    private MachineCapacities newest =
            new MachineCapacities(Path.of("/"), DiskListing.empty(), DiskListing.empty());
    private boolean held;
    private boolean listing;
    private Throwable failure;

    FakeCapacities(Supplier<MachineCapacities> machine) {
        this.machine = machine;
    }

    @Override
    public void ask() {
        listing = held;
        if (!held) {
            newest = machine.get();
        }
    }

    @Override
    public boolean isListing() {
        return listing;
    }

    @Override
    public MachineCapacities newest() {
        if (failure instanceof Error error) {
            throw error;
        }
        if (failure != null) {
            throw (RuntimeException) failure;
        }
        return newest;
    }

    void failWith(Throwable reason) {
        failure = reason;
    }

    void hold() {
        held = true;
    }

    /** The listing that was asked for is over. */
    void letGo(boolean answered) {
        held = false;
        listing = false;
        if (answered) {
            newest = machine.get();
        }
    }
}
