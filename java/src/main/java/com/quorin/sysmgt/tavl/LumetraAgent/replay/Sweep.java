package com.quorin.sysmgt.tavl.LumetraAgent.replay;

import com.quorin.sysmgt.tavl.LumetraAgent.score.TrackRecord;
import java.util.ArrayList;
import java.util.List;

/** The settings that a sweep tries, and which of them are the best. */
final class Sweep {

    /** Farthest forecasts in hours, hence windows of a tenth of that. */
    private static final List<Integer> HORIZONS = List.of(12, 24, 48, 96, 168);

    /** Every so many-th cycle is taken. */
    private static final List<Integer> THINNINGS = List.of(1, 2, 5);

    private Sweep() {}

    /** All settings of the grid in which a window holds enough samples for a forecast, and the given ones first. */
    static List<Replay.Settings> around(Replay.Settings given, int samplesForForecast) {
        List<Replay.Settings> all = new ArrayList<>(List.of(given));
        for (int hours : HORIZONS) {
            for (int every : THINNINGS) {
                int least = Math.min(given.minForecastHours(), hours);
                Replay.Settings one = new Replay.Settings(given.periodMillis(), least, hours, every);
                long samples = given.periodMillis() <= 0 ? samplesForForecast
                        : hours * 360_000L / ((long) given.periodMillis() * every);
                if (samples >= samplesForForecast && !one.equals(given)) {
                    all.add(one);
                }
            }
        }
        return all;
    }

    /** Those that no other one beats in what was found, in the lead of the onset and in false episodes. */
    static List<ReplayResult> unbeaten(List<ReplayResult> results) {
        return results.stream().filter(one -> results.stream().noneMatch(other -> beats(other, one))).toList();
    }

    private static boolean beats(ReplayResult a, ReplayResult b) {
        ReplayResult.Score first = a.score(0);
        ReplayResult.Score second = b.score(0);
        int found = Integer.compare(first.onsetLeads().size(), second.onsetLeads().size());
        int lead = Double.compare(lead(first), lead(second));
        int quiet = Double.compare(second.falseEpisodesAWeek(), first.falseEpisodesAWeek());
        return found >= 0 && lead >= 0 && quiet >= 0 && found + lead + quiet > 0;
    }

    private static double lead(ReplayResult.Score score) {
        double lead = TrackRecord.median(score.onsetLeads());
        return Double.isNaN(lead) ? -1 : lead;
    }
}
