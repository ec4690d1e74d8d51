package com.quorin.sysmgt.tavl.LumetraAgent;

import java.io.PrintStream;
import java.time.Duration;
import java.time.LocalDateTime;
import java.time.format.DateTimeFormatter;
import java.util.List;
import java.util.Locale;
import java.util.Map;

/**
 * Tells the user what a running agent does, from the files that it writes: the report after the first cycle,
 * and a status line every minute.
 *
 * <p>Any thread may call.
 */
final class AgentMonitor {

    private static final Duration STATUS_EVERY = Duration.ofMinutes(1);
    private static final DateTimeFormatter CLOCK =
            DateTimeFormatter.ofPattern("uuuu-MM-dd HH:mm:ss", Locale.ROOT);

    private final AgentConfiguration configuration;
    private final List<DeclaredResource> declared;
    private final SamplePlan plan;
    private final ArchiveTail tail;
    private final Capacities capacities;
    private final PrintStream out;
    private final long started;
    private volatile long cycles;
    private boolean asked;
    private boolean reported;
    private boolean awaitsDisks;
    private long nextStatus;

    /**
     * Starts to follow the archive at its present end, so it is made before the agent starts.
     *
     * @param configuration the agent's configuration
     * @param capacities    asked once, for the report, which waits for them
     * @param out           where the lines go
     * @param nanoTime      the present time as {@link System#nanoTime} gives it
     */
    AgentMonitor(AgentConfiguration configuration, Capacities capacities, PrintStream out, long nanoTime) {
        this.configuration = configuration;
        this.declared = DeclarationFile.read(FileText.path(configuration.resourceText()));
        this.plan = SamplePlan.of(configuration, declared);
        this.tail = new ArchiveTail(FileText.path(configuration.archive()));
        this.capacities = capacities;
        this.out = out;
        this.started = nanoTime;
        this.nextStatus = nanoTime + STATUS_EVERY.toNanos();
    }

    /**
     * How often the agent samples and when it can forecast.
     *
     * @return the plan
     */
    SamplePlan plan() {
        return plan;
    }

    /**
     * How many cycles the archive has shown.
     *
     * @return the count
     */
    long cycles() {
        return cycles;
    }

    /**
     * Looks at the archive and prints what is due.
     *
     * @param nanoTime the present time as {@link System#nanoTime} gives it
     */
    synchronized void look(long nanoTime) {
        if (!asked) {
            asked = true;
            capacities.ask();
        }
        long lines = tail.poll();
        cycles += lines;
        if (cycles > 0 && !reported && !capacities.isListing()) {
            reported = true;
            report();
        } else if (awaitsDisks && lines > 0) {
            lookForDisks();
        }
        if (nanoTime - nextStatus >= 0) {
            out.println(
                    CLOCK.format(LocalDateTime.now()) + "  " + status(Duration.ofNanos(nanoTime - started)));
            nextStatus += STATUS_EVERY.toNanos();
        }
    }

    /** Counts the cycles that the archive has gained since the last look, without printing anything. */
    synchronized void countLast() {
        cycles += tail.poll();
    }

    private void report() {
        try {
            tail.newest().ifPresent(this::reportSamples);
        } catch (RuntimeException | OutOfMemoryError e) {
            // a display that fails must not end the run of an agent that works
            out.println("The agent's resources cannot be shown: " + Words.printable(e.toString()));
        }
        out.println("It takes " + plan.period() + ". " + plan.firstForecast());
        out.println("It announces an exhaustion that is forecast for " + configuration.minForecastHours()
                + " to " + configuration.maxForecastHours() + " h ahead.");
    }

    private void reportSamples(ArchiveLine samples) {
        Map<Integer, KnownResource> known = known(samples);
        MachineCapacities machine = capacities.newest();
        new ResourceReport(known, declared, machine).lines(samples).forEach(out::println);
        awaitsDisks = DeclaredResource.areDisksDeclared(declared) && !machine.hasNoDisks()
                && known.values().stream().noneMatch(KnownResource::isDisk);
        if (awaitsDisks) {
            out.println(DiskListing.AWAITED);
        }
    }

    private Map<Integer, KnownResource> known(ArchiveLine samples) {
        return ScratchPadFile.read(FileText.path(configuration.scratchPad()), samples.values().keySet());
    }

    private void lookForDisks() {
        long disks = tail.newest().stream().flatMap(line -> known(line).values().stream())
                .filter(KnownResource::isDisk).count();
        if (disks > 0) {
            awaitsDisks = false;
            out.println("The disks are listed now: the agent watches " + disks
                    + (disks == 1 ? " resource" : " resources") + " of them.");
        }
    }

    private String status(Duration running) {
        if (cycles == 0) {
            return "running for " + Words.ofDuration(running)
                    + ", no cycle in the archive yet; see log/LumetraAgent.log";
        }
        int resources = tail.newest().map(line -> line.values().size()).orElse(0);
        return cycles + (cycles == 1 ? " cycle, " : " cycles, ") + resources
                + (resources == 1 ? " resource" : " resources") + ", archive "
                + Words.ofBytes((double) tail.size());
    }
}
