package com.quorin.sysmgt.tavl.LumetraAgent.resource;

/** The objects whose declarations stand for many resources. What can be counted of them is in the {@link CounterTable}. */
public final class Counters {

    /** Every mounted file system. */
    public static final String DISK = "LogicalDisk";

    /** The processes of a program. */
    public static final String PROCESS = "Process";

    private Counters() {}
}
