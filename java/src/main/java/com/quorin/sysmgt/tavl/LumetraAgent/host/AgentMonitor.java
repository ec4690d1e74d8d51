package com.quorin.sysmgt.tavl.LumetraAgent.host;

import com.quorin.sysmgt.tavl.LumetraAgent.resource.LeftOutSummary;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Publication;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.RunState;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import com.quorin.sysmgt.tavl.LumetraAgent.watch.SamplePlan;
import java.io.PrintStream;
import java.time.Duration;
import java.time.LocalDateTime;
import java.time.format.DateTimeFormatter;
import java.util.Locale;
import java.util.Optional;
import java.util.function.Consumer;

/**
 * Tells the user what a running agent does: what it resumed with, the report after the first cycle, and a status
 * line every minute.
 *
 * <p>Any thread may call.
 */
final class AgentMonitor implements Consumer<Publication> {

    private static final Duration STATUS_EVERY = Duration.ofMinutes(1);
    private static final DateTimeFormatter CLOCK =
            DateTimeFormatter.ofPattern("uuuu-MM-dd HH:mm:ss", Locale.ROOT);

    private final PrintStream out;
    private final long started;
    private volatile long cycles;
    private volatile RunState state;
    private boolean reported;
    private boolean hasToldResumed;
    private boolean awaitsDisks;
    private long nextStatus;

    /**
     * A monitor of an agent that is about to start.
     *
     * @param nanoTime as {@link System#nanoTime} gives it
     */
    AgentMonitor(PrintStream out, long nanoTime) {
        this.out = out;
        this.started = nanoTime;
        this.nextStatus = nanoTime + STATUS_EVERY.toNanos();
    }

    /** Takes up a publication without printing anything. */
    @Override
    public void accept(Publication publication) {
        state = publication.state().orElse(state);
        cycles = publication.cycles();
    }

    /** How many cycles the agent has completed. */
    long cycles() {
        return cycles;
    }

    /** The pause between two cycles; empty before the agent has started. */
    Optional<Duration> pause() {
        return Optional.ofNullable(state).map(known -> known.settings().pause());
    }

    /**
     * Prints what is due.
     *
     * @param nanoTime as {@link System#nanoTime} gives it
     */
    synchronized void look(long nanoTime) {
        long completed = cycles; // before the state, which is there once this is above 0
        RunState newest = state;
        if (newest != null && !reported) {
            tellResumed(newest.archive().resumed());
        }
        if (completed > 0 && !reported) {
            reported = true;
            report(newest);
        } else if (awaitsDisks && newest.notice().isEmpty()) {
            awaitsDisks = false;
            tellOfDisks(newest);
        }
        if (nanoTime - nextStatus >= 0) {
            out.println(CLOCK.format(LocalDateTime.now()) + "  "
                    + status(newest, completed, Duration.ofNanos(nanoTime - started)));
            nextStatus += STATUS_EVERY.toNanos();
        }
    }

    private void tellResumed(RunState.Resumed resumed) {
        if (resumed.isAnything() && !hasToldResumed) {
            hasToldResumed = true;
            out.println("Resumed with " + resumed.samples() + (resumed.samples() == 1 ? " sample" : " samples")
                    + " of " + resumed.resources() + (resumed.resources() == 1 ? " resource" : " resources")
                    + " from the archive.");
        }
    }

    private void report(RunState first) {
        try {
            ResourceReport.lines(first.resources()).forEach(out::println);
        } catch (RuntimeException | OutOfMemoryError e) {
            // a display that fails must not end the run of an agent that works
            out.println("The agent's resources cannot be shown: " + Words.printable(e.toString()));
        }
        LeftOutSummary.of(first.leftOut().stream().map(Snapshot.LeftOut::of).toList())
                .ifPresent(summary -> out.println(summary + " lumetra status --skipped lists them."));
        awaitsDisks = first.notice().isPresent();
        first.notice().ifPresent(out::println);
        SamplePlan plan = SamplePlan.of(first);
        out.println("It takes " + plan.period() + ". " + plan.firstForecast());
        out.println("It announces an exhaustion that is forecast for " + first.settings().minForecastHours()
                + " to " + first.settings().maxForecastHours() + " h ahead.");
    }

    private void tellOfDisks(RunState newest) {
        long disks = newest.resources().stream().filter(r -> r.identity().isDisk()).count();
        if (disks > 0) {
            out.println("The disks are listed now: the agent watches " + disks
                    + (disks == 1 ? " resource" : " resources") + " of them.");
        }
    }

    private static String status(RunState newest, long completed, Duration running) {
        if (completed == 0) {
            return "running for " + Words.ofDuration(running) + ", no cycle yet; see log/LumetraAgent.log";
        }
        int resources = newest.resources().size();
        return completed + (completed == 1 ? " cycle, " : " cycles, ") + resources
                + (resources == 1 ? " resource" : " resources") + (newest.archive().bytes() < 0 ? ""
                        : ", archive " + Words.ofBytes((double) newest.archive().bytes()));
    }
}
