package com.quorin.sysmgt.tavl.LumetraAgent;

/** The objects and counters that the agent can read, as the declarations spell them. */
final class Counters {

    static final String PROCESSES = "PercentProcessesUsed";
    static final String SWAP = "PercentSwapSpaceUsed";
    static final String DESCRIPTORS = "PercentFileDescriptorsUsed";

    /** The object whose declarations stand for every mounted file system. */
    static final String DISK = "LogicalDisk";

    /** The object whose declarations stand for the processes of a program. */
    static final String PROCESS = "Process";

    /** The counters of a disk. */
    static final String SPACE = "PercentFreeSpaceUsed";
    static final String INODES = "PercentFreeInodesUsed";

    private Counters() {}
}
