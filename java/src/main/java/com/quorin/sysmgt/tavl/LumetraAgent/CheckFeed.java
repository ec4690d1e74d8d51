package com.quorin.sysmgt.tavl.LumetraAgent;

import java.util.Optional;

/**
 * The door to the library's own readers of configuration and declarations, which tell what the agent would make
 * of a text. The library looks for this class when it is loaded and gives it its native methods. They start
 * nothing, write nothing and open nothing but what is said; any thread may call them, also while an agent runs.
 */
public final class CheckFeed {

    /** The layout of the bytes that are handed over. */
    public static final int VERSION = 4;

    private CheckFeed() {}

    private static native int libraryVersion();

    /** What the agent would make of a configuration file of this content, as agent/checkFeed.h lays it out. */
    public static native byte[] configuration(byte[] text);

    /**
     * What the agent would make of a declaration file of this content, as agent/checkFeed.h lays it out.
     *
     * @param period           of the configuration, milliseconds; -1 asks for the automatic one
     * @param maxForecastHours of the configuration
     */
    public static native byte[] declarations(byte[] text, int period, int maxForecastHours);

    /**
     * What the agent would make of skip rules on this machine as it is now, as agent/checkFeed.h lays it out. Opens the
     * table of mounts.
     */
    public static native byte[] skipRules(byte[] text);

    /**
     * What others than root and its user could turn against an agent, as agent/checkFeed.h lays it out. Opens the
     * configuration.
     *
     * @param bin           the path of its working directory
     * @param configuration the path of its configuration file
     * @param user          the number of its user; -1 for that of this process
     */
    public static native byte[] places(byte[] bin, byte[] configuration, long user);

    /** Why the library cannot be asked, in one sentence that names both versions; empty when it can. */
    public static Optional<String> problem() {
        return NativeLibrary.problem("the check", VERSION, CheckFeed::libraryVersion);
    }
}
