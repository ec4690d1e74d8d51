package com.quorin.sysmgt.tavl.LumetraAgent.replay;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorin.sysmgt.tavl.LumetraAgent.score.Episode;
import com.quorin.sysmgt.tavl.LumetraAgent.score.Outcome;
import java.time.ZoneOffset;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;
import org.junit.jupiter.api.Test;

class ReplayResultTest {

    private static final int HOUR = 3600;
    private static final long WEEK = 7 * 24 * HOUR;
    private static final Replay.Settings SETTINGS = new Replay.Settings(60_000, 0, 48, 1);

    private static Episode episode(int rule, Outcome outcome, long onset, long firstEvent, long end, double error) {
        return new Episode(rule, onset, firstEvent, end, outcome, onset + HOUR,
                firstEvent == 0 ? 0 : firstEvent + HOUR, 50, 60, List.of(Double.NaN, error, -error, 0.5, 0.25));
    }

    private static ReplayResult result(Replay.Settings settings, List<Long> reached, Episode... episodes) {
        Map<Integer, List<Episode>> all = new TreeMap<>(Map.of(3, List.of(episodes)));
        return new ReplayResult(true, settings, 
                new Replay.Progress(100, 100, 1000, 1000 + WEEK, 10_080, 9_881, 0, 0, true),
                new Replay.Summary(60_000, List.of(new Replay.Tally(3, "Space", "/dev/a /a", 10_080, WEEK,
                        List.of(7L, 2L, 0L, 1L, 0L, 0L), reached, List.of()))),
                List.of(new Replay.Happening(1000, 3, Replay.What.ONSET, 1000 + HOUR),
                        new Replay.Happening(2000, 3, Replay.What.LIMIT, 0)), all, List.of());
    }

    private static final ReplayResult MIXED = result(SETTINGS, List.of(50_000L),
            episode(0, Outcome.LEVELLED_OFF, 1000, 0, 2000, 0), episode(0, Outcome.FREED, 3000, 3500, 4000, 0),
            episode(0, Outcome.REACHED, 50_000 - 10 * HOUR, 50_000 - 4 * HOUR, 50_000, 2),
            episode(0, Outcome.OPEN, 60_000, 0, 0, 0),
            episode(4, Outcome.REACHED, 50_000 - HOUR, 50_000 - HOUR, 50_000, 0));

    @Test
    void leadsErrorsFalseEpisodesAndFlapsAreOfTheirRule() {
        ReplayResult.Score agent = MIXED.score(0);
        assertEquals(List.of(10.0), agent.onsetLeads());
        assertEquals(List.of(4.0), agent.eventLeads());
        assertEquals(List.of(), agent.errors(0));
        assertEquals(List.of(2.0), agent.errors(1));
        assertEquals(List.of(2.0), agent.errors(2));
        assertEquals(2.0, agent.falseEpisodesAWeek());
        assertEquals(1.0, agent.falseAlarmsAWeek());
        assertEquals(1, agent.flaps());
        assertEquals(1, agent.count(Outcome.OPEN));
        assertEquals(List.of(1.0), MIXED.score(4).eventLeads());
        assertEquals(0.0, MIXED.score(4).falseEpisodesAWeek());
    }

    @Test
    void theTableSaysWhatWasReplayedAndHowItScored() {
        List<String> lines = new ReplayTable(MIXED, ZoneOffset.UTC).lines(5);
        assertEquals("10,080 cycles of 1 resources, 1970-01-01 00:16 to 1970-01-08 00:16, one in 60 s, "
                + "forecasts up to 48 h: 9,881 forecasts.", lines.get(0));
        assertEquals("1970-01-01 00:16  onset    Space [/dev/a /a]: exhausted at 1970-01-01 01:16, in 60 min",
                lines.get(2));
        assertEquals("1970-01-01 00:33  limit    Space [/dev/a /a]", lines.get(3));
        assertEquals("Space [/dev/a /a]  1970-01-01 13:53  10 h        4 h         - 2.0/2.0 2.0/2.0 0.5/0.5 0.3/0.3  "
                + "1 reached, 1 freed, 1 levelled off, 1 on  2.00        1      line 70 %, hinge 20 %, log line 10 %",
                lines.get(6));
        assertTrue(lines.get(9).startsWith("agent, from the onset                  1 of 1  10 h"), lines.get(9));
    }

    @Test
    void theJsonHasEveryEpisodeOfTheRulesThatWereAskedFor() {
        String json = ReplayJson.of(MIXED, 1);
        assertTrue(json.startsWith("{\"complete\":true,\"settings\":{\"periodSeconds\":60.0,\"minForecastHours\":0,"
                + "\"maxForecastHours\":48,\"every\":1},\"from\":1000,\"to\":605800,\"cycles\":10080,"
                + "\"forecasts\":9881,"), json);
        assertTrue(json.contains("\"reached\":[50000],\"models\":{\"simple linear regression\":7,"), json);
        assertTrue(json.contains("{\"rule\":\"agent\",\"onsets\":4,\"events\":2,\"episodes\":[{\"onset\":1000,"
                + "\"firstEvent\":null,\"end\":2000,\"outcome\":\"levelledOff\","
                + "\"announcedAtOnset\":4600,\"announcedAtEvent\":null,"
                + "\"onsetValue\":50.0,\"highest\":60.0,\"errorsHours\":{\"24\":null,\"12\":0.0,"), json);
        assertTrue(json.contains("{\"time\":2000,\"id\":3,\"what\":\"limit\",\"announced\":null}"), json);
        assertTrue(!json.contains("threshold90") && ReplayJson.of(MIXED, 5).contains("threshold90"));
    }

    @Test
    void aSweepNamesThoseThatNoOtherBeats() {
        ReplayResult early = result(SETTINGS, List.of(50_000L),
                episode(0, Outcome.REACHED, 50_000 - 10 * HOUR, 0, 50_000, 0),
                episode(0, Outcome.FREED, 3000, 3500, 4000, 0));
        ReplayResult quiet = result(SETTINGS, List.of(50_000L),
                episode(0, Outcome.REACHED, 50_000 - 2 * HOUR, 0, 50_000, 0));
        ReplayResult beaten = result(SETTINGS, List.of(50_000L),
                episode(0, Outcome.REACHED, 50_000 - HOUR, 0, 50_000, 0),
                episode(0, Outcome.FREED, 3000, 3500, 4000, 0));
        assertEquals(List.of(early, quiet), Sweep.unbeaten(List.of(early, quiet, beaten)));
    }

    @Test
    void aSweepTriesOnlyWindowsThatHoldAForecast() {
        List<Replay.Settings> all = Sweep.around(SETTINGS, 200);
        assertEquals(SETTINGS, all.get(0));
        assertTrue(all.stream().skip(1).allMatch(s -> s.maxForecastHours() * 360_000L / (60_000L * s.every()) >= 200));
        assertTrue(all.contains(new Replay.Settings(60_000, 0, 168, 5)));
        assertTrue(!all.contains(new Replay.Settings(60_000, 0, 12, 1)));
        assertEquals(1, all.stream().filter(SETTINGS::equals).count());
    }
}
