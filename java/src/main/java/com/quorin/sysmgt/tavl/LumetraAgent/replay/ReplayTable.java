package com.quorin.sysmgt.tavl.LumetraAgent.replay;

import com.quorin.sysmgt.tavl.LumetraAgent.score.Outcome;
import com.quorin.sysmgt.tavl.LumetraAgent.score.TrackRecord;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.time.Duration;
import java.time.Instant;
import java.time.ZoneId;
import java.time.format.DateTimeFormatter;
import java.util.ArrayList;
import java.util.Comparator;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.function.Function;
import java.util.stream.Collectors;
import java.util.stream.IntStream;

/** Results as a person reads them: what was replayed, a timeline, and scores. */
final class ReplayTable {

    /** So many lines of the timeline are shown, the newest. */
    private static final int SHOWN = 60;

    private static final int HOUR = 3600;
    private static final DateTimeFormatter MINUTE = DateTimeFormatter.ofPattern("uuuu-MM-dd HH:mm", Locale.ROOT);
    private static final List<String> RULE_WORDS = List.of("agent", "line over 6 h, within 24 h, from 60 %",
            "line over 6 h, within 4 h, from 80 %", "two points, an hour apart", "90 % used");
    private static final List<String> MODEL_WORDS =
            List.of("line", "hinge", "3 segments", "log line", "log hinge", "log 3 segments");
    private static final String UNKNOWN = "-";

    private final ReplayResult result;
    private final ZoneId zone;
    private final Map<Integer, String> names;

    ReplayTable(ReplayResult result, ZoneId zone) {
        this.result = result;
        this.zone = zone;
        names = result.summary().resources().stream().collect(Collectors.toMap(Replay.Tally::id, ReplayTable::name));
    }

    private static String name(Replay.Tally resource) {
        return Words.ofBytes(resource.resource())
                + (resource.instance().isEmpty() ? "" : " [" + Words.ofBytes(resource.instance()) + "]");
    }

    /** All lines; with rivals, the scores of {@code rules} rules beside each other at the end. */
    List<String> lines(int rules) {
        List<String> lines = new ArrayList<>();
        lines.add(heading());
        damage(lines);
        timeline(lines);
        lines.add("");
        lines.addAll(scorecards());
        if (rules > 1) {
            lines.add("");
            lines.addAll(rivals(rules));
        }
        return lines;
    }

    private String heading() {
        Replay.Progress progress = result.progress();
        if (progress.cycles() == 0) {
            return "There was nothing to replay.";
        }
        return String.format(Locale.ROOT, "%s%,d cycles of %d resources, %s to %s, one in %s, forecasts up to %d h: %,d"
                + " forecasts.", result.complete() ? "" : "Interrupted, so this is a part: ", progress.cycles(),
                result.summary().resources().size(), time(progress.from()), time(progress.to()),
                period(result), result.settings().maxForecastHours(), progress.forecasts());
    }

    private void damage(List<String> lines) {
        Replay.Progress progress = result.progress();
        result.damages().stream().limit(SHOWN).forEach(d -> lines.add(Words.ofBytes(d.file())
                + (d.line() == 0 ? "" : ":" + d.line()) + ": passed over: " + d.what()));
        if (progress.damagedLines() > SHOWN) {
            lines.add(String.format(Locale.ROOT, "%,d damaged lines in all.", progress.damagedLines()));
        }
        if (progress.unknownSamples() > 0) {
            lines.add(String.format(Locale.ROOT, "%,d samples are of resources that the scratch pad or the declarations"
                    + " do not know; the agent would pass them over too.", progress.unknownSamples()));
        }
    }

    private void timeline(List<String> lines) {
        List<Replay.Happening> all = result.timeline();
        lines.add("");
        if (all.isEmpty()) {
            lines.add("Nothing would have been announced.");
        } else if (all.size() > SHOWN) {
            lines.add(String.format(Locale.ROOT, "The newest %d of %,d (--json has all):", SHOWN, all.size()));
        }
        all.subList(Math.max(0, all.size() - SHOWN), all.size()).forEach(h -> lines.add(happening(h)));
    }

    private String happening(Replay.Happening h) {
        String what = switch (h.what()) {
            case ONSET -> "onset    ";
            case EVENT -> "event    ";
            case CLEARED -> "cleared  ";
            case LIMIT -> "limit    ";
        };
        String announced = h.announced() == 0 ? "" : ": exhausted at " + time(h.announced()) + ", in "
                + Words.ofDuration(Duration.ofSeconds(Math.max(0, h.announced() - h.time())));
        return time(h.time()) + "  " + what + names.getOrDefault(h.id(), "?") + announced;
    }

    private List<String> scorecards() {
        List<List<String>> rows = new ArrayList<>();
        rows.add(List.of("RESOURCE", "LIMIT REACHED", "ONSET LEAD", "EVENT LEAD", "OFF AT 24 12 6 3 1 H", "EPISODES",
                "FALSE/WEEK", "FLAPS", "MODELS"));
        for (Replay.Tally resource : result.summary().resources()) {
            ReplayResult.Score score = result.score(resource, 0);
            rows.add(List.of(name(resource), reached(resource), first(score.onsetLeads()), first(score.eventLeads()),
                    errors(score), outcomes(score), aWeek(score, score.falseEpisodesAWeek()), "" + score.flaps(),
                    models(resource.chosen())));
        }
        return aligned(rows);
    }

    private String reached(Replay.Tally resource) {
        List<Long> times = resource.reached();
        if (times.isEmpty()) {
            return "no";
        }
        return time(times.get(0)) + (times.size() == 1 ? "" : " and " + (times.size() - 1) + " more");
    }

    private static String outcomes(ReplayResult.Score score) {
        return score.count(Outcome.REACHED) + " reached, " + score.count(Outcome.FREED) + " freed, "
                + score.count(Outcome.LEVELLED_OFF) + " levelled off"
                + (score.count(Outcome.OPEN) > 0 ? ", " + score.count(Outcome.OPEN) + " on" : "");
    }

    private static String errors(ReplayResult.Score score) {
        return IntStream.range(0, 5).mapToObj(mark -> median(score.errors(mark))).collect(Collectors.joining(" "));
    }

    private static String models(List<Long> chosen) {
        double all = chosen.stream().mapToLong(Long::longValue).sum();
        return IntStream.range(0, chosen.size()).boxed().filter(i -> chosen.get(i) > 0)
                .sorted(Comparator.comparing((Integer i) -> -chosen.get(i)))
                .map(i -> MODEL_WORDS.get(i) + " " + Math.round(100 * chosen.get(i) / all) + " %")
                .collect(Collectors.joining(", "));
    }

    private List<String> rivals(int rules) {
        List<List<String>> rows = new ArrayList<>();
        rows.add(List.of("RULE", "FOUND", "MEDIAN LEAD", "LEAST LEAD", "OFF AT 24 12 6 3 1 H", "FALSE/WEEK"));
        ReplayResult.Score agent = result.score(0);
        rows.add(rival("agent, from the onset", agent, ReplayResult.Score::onsetLeads, agent.falseEpisodesAWeek()));
        rows.add(rival("agent, from the event", agent, ReplayResult.Score::eventLeads, agent.falseAlarmsAWeek()));
        for (int rule = 1; rule < rules; rule++) {
            ReplayResult.Score score = result.score(rule);
            rows.add(rival(RULE_WORDS.get(rule), score, ReplayResult.Score::eventLeads, score.falseAlarmsAWeek()));
        }
        return aligned(rows);
    }

    private List<String> rival(String words, ReplayResult.Score score, Function<ReplayResult.Score, List<Double>> leads,
            double falseAWeek) {
        List<Double> found = leads.apply(score);
        double least = found.stream().mapToDouble(Double::doubleValue).min().orElse(Double.NaN);
        return List.of(words, found.size() + " of " + result.limitsReached(), hours(TrackRecord.median(found)),
                hours(least), errors(score), aWeek(score, falseAWeek));
    }

    /** The results of a sweep side by side; those that no other beats in both are marked. */
    static List<String> sweep(List<ReplayResult> results) {
        List<List<String>> rows = new ArrayList<>();
        rows.add(List.of("", "FARTHEST FORECAST", "PERIOD", "FOUND", "MEDIAN ONSET LEAD", "MEDIAN EVENT LEAD",
                "FALSE EPISODES/WEEK", "FALSE EVENTS/WEEK"));
        List<ReplayResult> best = Sweep.unbeaten(results);
        for (ReplayResult result : results) {
            ReplayResult.Score score = result.score(0);
            rows.add(List.of(best.contains(result) ? "*" : " ", result.settings().maxForecastHours() + " h",
                    period(result),
                    score.onsetLeads().size() + " of " + result.limitsReached(),
                    hours(TrackRecord.median(score.onsetLeads())), hours(TrackRecord.median(score.eventLeads())),
                    aWeek(score, score.falseEpisodesAWeek()), aWeek(score, score.falseAlarmsAWeek())));
        }
        List<String> lines = new ArrayList<>(aligned(rows));
        lines.add("* no other finds as many, as early and with as few false episodes");
        return lines;
    }

    private static String first(List<Double> leads) {
        return leads.isEmpty() ? UNKNOWN : hours(leads.get(0));
    }

    private static String median(List<Double> numbers) {
        return numbers.isEmpty() ? UNKNOWN
                : String.format(Locale.ROOT, "%.1f/%.1f", TrackRecord.median(numbers),
                        numbers.stream().mapToDouble(Double::doubleValue).max().orElse(0));
    }

    private static String hours(double hours) {
        return Double.isNaN(hours) ? UNKNOWN : Words.ofDuration(Duration.ofSeconds(Math.round(hours * HOUR)));
    }

    private static String period(ReplayResult result) {
        int millis = result.summary().periodMillis();
        return millis < 1000 ? millis + " ms" : Words.ofDuration(Duration.ofMillis(millis));
    }

    /** A rate from less than a day says nothing. */
    private static String aWeek(ReplayResult.Score score, double rate) {
        return score.weeks() < 1 / 7.0 ? UNKNOWN : String.format(Locale.ROOT, "%.2f", rate);
    }

    private String time(long epochSeconds) {
        return MINUTE.format(Instant.ofEpochSecond(epochSeconds).atZone(zone));
    }

    private static List<String> aligned(List<List<String>> rows) {
        int[] widths = new int[rows.get(0).size()];
        for (List<String> row : rows) {
            for (int i = 0; i < widths.length; i++) {
                widths[i] = Math.max(widths[i], row.get(i).codePointCount(0, row.get(i).length()));
            }
        }
        return rows.stream().map(row -> IntStream.range(0, widths.length)
                .mapToObj(i -> row.get(i) + " ".repeat(widths[i] - row.get(i).codePointCount(0, row.get(i).length())))
                .collect(Collectors.joining("  ")).stripTrailing()).toList();
    }
}
