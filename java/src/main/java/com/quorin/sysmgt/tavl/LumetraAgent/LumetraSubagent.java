package com.quorin.sysmgt.tavl.LumetraAgent;

/**
 * What other threads may ask of the running agent.
 *
 * <p>The native library must have been loaded before, see {@link NativeLibrary#load}. Any thread may call at any time.
 *
 * <p>The trend viewer's methods, which {@link TrendReader} is the way to use, hand every value back by calling methods
 * on objects of the caller's, looked up by name and signature: AppendCompUnicode(String), AppendInt(int),
 * AppendFloat(float). What such a method throws ends the call and reaches its caller.
 */
public final class LumetraSubagent {

    /** Result of a trend viewer method: the values were handed over. */
    static final int SUCCESS = 0;

    /** Result of a trend viewer method: no resources are declared, or no agent runs. */
    static final int NO_RESOURCES = 1;

    /** Result of a trend viewer method: the agent is stopping. */
    static final int STOPPING = 2;

    /** Result of a trend viewer method: a file could not be opened. */
    static final int NO_FILE = 3;

    /** Result of a trend viewer method: the lock stayed busy for three seconds. */
    static final int BUSY = 5;

    /**
     * Asks the agent to stop. A sleeping agent stops at once; one in the middle of a cycle finishes the cycle
     * and sleeps once more. A request made before {@link ExecPrediction#research_main} has set itself up is
     * forgotten, so whoever must be sure asks again until that call has returned. It may be
     * called any number of times.
     *
     * @return 0 when the request was passed on, otherwise an error number of the operating system
     */
    public native int javaThreadSyncPleaseStop();

    /**
     * Lists all resources, templates included: for each the display name, then the instance.
     *
     * @param list receives the texts by AppendCompUnicode
     * @return {@link #SUCCESS} or {@link #NO_RESOURCES}
     */
    native int trendViewerGetDescriptors(Object list);

    /**
     * Takes the trend-file lock and reads a resource's headline. The lock is held afterwards unless the result is
     * {@link #NO_RESOURCES} or {@link #STOPPING}; after {@link #BUSY} it may be. Unlocking is harmless in every case,
     * so whoever calls this unlocks, on the same thread.
     *
     * @param instance as it stands in file names
     * @param intOut   receives the time of the forecast by AppendInt, seconds since the epoch, -1 for none
     * @param textOut  then receives the headline's text by AppendCompUnicode
     * @param floatOut then receives the notification level by AppendFloat; of one class with the other two
     * @return {@link #SUCCESS}, {@link #NO_RESOURCES}, {@link #STOPPING}, {@link #NO_FILE} or {@link #BUSY}
     */
    native int trendViewerLockAndGetTimeStampLabel(
            String name, String instance, Object intOut, Object textOut, Object floatOut);

    /**
     * Reads a resource's limit. Takes no lock.
     *
     * @param instance as it stands in file names
     * @param intOut   receives the limit by AppendInt, per cent, -1 for none
     * @return {@link #SUCCESS}, {@link #NO_RESOURCES} or {@link #NO_FILE}
     */
    native int trendViewerGetLimit(String name, String instance, Object intOut);

    /**
     * Reads one of a resource's curves. Takes no lock.
     *
     * @param instance as it stands in file names
     * @param kind     "PRD" for the forecast, "SMP" for the samples
     * @param list     receives by AppendCompUnicode, for each point, its time and its value
     * @return the number of texts handed over; {@link #NO_RESOURCES}; or {@link #NO_FILE}, which three texts give as
     *         well
     */
    native int trendViewerGetXYPairs(String name, String instance, String kind, Object list);

    /**
     * Releases the trend-file lock; nothing happens when the calling thread does not hold it.
     *
     * @return {@link #SUCCESS}, or {@link #BUSY} when the lock is invalid
     */
    native int trendViewerUnlockFiles();
}
