package com.quorin.sysmgt.tavl.LumetraAgent;

/** The objects whose declarations stand for many resources. What can be counted of them is in the {@link CounterTable}. */
final class Counters {

    /** Every mounted file system. */
    static final String DISK = "LogicalDisk";

    /** The processes of a program. */
    static final String PROCESS = "Process";

    private Counters() {}
}
