package com.quorin.sysmgt.tavl.LumetraAgent.score;

import com.quorin.sysmgt.tavl.LumetraAgent.TrendReader;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.util.Comparator;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.concurrent.ConcurrentHashMap;
import java.util.function.Consumer;
import java.util.function.Supplier;

/**
 * The score of a home's announcements: what its file holds, and what this run adds. All methods may be called from
 * any thread; who asks never waits for the file.
 */
public final class ScoreBook {

    /** So many resources that are gone keep their records: disks that come and go for years cannot fill the memory. */
    static final int MOST_GONE = 10_000;

    private record Key(String resource, String instance) {}

    private final ScoreFile file;
    private final Consumer<String> complaints;
    private final Map<Key, TrackRecord> records = new ConcurrentHashMap<>();
    private final boolean isNew;
    private volatile long since = Long.MAX_VALUE;
    /** The same without the start of this run. */
    private long earlier = Long.MAX_VALUE;
    private ScoreFile.Start start;
    private long begun;
    private long clockSteps;
    private long taken;
    private boolean cannotBeWritten;

    /**
     * Reads the file.
     *
     * @param complaints is told in one line what cannot be read or written
     */
    public ScoreBook(ScoreFile file, Consumer<String> complaints) {
        this.file = file;
        this.complaints = complaints;
        ScoreFile.Content content = file.read();
        isNew = !content.isThere();
        if (content.damaged() > 0) {
            complaints.accept("The score of earlier announcements is damaged: " + content.damaged()
                    + (content.damaged() == 1 ? " line was" : " lines were") + " passed over.");
        }
        content.starts().forEach(known -> goBack(known.epochSeconds()));
        content.histories().forEach(history -> goBack(history.from()));
        content.episodes().forEach(this::count);
    }

    /** Whether there was no file: the past is yet to be scored. */
    public boolean isNew() {
        return isNew;
    }

    /**
     * Takes up a cycle: the run begins with the first. A clock that is set by more than the run has lasted was wrong
     * at its beginning, as on a machine that cannot keep the time while it is off; the start is moved then.
     *
     * @param cycle when it was, and how the run began
     * @param steps seconds by which the clock has stepped during the run, all steps together
     */
    public synchronized void takeCycle(ScoreFile.Start cycle, long steps) {
        long step = steps - clockSteps;
        clockSteps = steps;
        if (start == null) {
            begun = cycle.epochSeconds();
            start = cycle;
            written(file.add(start));
        } else if (step != 0 && Math.abs(step) > cycle.epochSeconds() - step - begun) {
            long was = start.epochSeconds();
            start = new ScoreFile.Start(was + step, start.isResumed());
            written(file.add(start, was));
        }
        since = Math.min(earlier, start.epochSeconds());
    }

    private void goBack(long epochSeconds) {
        earlier = Math.min(earlier, epochSeconds);
        since = Math.min(since, earlier);
    }

    /** Takes up the newest episodes of the run; those that are known already change nothing. */
    public synchronized void take(List<EndedEpisode> newest) {
        for (EndedEpisode ended : newest) {
            if (ended.number() > taken) {
                taken = ended.number();
                add(new ScoreFile.Scored(Words.asFromLibrary(ended.resource()),
                        Words.asFromLibrary(ended.instance()), ended.episode()));
            }
        }
    }

    /** Takes up that what was before the runs whose starts are known is scored too, from a moment on. */
    public synchronized void scoredFrom(long epochSeconds) {
        goBack(epochSeconds);
        written(file.add(new ScoreFile.History(epochSeconds)));
    }

    /** Takes up an episode of earlier runs. */
    public synchronized void add(ScoreFile.Scored scored) {
        count(scored);
        written(file.add(scored));
    }

    /**
     * Drops the oldest records of resources that are gone when there are very many; the file keeps them. No record of
     * what is there loses anything.
     *
     * @param there the resources that the agent has, by the library's names; only asked for when it matters
     */
    public synchronized void forgetLongGone(Supplier<Set<TrendReader.Resource>> there) {
        if (records.size() <= MOST_GONE) {
            return;
        }
        Set<TrendReader.Resource> kept = there.get();
        List<Key> gone = records.keySet().stream()
                .filter(key -> !kept.contains(new TrendReader.Resource(key.resource, key.instance)))
                .sorted(Comparator.comparingLong(key -> records.get(key).newestEnd())).toList();
        gone.subList(0, Math.max(0, gone.size() - MOST_GONE)).forEach(records::remove);
    }

    private void count(ScoreFile.Scored scored) {
        goBack(scored.episode().onset());
        records.merge(new Key(scored.resource(), scored.instance()), TrackRecord.NONE.with(scored.episode()),
                (known, first) -> known.with(scored.episode()));
    }

    private void written(boolean isWritten) {
        if (!isWritten && !cannotBeWritten) {
            complaints.accept("The score of announcements cannot be written for now; it is kept in memory.");
        }
        cannotBeWritten = !isWritten;
    }

    /** The record of a resource as the library names it. */
    public TrackRecord of(String resource, String instance) {
        return records.getOrDefault(new Key(resource, instance), TrackRecord.NONE);
    }

    /** From when on score was kept, seconds since the epoch; {@code now} when it begins now. */
    public long since(long now) {
        return Math.min(since, now);
    }
}
