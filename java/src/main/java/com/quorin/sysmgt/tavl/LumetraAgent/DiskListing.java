package com.quorin.sysmgt.tavl.LumetraAgent;

import java.util.HashMap;
import java.util.Map;
import java.util.Optional;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/**
 * The capacities of the mounted file systems, as {@code df} lists them.
 *
 * <p>Disks are found by "device, blank, mount point" with the characters that mean something in file names
 * replaced, which is how the agent itself tells them apart.
 */
final class DiskListing {

    /** What there is to say of an agent that has found no disk yet. */
    static final String AWAITED = "The disks cannot be listed yet: df has not answered; "
            + "they are taken up as soon as it does.";

    /** The device and the mount point may hold blanks; the mount point is all that follows the percentage. */
    private static final Pattern LINE = Pattern.compile(
            "(\\S.*?)\\s+(\\d+|-)\\s+(-?\\d+|-)\\s+(-?\\d+|-)\\s+(\\d+%|-) (.*)");

    private final Map<String, Double> capacities = new HashMap<>();
    private final boolean answered;

    private DiskListing(boolean answered) {
        this.answered = answered;
    }

    /**
     * What stands for a listing that never came.
     *
     * @return the listing
     */
    static DiskListing empty() {
        return new DiskListing(false);
    }

    /**
     * Reads a listing; lines that are no disks are passed over.
     *
     * @param text the output of df or df -i, one character per byte
     * @return the listing
     */
    static DiskListing parse(String text) {
        DiskListing listing = new DiskListing(!text.isEmpty()); // a listing has its headings at least
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

    /**
     * Whether there is no disk to be listed.
     *
     * @return true for a listing that came and is empty
     */
    boolean saysNone() {
        return answered && isEmpty();
    }

    private static String key(String instance) {
        return instance.replaceAll("[/: *?\"><|]", "_");
    }
}
