package com.quorin.sysmgt.tavl.LumetraAgent.resource;

/** The objects whose declarations stand for many resources; the {@link CounterTable} has what is counted of them. */
public final class Counters {

    /** Every mounted file system. */
    public static final String DISK = "LogicalDisk";

    /** The processes of a program. */
    public static final String PROCESS = "Process";

    private Counters() {}
}
