package com.quorin.sysmgt.tavl.LumetraAgent.score;

import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.Locale;

/**
 * What came of the announcements about one resource. Immutable.
 *
 * @param levelledOffInARow how many of the newest episodes levelled off, one after the other
 * @param errorsHours       of those that reached their limit: how far off the moment was that was announced with
 *                          the first event, or with the onset where there was none, without sign
 * @param newestEnd         when the newest ended, seconds since the epoch
 */
public record TrackRecord(int reached, int freed, int levelledOff, int levelledOffInARow, List<Double> errorsHours,
        long newestEnd) {

    /** Nothing was announced yet. */
    public static final TrackRecord NONE = new TrackRecord(0, 0, 0, 0, List.of(), 0);

    /** So many errors are kept, the newest. */
    private static final int MOST_ERRORS = 100;

    private static final double HOUR = 3600;

    /** How many episodes have ended. */
    public int announcements() {
        return reached + freed + levelledOff;
    }

    /** The record with one more episode that has ended. */
    TrackRecord with(Episode episode) {
        boolean isReached = episode.outcome() == Outcome.REACHED;
        boolean isLevelledOff = episode.outcome() == Outcome.LEVELLED_OFF;
        return new TrackRecord(reached + (isReached ? 1 : 0), freed + (episode.outcome() == Outcome.FREED ? 1 : 0),
                levelledOff + (isLevelledOff ? 1 : 0), isLevelledOff ? levelledOffInARow + 1 : 0,
                isReached ? errorsWith(episode) : errorsHours, Math.max(newestEnd, episode.end()));
    }

    private List<Double> errorsWith(Episode episode) {
        long announced = episode.hasEvent() ? episode.announcedAtEvent() : episode.announcedAtOnset();
        if (announced == 0) {
            return errorsHours;
        }
        List<Double> errors = new ArrayList<>(errorsHours);
        errors.add(Math.abs(announced - episode.end()) / HOUR);
        return List.copyOf(errors.subList(Math.max(0, errors.size() - MOST_ERRORS), errors.size()));
    }

    /** How far off the announced moment was in the median, hours; NaN when no limit was reached. */
    public double medianErrorHours() {
        return median(errorsHours);
    }

    /** The middle of some numbers, the mean of the two in the middle if there are two; NaN of none. */
    public static double median(List<Double> numbers) {
        List<Double> sorted = numbers.stream().sorted().toList();
        int n = sorted.size();
        return n == 0 ? Double.NaN : (sorted.get((n - 1) / 2) + sorted.get(n / 2)) / 2;
    }

    /**
     * The record in words: honest about small numbers.
     *
     * @param since   from when on score was kept, seconds since the epoch
     * @param now     the present
     * @param isOpen  whether something is announced now
     * @return the words; null when there is nothing to say
     */
    public String words(long since, long now, boolean isOpen) {
        int all = announcements();
        if (all == 0) {
            return isOpen ? "announced for the first time here" : null;
        }
        String outcomes = "reached " + reached + ", freed " + freed + ", levelled off " + levelledOff;
        String times = all == 1 ? "once" : all + " times";
        return "announced " + times + " in " + Words.ofDuration(Duration.ofSeconds(Math.max(0, now - since)))
                + ": " + outcomes + errorWords();
    }

    private String errorWords() {
        if (errorsHours.isEmpty()) {
            return "";
        }
        return String.format(Locale.ROOT, "; announced moment off by %.1f h%s", medianErrorHours(),
                errorsHours.size() == 1 ? "" : " in the median");
    }
}
