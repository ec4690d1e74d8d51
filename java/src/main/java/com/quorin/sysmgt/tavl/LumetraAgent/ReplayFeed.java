package com.quorin.sysmgt.tavl.LumetraAgent;

import java.util.Optional;

/**
 * The door to the library's replays: archives run through the agent's own rings, forecast and notification state.
 * The library looks for this class when it is loaded and gives it its native methods. They start no agent, read
 * nothing but the archives and write nothing; any thread may call them, also while an agent runs. Bytes are laid
 * out as replay/replayFeed.h says.
 */
public final class ReplayFeed {

    /** The layout of the bytes that are handed over. */
    public static final int VERSION = 1;

    private ReplayFeed() {}

    private static native int libraryVersion();

    /**
     * Begins a replay.
     *
     * @return its number
     * @throws IllegalArgumentException when the request is not understood
     */
    public static native int open(byte[] request);

    /** Goes on for about so many forecasts. Null when there is no such replay. */
    public static native byte[] step(int number, long forecasts);

    /** What it has come to so far. Null when there is no such replay. */
    public static native byte[] summary(int number);

    /** Ends it, wherever it is. */
    public static native void close(int number);

    /** Why the library cannot be asked: one sentence that names both versions; empty when it can. */
    public static Optional<String> problem() {
        return NativeLibrary.problem("the replay", VERSION, ReplayFeed::libraryVersion);
    }
}
