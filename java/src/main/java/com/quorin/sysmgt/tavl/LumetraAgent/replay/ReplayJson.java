package com.quorin.sysmgt.tavl.LumetraAgent.replay;

import com.quorin.sysmgt.tavl.LumetraAgent.score.Episode;
import com.quorin.sysmgt.tavl.LumetraAgent.text.AsciiJson;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.io.IOException;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.stream.IntStream;

/** Results as JSON, which docs/replay.schema.json describes. Times are seconds since the epoch. */
final class ReplayJson {

    private record Document(boolean complete, Settings settings, Long from, Long to, long cycles, long forecasts,
            long damagedLines, long unknownSamples, List<Replay.Damage> damage, List<Resource> resources,
            List<Happening> timeline) {}

    private record Settings(double periodSeconds, int minForecastHours, int maxForecastHours, int every) {}

    private record Resource(int id, String resource, String instance, long samples, long observedSeconds,
            List<Long> reached, Map<String, Long> models, List<Rule> rules) {}

    private record Rule(String rule, long onsets, long events, List<Announced> episodes) {}

    private record Announced(long onset, Long firstEvent, Long end, String outcome, Long announcedAtOnset,
            Long announcedAtEvent, double onsetValue, double highest, Map<String, Double> errorsHours) {}

    private record Happening(long time, int id, String what, Long announced) {}

    private record Swept(List<Document> sweep) {}

    private ReplayJson() {}

    /** One result. */
    static String of(ReplayResult result, int rules) {
        return text(document(result, rules, true));
    }

    /** The results of several settings, without their timelines. */
    static String ofSweep(List<ReplayResult> results) {
        return text(new Swept(results.stream().map(result -> document(result, 1, false)).toList()));
    }

    private static String text(Object document) {
        try {
            return AsciiJson.MAPPER.writeValueAsString(document);
        } catch (IOException e) {
            throw new IllegalStateException("a result has no JSON", e);
        }
    }

    private static Document document(ReplayResult result, int rules, boolean withTimeline) {
        Replay.Progress progress = result.progress();
        Replay.Settings settings = result.settings();
        return new Document(result.complete(),
                new Settings(result.summary().periodMillis() / 1000.0, settings.minForecastHours(),
                        settings.maxForecastHours(), settings.every()),
                orNull(progress.from()), orNull(progress.to()), progress.cycles(), progress.forecasts(),
                progress.damagedLines(), progress.unknownSamples(),
                result.damages().stream()
                        .map(d -> new Replay.Damage(Words.ofBytes(d.file()), d.line(), d.what())).toList(),
                result.summary().resources().stream().map(r -> resource(result, r, rules)).toList(),
                withTimeline ? result.timeline().stream()
                        .map(h -> new Happening(h.time(), h.id(), h.what().word(), orNull(h.announced()))).toList()
                        : List.of());
    }

    private static Resource resource(ReplayResult result, Replay.Tally tally, int rules) {
        Map<String, Long> models = new LinkedHashMap<>();
        for (int i = 0; i < tally.chosen().size(); i++) {
            models.put(ReplayResult.MODELS.get(i), tally.chosen().get(i));
        }
        return new Resource(tally.id(), Words.ofBytes(tally.resource()), Words.ofBytes(tally.instance()),
                tally.samples(), tally.observedSeconds(), tally.reached(), models,
                IntStream.range(0, rules).mapToObj(rule -> rule(result, tally.id(), rule)).toList());
    }

    private static Rule rule(ReplayResult result, int id, int rule) {
        List<Episode> episodes = result.episodes(id, rule);
        return new Rule(ReplayResult.RULES.get(rule), episodes.size(),
                episodes.stream().filter(Episode::hasEvent).count(),
                episodes.stream().map(ReplayJson::announced).toList());
    }

    private static Announced announced(Episode e) {
        Map<String, Double> errors = new LinkedHashMap<>();
        for (int i = 0; i < e.errorsHours().size(); i++) {
            double error = e.errorsHours().get(i);
            errors.put(Integer.toString(Episode.MARKS_HOURS.get(i)), Double.isFinite(error) ? error : null);
        }
        return new Announced(e.onset(), orNull(e.firstEvent()), orNull(e.end()), e.outcome().word(),
                orNull(e.announcedAtOnset()), orNull(e.announcedAtEvent()), e.onsetValue(), e.highest(), errors);
    }

    private static Long orNull(long time) {
        return time == 0 ? null : time;
    }
}
