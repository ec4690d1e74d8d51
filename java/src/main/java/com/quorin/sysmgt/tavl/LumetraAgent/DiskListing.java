package com.quorin.sysmgt.tavl.LumetraAgent;

import java.io.IOException;
import java.io.InputStream;
import java.nio.charset.StandardCharsets;
import java.time.Duration;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.Optional;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.TimeoutException;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/**
 * The capacities of the mounted file systems, as {@code df} lists them.
 *
 * <p>Disks are found by "device, blank, mount point" with the characters that mean something in file names
 * replaced, which is how the agent itself tells them apart.
 */
final class DiskListing {

    /** A listing that takes longer than this is given up: a server of some mounted share does not answer. */
    static final Duration DEADLINE = Duration.ofSeconds(10);

    /** The device and the mount point may hold blanks; the mount point is all that follows the percentage. */
    private static final Pattern LINE = Pattern.compile(
            "(\\S.*?)\\s+(\\d+|-)\\s+(-?\\d+|-)\\s+(-?\\d+|-)\\s+(\\d+%|-) (.*)");

    private final Map<String, Double> capacities = new HashMap<>();

    private DiskListing() {}

    /**
     * A listing that knows no disk.
     *
     * @return the listing
     */
    static DiskListing empty() {
        return new DiskListing();
    }

    /**
     * Reads a listing; lines that are no disks are passed over.
     *
     * @param text the output of df or df -i, one character per byte
     * @return the listing
     */
    static DiskListing parse(String text) {
        DiskListing listing = new DiskListing();
        text.lines().skip(1).forEach(line -> {
            Matcher m = LINE.matcher(line);
            if (m.matches()) {
                double capacity = TextScanner.toNumber(m.group(3)) + TextScanner.toNumber(m.group(4));
                listing.capacities.put(key(m.group(1) + " " + m.group(6)), capacity);
            }
        });
        return listing;
    }

    /**
     * Runs a listing command and reads its output.
     *
     * @param command  the command and its arguments, started without a shell
     * @param deadline how long it may take
     * @return the listing; empty when the command cannot be run or is not done in time
     */
    static Optional<DiskListing> run(List<String> command, Duration deadline) {
        Process process = null;
        try {
            ProcessBuilder builder =
                    new ProcessBuilder(command).redirectError(ProcessBuilder.Redirect.DISCARD);
            builder.environment().put("LC_ALL", "C");
            process = builder.start();
            process.getOutputStream().close();
            InputStream output = process.getInputStream();
            CompletableFuture<String> text = CompletableFuture.supplyAsync(() -> slurp(output));
            return Optional.of(parse(text.get(deadline.toMillis(), TimeUnit.MILLISECONDS)));
        } catch (IOException | ExecutionException | TimeoutException e) {
            return Optional.empty();
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
            return Optional.empty();
        } finally {
            if (process != null) {
                process.destroyForcibly();
            }
        }
    }

    /**
     * The capacity of a disk: what is used and what is still available, in blocks of 1024 bytes or in inodes.
     *
     * @param instance the device, a blank and the mount point
     * @return the capacity; empty for a disk that is not listed
     */
    Optional<Double> capacity(String instance) {
        return Optional.ofNullable(capacities.get(key(instance)));
    }

    /**
     * Whether no disk is listed, as when the listing did not come in time.
     *
     * @return true without disks
     */
    boolean isEmpty() {
        return capacities.isEmpty();
    }

    private static String key(String instance) {
        return instance.replaceAll("[/: *?\"><|]", "_");
    }

    private static String slurp(InputStream in) {
        try {
            return new String(in.readNBytes(FileText.LARGEST), StandardCharsets.ISO_8859_1);
        } catch (IOException e) {
            return "";
        }
    }
}
