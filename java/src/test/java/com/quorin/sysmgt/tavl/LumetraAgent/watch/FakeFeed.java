package com.quorin.sysmgt.tavl.LumetraAgent.watch;

import com.quorin.sysmgt.tavl.LumetraAgent.resource.Curves;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Feed;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Publication;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.RunState;
import java.time.Duration;
import java.util.HashMap;
import java.util.Map;
import java.util.Optional;

/** A library that publishes what a test puts in. */
final class FakeFeed implements Feed {

    final Map<Integer, Curves> curves = new HashMap<>();
    /** What happens while curves are asked for. */
    Runnable meanwhile = () -> { };
    /** Whether somebody waits or has waited for a publication. */
    volatile boolean isAwaited;
    private Publication newest;
    private Publication beforeEnd;
    private long serial;

    /** Publishes a state after so many cycles. */
    synchronized Publication publish(long cycles, RunState state) {
        beforeEnd = state == null ? newest : null;
        newest = new Publication(++serial, cycles, Optional.ofNullable(state));
        notifyAll();
        return newest;
    }

    /** Publishes that the run is over. */
    Publication end(long cycles) {
        return publish(cycles, null);
    }

    @Override
    public synchronized Optional<Publication> await(long after, Duration patience) {
        long deadline = System.nanoTime() + patience.toNanos();
        while (newest == null || newest.serial() <= after) {
            long left = (deadline - System.nanoTime()) / 1_000_000;
            if (left <= 0) {
                return Optional.empty();
            }
            isAwaited = true;
            try {
                wait(left);
            } catch (InterruptedException e) {
                Thread.currentThread().interrupt();
                return Optional.empty();
            }
        }
        boolean isLastCycleUnread = after > 0 && beforeEnd != null && beforeEnd.serial() > after;
        return Optional.of(isLastCycleUnread ? beforeEnd : newest);
    }

    @Override
    public Optional<Curves> curves(int id) {
        Optional<Curves> asked = Optional.ofNullable(curves.get(id));
        meanwhile.run();
        return asked;
    }
}
