package com.quorin.sysmgt.tavl.LumetraAgent;

import java.io.IOException;
import java.io.InputStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.Optional;
import java.util.function.LongSupplier;

/**
 * Has the disks listed on a thread of its own, "lumetra-disks", so that a {@code df} that hangs keeps nobody
 * waiting. Past its deadline a listing is given up; none is started beside one that cannot even be killed.
 *
 * <p>All methods may be called from any thread.
 */
final class DiskLister implements Capacities {

    /** A listing that takes longer than this is given up: a server of some mounted share does not answer. */
    static final Duration DEADLINE = Duration.ofSeconds(10);

    private final Path root;
    private final List<String> command;
    private final LongSupplier nanoTime;
    private volatile MachineCapacities newest;
    private Thread thread;
    private Process process;
    private long started;
    private boolean givenUp;

    /**
     * A lister of disks.
     *
     * @param root     the directory that holds the kernel's files below "proc"
     * @param command  the listing command, started without a shell; with "-i" behind it, it lists inodes
     * @param nanoTime see {@link System#nanoTime}
     */
    DiskLister(Path root, List<String> command, LongSupplier nanoTime) {
        this.root = root;
        this.command = List.copyOf(command);
        this.nanoTime = nanoTime;
        this.newest = new MachineCapacities(root, DiskListing.empty(), DiskListing.empty());
    }

    /**
     * The lister of this machine's disks.
     *
     * @return the lister, which has not begun
     */
    static DiskLister ofThisMachine() {
        return new DiskLister(Path.of("/"), List.of("df"), System::nanoTime);
    }

    @Override
    public synchronized void ask() {
        giveUpIfLate();
        if (thread != null && thread.isAlive()) {
            return;
        }
        thread = new Thread(this::list, "lumetra-disks");
        thread.setDaemon(true);
        started = nanoTime.getAsLong();
        givenUp = false;
        try {
            thread.start();
        } catch (OutOfMemoryError e) {
            thread = null; // no process is left on the machine; whoever asks again may find one
        }
    }

    @Override
    public synchronized boolean isListing() {
        giveUpIfLate();
        return thread != null && thread.isAlive() && !givenUp;
    }

    @Override
    public MachineCapacities newest() {
        return newest;
    }

    private void giveUpIfLate() {
        if (thread != null && thread.isAlive() && nanoTime.getAsLong() - started >= DEADLINE.toNanos()) {
            givenUp = true;
            if (process != null) {
                process.destroyForcibly();
            }
        }
    }

    private void list() {
        try {
            Optional<DiskListing> space = run(command);
            if (space.isPresent()) {
                List<String> ofInodes = new ArrayList<>(command);
                ofInodes.add("-i");
                newest = new MachineCapacities(root, space.get(), run(ofInodes).orElse(DiskListing.empty()));
            }
        } catch (IOException | RuntimeException | OutOfMemoryError e) {
            // as without an answer: what was listed before stays
        }
    }

    /** Empty when the listing was given up meanwhile. */
    private Optional<DiskListing> run(List<String> words) throws IOException {
        ProcessBuilder builder = new ProcessBuilder(words).redirectError(ProcessBuilder.Redirect.DISCARD);
        builder.environment().put("LC_ALL", "C");
        Process running = builder.start();
        try (InputStream output = running.getInputStream()) {
            running.getOutputStream().close();
            setProcess(running);
            String text = new String(output.readNBytes(FileText.LARGEST), StandardCharsets.ISO_8859_1);
            return isGivenUp() ? Optional.empty() : Optional.of(DiskListing.parse(text));
        } finally {
            setProcess(null);
            running.destroyForcibly();
        }
    }

    private synchronized void setProcess(Process running) {
        process = running;
        giveUpIfLate();
    }

    private synchronized boolean isGivenUp() {
        return givenUp;
    }
}
