package com.quorin.sysmgt.tavl.LumetraAgent;

import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.concurrent.locks.ReentrantLock;

/** Stands in for the library's trend viewer methods: one forecast for each resource, and the lock. */
final class FakeNatives implements TrendReader.Natives {

    /** What the files of one resource hold. */
    static final class Files {
        int time;
        String text = "Unknown hours to exhaustion.";
        float level = -2;
        int limit = 100;
        int limitResult;
        List<String> samples = List.of();
        List<String> forecast = List.of();
        Integer pairsResult;
    }

    final Map<String, Files> files = new LinkedHashMap<>();
    final List<String> descriptors = new ArrayList<>();
    final ReentrantLock lock = new ReentrantLock();
    final List<String> asked = new ArrayList<>();
    int descriptorsResult;
    int labelResult;
    boolean holdsAfterBusy;
    Throwable thrownByLabel;
    Throwable thrownByPairs;
    Runnable whileWaiting = () -> { };
    int headlines;
    int unlocks;

    /** A forecast of a resource, its name and the instance as it stands in file names joined. */
    Files forecast(String key, int time, String text, float level) {
        Files f = files.computeIfAbsent(key, k -> new Files());
        f.time = time;
        f.text = text;
        f.level = level;
        return f;
    }

    private static void raise(Throwable thrown) {
        if (thrown instanceof Error e) {
            throw e;
        }
        if (thrown instanceof RuntimeException e) {
            throw e;
        }
    }

    @Override
    public int descriptors(Object list) {
        descriptors.forEach(((TrendReader.Values) list)::AppendCompUnicode);
        return descriptorsResult;
    }

    @Override
    public int lockAndLabel(String name, String instance, Object intOut, Object textOut, Object floatOut) {
        asked.add(name + instance);
        headlines++;
        whileWaiting.run();
        if (labelResult == LumetraSubagent.BUSY && holdsAfterBusy || labelResult == 0) {
            lock.lock();
        }
        raise(thrownByLabel);
        Files f = files.get(name + instance);
        if (labelResult != 0 || f == null) {
            return labelResult != 0 ? labelResult : LumetraSubagent.NO_FILE;
        }
        ((TrendReader.Values) intOut).AppendInt(f.time);
        ((TrendReader.Values) textOut).AppendCompUnicode(f.text);
        ((TrendReader.Values) floatOut).AppendFloat(f.level);
        return 0;
    }

    @Override
    public int limit(String name, String instance, Object intOut) {
        Files f = files.get(name + instance);
        if (f.limitResult == 0) {
            ((TrendReader.Values) intOut).AppendInt(f.limit);
        }
        return f.limitResult;
    }

    @Override
    public int pairs(String name, String instance, String kind, Object list) {
        raise(thrownByPairs);
        Files f = files.get(name + instance);
        List<String> texts = kind.equals("SMP") ? f.samples : f.forecast;
        texts.forEach(((TrendReader.Values) list)::AppendCompUnicode);
        return f.pairsResult != null ? f.pairsResult : texts.size();
    }

    @Override
    public int unlock() {
        unlocks++;
        while (lock.isHeldByCurrentThread()) {
            lock.unlock();
        }
        return 0;
    }
}
