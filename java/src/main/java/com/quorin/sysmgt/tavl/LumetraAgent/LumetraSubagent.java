package com.quorin.sysmgt.tavl.LumetraAgent;

/**
 * What other threads may ask of the running agent.
 *
 * <p>The native library must have been loaded before, see {@link NativeLibrary#load}.
 */
public final class LumetraSubagent {

    /** Creates the object that the requests are made on. It holds nothing. */
    public LumetraSubagent() {
        // nothing to hold: the agent's state lives in the native library
    }

    /**
     * Asks the agent to stop. A sleeping agent stops at once; one in the middle of a cycle finishes the cycle
     * and sleeps once more. A request made before {@link ExecPrediction#research_main} has set itself up is
     * forgotten, so whoever must be sure asks again until that call has returned. Any thread may call, any
     * number of times.
     *
     * @return 0 when the request was passed on, otherwise an error number of the operating system
     */
    public native int javaThreadSyncPleaseStop();
}
