package com.quorin.sysmgt.tavl.LumetraAgent.host;

import com.quorin.sysmgt.tavl.LumetraAgent.resource.ArchiveReading;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.io.PrintStream;
import java.time.Duration;
import java.util.function.Supplier;

/** Tells how far a run that begins has read its archive, once that takes long. */
final class ReadingProgress {

    private static final Duration PATIENCE = Duration.ofSeconds(3);
    private static final Duration EVERY = Duration.ofSeconds(10);

    private final PrintStream out;
    private final Supplier<ArchiveReading> reading;
    private boolean isUnderWay;
    private long next;

    ReadingProgress(PrintStream out, Supplier<ArchiveReading> reading) {
        this.out = out;
        this.reading = reading;
    }

    /**
     * Prints what is due.
     *
     * @param nanoTime the present time as {@link System#nanoTime} gives it
     */
    void look(long nanoTime) {
        ArchiveReading now = reading.get();
        if (now.isUnderWay() && !isUnderWay) {
            next = nanoTime + PATIENCE.toNanos();
        }
        isUnderWay = now.isUnderWay();
        if (isUnderWay && nanoTime - next >= 0) {
            next = nanoTime + EVERY.toNanos();
            out.println("Reading the archive: " + Math.round(100.0 * now.read() / now.all()) + " % of "
                    + Words.ofBytes((double) now.all()) + ".");
        }
    }
}
