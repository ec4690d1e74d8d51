package com.quorin.sysmgt.tavl.LumetraAgent;

import java.nio.file.Path;
import java.util.Optional;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/** How much of each resource this machine has. The disks are asked for once, the kernel each time. */
final class MachineCapacities {

    /** The object of the declaration for process slots. */
    static final String PROCESSES = "PercentProcessesUsed";

    /** The object of the declaration for swap space. */
    static final String SWAP = "PercentSwapSpaceUsed";

    /** The object of the declaration for file descriptors. */
    static final String DESCRIPTORS = "PercentFileDescriptorsUsed";

    /** The counter of a disk declaration for space; the other counter is for inodes. */
    static final String SPACE = "PercentFreeSpaceUsed";

    private static final double LARGEST_COUNTED_MEMORY_KB = 896000;

    private final Path root;
    private final DiskListing space;
    private final DiskListing inodes;

    /**
     * Capacities from given sources.
     *
     * @param root   the directory that holds the kernel's files below "proc"
     * @param space  the file systems in blocks of 1024 bytes
     * @param inodes the file systems in inodes
     */
    MachineCapacities(Path root, DiskListing space, DiskListing inodes) {
        this.root = root;
        this.space = space;
        this.inodes = inodes;
    }

    /**
     * The measured capacity of a resource: tasks, kilobytes of swap, descriptors, disk blocks of 1024 bytes
     * or inodes.
     *
     * @param resource       the resource
     * @param upperLimitCalc the capacity that the agent wrote into the declarations, 0 when it has not yet
     * @return the capacity; empty when it cannot be told
     */
    Optional<Double> measured(KnownResource resource, double upperLimitCalc) {
        return switch (resource.object()) {
            case PROCESSES -> upperLimitCalc > 0 ? Optional.of(upperLimitCalc) : processSlots();
            case SWAP -> memory("SwapTotal");
            case DESCRIPTORS -> firstMatch("proc/sys/fs/file-nr", "\\s*\\d+\\s+\\d+\\s+(\\d+)");
            case DeclaredResource.DISK -> disks(resource.counter()).capacity(resource.instance());
            default -> Optional.empty();
        };
    }

    /**
     * Whether the lack of a resource's capacity says something of the resource.
     *
     * @param resource the resource
     * @return false for a disk when there is no listing of disks at all
     */
    boolean hasSource(KnownResource resource) {
        return !resource.isDisk() || !disks(resource.counter()).isEmpty();
    }

    /**
     * Whether the machine has no disks that could be watched.
     *
     * @return true when a listing of disks came and is empty
     */
    boolean hasNoDisks() {
        return space.saysNone();
    }

    private DiskListing disks(String counter) {
        return counter.equals(SPACE) ? space : inodes;
    }

    private Optional<Double> processSlots() {
        Optional<Double> byMemory = memory("MemTotal")
                .map(kb -> Math.floor(Math.min(kb, LARGEST_COUNTED_MEMORY_KB) / 32));
        Optional<Double> byKernel = firstMatch("proc/sys/kernel/threads-max", "\\s*(\\d+)");
        return byMemory.flatMap(m -> byKernel.map(k -> Math.min(m, k)));
    }

    private Optional<Double> memory(String entry) {
        return firstMatch("proc/meminfo", "(?m)^" + entry + ":\\s*(\\d+)");
    }

    private Optional<Double> firstMatch(String file, String pattern) {
        return FileText.read(root.resolve(file)).flatMap(text -> {
            Matcher m = Pattern.compile(pattern).matcher(text);
            return m.find() ? Optional.of(Double.parseDouble(m.group(1))) : Optional.empty();
        });
    }
}
