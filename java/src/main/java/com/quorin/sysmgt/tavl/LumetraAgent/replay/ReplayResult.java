package com.quorin.sysmgt.tavl.LumetraAgent.replay;

import com.quorin.sysmgt.tavl.LumetraAgent.score.Episode;
import com.quorin.sysmgt.tavl.LumetraAgent.score.Outcome;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;

/**
 * What a replay came to.
 *
 * @param complete whether all was read
 * @param episodes of each resource, by number, those that are still open included
 */
record ReplayResult(boolean complete, Replay.Settings settings, Replay.Progress progress, Replay.Summary summary,
        List<Replay.Happening> timeline, Map<Integer, List<Episode>> episodes, List<Replay.Damage> damages) {

    /** The rules, by number. */
    static final List<String> RULES =
            List.of("agent", "line6h24h", "line6h4h", "twoPoints1h", "threshold90");

    static final List<String> MODELS = List.of("simple linear regression", "hinge regression",
            "3-segment linear regression", "simple linear regression on log", "hinge regression on log",
            "3-segment linear regression on log");

    /** A new episode so soon after one that was false is a flap. */
    private static final long FLAP_SECONDS = 3600;

    private static final double WEEK = 7 * 24 * 3600.0;

    /** Collects what the steps of a replay come to. */
    static final class Collector {

        private final List<Replay.Happening> timeline = new ArrayList<>();
        private final Map<Integer, List<Episode>> episodes = new TreeMap<>();
        private final List<Replay.Damage> damages = new ArrayList<>();
        private Replay.Progress progress;

        void take(Replay.Step step) {
            progress = step.progress();
            timeline.addAll(step.happenings());
            damages.addAll(step.damages());
            step.episodes().forEach(e -> add(e.id(), e.episode()));
        }

        private void add(int id, Episode episode) {
            episodes.computeIfAbsent(id, i -> new ArrayList<>()).add(episode);
        }

        ReplayResult result(Replay.Settings settings, Replay.Summary summary) {
            summary.resources().forEach(r -> r.open().forEach(episode -> add(r.id(), episode)));
            return new ReplayResult(progress.isOver(), settings, progress, summary, timeline, episodes, damages);
        }
    }

    /** The score of one rule over one resource, or several. */
    static final class Score {

        private final List<Episode> episodes = new ArrayList<>();
        private double weeks;

        void add(List<Episode> more, double moreWeeks) {
            episodes.addAll(more);
            weeks += moreWeeks;
        }

        double weeks() {
            return weeks;
        }

        long count(Outcome outcome) {
            return episodes.stream().filter(e -> e.outcome() == outcome).count();
        }

        /** Episodes that ended before the limit, a week. */
        double falseEpisodesAWeek() {
            return weeks > 0 ? episodes.stream().filter(Episode::isFalse).count() / weeks : 0;
        }

        /** Those of them in which an event went out, a week. */
        double falseAlarmsAWeek() {
            return weeks > 0 ? episodes.stream().filter(e -> e.isFalse() && e.hasEvent()).count() / weeks : 0;
        }

        /** Hours from the onset to the limit, of the episodes that reached it. */
        List<Double> onsetLeads() {
            return episodes.stream().filter(e -> e.outcome() == Outcome.REACHED).map(Episode::onsetLeadHours).toList();
        }

        /** Hours from the first event to the limit. */
        List<Double> eventLeads() {
            return episodes.stream().filter(e -> e.outcome() == Outcome.REACHED && e.hasEvent())
                    .map(Episode::eventLeadHours).toList();
        }

        /** How far off the announced moment was, in hours without sign, at one of the marks. */
        List<Double> errors(int mark) {
            return episodes.stream().filter(e -> e.outcome() == Outcome.REACHED).map(e -> e.errorsHours().get(mark))
                    .filter(Double::isFinite).map(Math::abs).toList();
        }

        int flaps() {
            int flaps = 0;
            for (int i = 1; i < episodes.size(); i++) {
                boolean soon = episodes.get(i).onset() - episodes.get(i - 1).end() <= FLAP_SECONDS;
                flaps += episodes.get(i - 1).isFalse() && soon ? 1 : 0;
            }
            return flaps;
        }
    }

    /** The episodes of a resource under one rule, in their order. */
    List<Episode> episodes(int id, int rule) {
        return episodes.getOrDefault(id, List.of()).stream().filter(e -> e.rule() == rule).toList();
    }

    /** The score of a rule over one resource. */
    Score score(Replay.Tally resource, int rule) {
        Score score = new Score();
        score.add(episodes(resource.id(), rule), resource.observedSeconds() / WEEK);
        return score;
    }

    /** The score of a rule over all resources. */
    Score score(int rule) {
        Score score = new Score();
        summary.resources().forEach(r -> score.add(episodes(r.id(), rule), r.observedSeconds() / WEEK));
        return score;
    }

    /** How many times a limit was reached, of all resources. */
    int limitsReached() {
        return summary.resources().stream().mapToInt(r -> r.reached().size()).sum();
    }
}
