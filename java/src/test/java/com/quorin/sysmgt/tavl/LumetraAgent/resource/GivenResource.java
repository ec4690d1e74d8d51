package com.quorin.sysmgt.tavl.LumetraAgent.resource;

import com.quorin.sysmgt.tavl.LumetraAgent.LoadedLibrary;
import java.util.ArrayList;
import java.util.List;

/** A resource as a test wants it: swap space half in use, unless it says otherwise. */
public final class GivenResource {

    static {
        LoadedLibrary.load(); // which knows the counters
    }

    static final String PROCESSES = "PercentProcessesUsed";
    public static final String SWAP = "PercentSwapSpaceUsed";
    public static final String DESCRIPTORS = "PercentFileDescriptorsUsed";
    static final String SPACE = "PercentFreeSpaceUsed";
    public static final String INODES = "PercentFreeInodesUsed";

    /** The time of the cycle that a state is of, unless a test says otherwise. */
    public static final long START = 1_700_000_000L;

    int id;
    String object = SWAP;
    public String instance = "_Total";
    public String counter = SWAP;
    public String name = "Swap";
    int mountPoint = -1;
    public double value = 50;
    public boolean isRead = true;
    public double measured = 2097148;
    public boolean isMeasured = true;
    public double configured;
    public int method = 1;
    public double lower = RunResource.NONE;
    public double upper = 100;
    public RunResource.Reached reached = RunResource.Reached.NONE;
    public int slots = 1728;
    public int samples = 1;
    public RunResource.Forecast forecast;
    public long episodeSince;
    double level;

    private GivenResource(int id) {
        this.id = id;
    }

    public static GivenResource swap(int id) {
        return new GivenResource(id);
    }

    /** Space of a file system of two mebibytes. */
    public static GivenResource disk(int id, String device, String mountPoint) {
        GivenResource disk = new GivenResource(id);
        disk.object = Counters.DISK;
        disk.instance = device + " " + mountPoint;
        disk.counter = SPACE;
        disk.name = "Space";
        disk.mountPoint = device.length() + 1;
        disk.measured = 2048;
        return disk;
    }

    public static GivenResource single(int id, String object) {
        GivenResource single = new GivenResource(id);
        single.object = object;
        single.counter = object;
        single.name = object;
        return single;
    }

    /** With a forecast of the present cycle; no exhaustion for hours below 0. */
    public GivenResource forecast(double hours, double notificationLevel) {
        samples = Math.max(samples, 200);
        forecast = new RunResource.Forecast(START, "hinge regression", hours);
        level = notificationLevel;
        return this;
    }

    public RunResource made() {
        return new RunResource(
                new RunResource.Identity(id, object, instance, counter, name, mountPoint),
                new RunResource.Reading(value, isRead, measured, isMeasured, configured),
                new RunResource.Analysis(
                        method, new RunResource.Limits(lower, upper, reached), 4.8, slots, samples),
                forecast, new RunResource.Notification(forecast != null && forecast.hasExhaustion(), level, 5,
                        episodeSince),
                mountPoint < 0 ? RunResource.WatchReason.DECLARED : RunResource.WatchReason.MOUNTED);
    }

    /** The state after a cycle of two seconds of an agent that samples every ten. */
    public static RunState state(long time, GivenResource... resources) {
        return state(time, false, resources);
    }

    /** The same of a run that took over so many samples. */
    public static RunState resumed(RunState state, long samples, int resources) {
        RunState.Archive archive = new RunState.Archive(
                state.archive().file(), state.archive().bytes(), new RunState.Resumed(samples, resources));
        return new RunState(state.cycle(), archive, state.settings(), state.awaitsDisks(), state.leftOut(),
                state.resources());
    }

    public static RunState state(long time, boolean awaitsDisks, GivenResource... resources) {
        List<RunResource> made = new ArrayList<>();
        for (GivenResource resource : resources) {
            made.add(resource.made());
        }
        return new RunState(new RunState.Cycle(time, 1.0, 0.75, 0.25, 6.5),
                new RunState.Archive("/nowhere/archive", 4096, RunState.Resumed.NOTHING),
                new RunState.Settings("/nowhere/", 10_000, 0, 48, 200), awaitsDisks,
                List.of(new RunState.LeftOut("bad \u001bline", "it cannot be read",
                        LeftOutKind.PATTERN, "mount /\u001b*")), made);
    }
}
