package com.quorin.sysmgt.tavl.LumetraAgent;

import java.util.Optional;
import java.util.function.IntSupplier;

/**
 * The door to what the native library knows of the agent that runs in this process. The library looks for this
 * class when it is loaded and gives it its native methods; a program without the class has the other methods
 * all the same.
 */
public final class HostFeed {

    /** The layout of the bytes that are handed over. A library of another layout keeps its door shut. */
    public static final int VERSION = 5;

    private HostFeed() {}

    /** The version of the library's side. Without a door there, an UnsatisfiedLinkError. */
    static native int libraryVersion();

    /**
     * Waits for a publication whose number is above {@code after}, at most so long; null when none came in time.
     * Nothing is published before the first call. Any thread.
     */
    public static native byte[] await(long after, long milliseconds);

    /**
     * The samples and the forecast of one resource, at once; null when there is no such resource, or no run. Any
     * thread.
     */
    public static native byte[] curves(int rid);

    /** What the library can count. Any thread. */
    public static native byte[] counters();

    /**
     * Whether a run that begins from now on goes on with what its archive has of earlier runs. It does not
     * unless this has been called.
     */
    public static native void resume(boolean wanted);

    /**
     * From now on the agent tells a service manager that it is ready, that it lives and that it ends; nobody unless
     * this has been called. False when nobody can be told there. To be called before a run begins.
     *
     * @param socket               the bytes of the service manager's socket, as it named it
     * @param watchdogMicroseconds it wants a sign of life at least that often; 0 for no such wish
     */
    public static native boolean tellService(byte[] socket, long watchdogMicroseconds);

    /**
     * The rules by which a run that begins from now on leaves out disks, besides the library's own, or null for a run
     * that leaves out none, as it does unless this has been called.
     *
     * @param rules lines of acquisition/diskSelection.h; what is none does not count
     */
    public static native void skip(byte[] rules);

    /** How far a run that begins has read its archive. Any thread. */
    public static native byte[] reading();

    /** Why the library cannot be asked, in one sentence that names both versions; empty when it can. */
    public static Optional<String> problem() {
        return problem(HostFeed::libraryVersion);
    }

    public static Optional<String> problem(IntSupplier libraryVersion) {
        return NativeLibrary.problem("the host", VERSION, libraryVersion);
    }
}
