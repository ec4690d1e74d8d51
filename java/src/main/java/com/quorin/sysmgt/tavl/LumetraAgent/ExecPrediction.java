package com.quorin.sysmgt.tavl.LumetraAgent;

/**
 * The agent itself: one native call that samples and predicts on the calling thread until it is asked to
 * stop.
 *
 * <p>The native library must have been loaded before, see {@link NativeLibrary#load}. One process runs one
 * agent at a time; a second call after the first has returned is fine.
 */
public final class ExecPrediction {

    /**
     * Runs the agent. Returns only after {@link LumetraSubagent#javaThreadSyncPleaseStop} was called on
     * another thread, or at once when the agent cannot start; each reason is told as an event of type "fatal"
     * first.
     *
     * <p>Relative paths of the configuration, and the agent's own "../log" and "../tempdata", start at the
     * process's working directory.
     *
     * @param events        an object whose class has the six static callback methods (sendEvent and
     *                      its like)
     * @param argumentCount 2, for the program's name and one argument
     * @param programName   the name shown in the usage text
     * @param configPath    the configuration file, AutoConfig.ini
     * @return 0 when the agent's log could be closed properly, which says nothing about the run itself
     */
    public native int research_main(Object events, int argumentCount, String programName, String configPath);
}
