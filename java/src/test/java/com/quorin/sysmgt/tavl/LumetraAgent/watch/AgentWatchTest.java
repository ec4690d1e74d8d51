package com.quorin.sysmgt.tavl.LumetraAgent.watch;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotSame;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.fasterxml.jackson.databind.ObjectMapper;
import com.quorin.sysmgt.tavl.LumetraAgent.TrendReader;
import com.quorin.sysmgt.tavl.LumetraAgent.events.Event;
import com.quorin.sysmgt.tavl.LumetraAgent.events.EventHistory;
import com.quorin.sysmgt.tavl.LumetraAgent.files.Culprit;
import com.quorin.sysmgt.tavl.LumetraAgent.files.CulpritReport;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Curves;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.GivenResource;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.LeftOutKind;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Publication;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.ResourceState;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.RunResource;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.RunState;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.TrendView;
import com.quorin.sysmgt.tavl.LumetraAgent.score.ScoreBook;
import com.quorin.sysmgt.tavl.LumetraAgent.score.ScoreFile;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.Map;
import java.util.Optional;
import java.util.Set;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class AgentWatchTest {

    private static final long SECOND = 1_000_000_000;
    private static final long START = GivenResource.START;

    @TempDir
    Path home;

    private final FakeFeed feed = new FakeFeed();
    private final EventHistory events = new EventHistory();
    private final GivenResource swap = GivenResource.swap(3);
    private boolean running = true;
    private long nanos = 5 * SECOND;
    private final AgentWatch watch = new AgentWatch("/home/x\u001b", "1.2", () -> running, feed, events,
            new ScoreBook(new ScoreFile(Path.of("/nowhere/score.jsonl")), complaint -> { }),
            new AgentWatch.Timing(() -> START * 1000, () -> nanos));

    private void cycle(long number, long time, GivenResource... resources) {
        take(number, GivenResource.state(time, resources));
    }

    private void take(long cycles, RunState state) {
        watch.accept(new Publication(cycles + 1, cycles, Optional.ofNullable(state)));
    }

    private Snapshot.Agent agent() {
        return watch.snapshot().agent();
    }

    private Snapshot.Resource only() {
        assertEquals(1, watch.snapshot().resources().size());
        return watch.snapshot().resources().get(0);
    }

    @Test
    void beforeTheAgentHasReadItsConfigurationItsNumbersAreNotKnown() {
        assertEquals(new Snapshot.Agent(
                "1.2", "/home/x\\x1b", START, START, true, false, 0, null, 0, 0, 0, 0, null, 0), agent());
        assertEquals(List.of(), watch.snapshot().resources());
        assertEquals(List.of(), watch.snapshot().leftOut());
        assertTrue(watch.trend(1).isEmpty());
        assertTrue(watch.culprits(1).isEmpty());
        assertTrue(watch.events(1, 5).isEmpty());
    }

    @Test
    void beforeTheFirstCycleThereAreNoResources() {
        take(0, GivenResource.state(0, true, swap));
        assertEquals(new Snapshot.Agent(
                "1.2", "/home/x\\x1b", START, START, true, false, 0, null, 10, 200, 0, 48, null, 0), agent());
        assertEquals(List.of(), watch.snapshot().resources());
    }

    @Test
    void aCycleIsShownAtOnceAndTheSameObjectUntilTheNext() {
        cycle(1, START, swap);
        Snapshot first = watch.snapshot();
        assertEquals(3, only().id());
        assertEquals(1, first.agent().cycles());
        assertEquals(START, first.agent().newestCycleAt());
        assertSame(first, watch.snapshot());
        cycle(2, START + 12, swap);
        assertNotSame(first, watch.snapshot());
        assertEquals(2, agent().cycles());
    }

    @Test
    void theSamplesThatItResumedWithAreSaid() {
        take(0, GivenResource.resumed(GivenResource.state(0, swap), 4_300_000_000L, 2));
        assertEquals(4_300_000_000L, agent().resumedSamples());
    }

    @Test
    void whatIsLeftOutIsSaidWithoutControlCharacters() {
        cycle(1, START, swap);
        assertEquals(List.of(new Snapshot.LeftOut("bad \\x1bline", "it cannot be read", LeftOutKind.PATTERN,
                        "rule mount /\\x1b*")),
                watch.snapshot().leftOut());
    }

    /** A cycle takes two seconds and the pause ten. */
    @Test
    void anAgentThatIsSilentForThreePeriodsIsStaleWhateverTheClockSays() {
        cycle(1, START - 86400, swap);
        Snapshot fresh = watch.snapshot();
        nanos += 36 * SECOND;
        assertSame(fresh, watch.snapshot());
        assertFalse(agent().stale());
        nanos += 1;
        assertTrue(agent().stale());
        assertEquals(ResourceState.STALE, only().state());
        cycle(2, START, swap);
        assertFalse(agent().stale());
    }

    @Test
    void anAgentWithoutAPauseIsNotStaleBeforeFiveSeconds() {
        RunState slow = GivenResource.state(START, swap);
        take(1, new RunState(new RunState.Cycle(START, 0.1, 0, 0, 0.1), slow.archive(),
                new RunState.Settings("", 100, 0, 48, 200), false, List.of(), slow.resources()));
        nanos += 5 * SECOND - 1;
        assertFalse(agent().stale());
        nanos += 1;
        assertTrue(agent().stale());
    }

    @Test
    void anAgentThatHasEndedDoesNotRunAndIsStale() {
        cycle(1, START, swap);
        assertTrue(agent().running());
        take(1, null);
        assertFalse(agent().running());
        assertTrue(agent().stale());
        assertEquals(1, agent().cycles());
        assertEquals(ResourceState.STALE, only().state());
    }

    @Test
    void whatIsAtItsLimitIsAmongTheMeasuresAlsoOfAnAgentThatStalls() {
        swap.reached = RunResource.Reached.UPPER;
        cycle(1, START, swap);
        nanos += 100 * SECOND;
        assertEquals(ResourceState.STALE, only().state());
        assertEquals(Set.of(3), watch.snapshot().measures().atLimit());
    }

    @Test
    void anEndThatIsNotPublishedIsSeenAllTheSame() {
        cycle(1, START, swap);
        assertTrue(agent().running());
        running = false;
        assertFalse(agent().running());
        assertTrue(agent().stale());
    }

    @Test
    void disksThatCannotBeListedYetAreNoticedUntilTheFirstOneComes() {
        take(1, GivenResource.state(START, true, swap));
        assertEquals("The disks cannot be listed yet: df has not answered; they are taken up as soon as it does.",
                agent().notice());
        take(2, GivenResource.state(START + 12, true, swap, GivenResource.disk(5, "/dev/vda", "/")));
        assertNull(agent().notice());
        take(3, GivenResource.state(START + 24, false, swap));
        assertNull(agent().notice());
    }

    private void archive(String text) throws IOException {
        Files.writeString(home.resolve("archive"), text);
    }

    private RunState withArchive(long time) {
        RunState state = GivenResource.state(time, swap);
        return new RunState(state.cycle(), new RunState.Archive(home + "/archive", 77, RunState.Resumed.NOTHING),
                state.settings(), false, List.of(), state.resources());
    }

    private static TrendView.Curve curve(double... timesAndValues) {
        double[] times = new double[timesAndValues.length / 2];
        double[] values = new double[times.length];
        for (int i = 0; i < times.length; i++) {
            times[i] = timesAndValues[2 * i];
            values[i] = timesAndValues[2 * i + 1];
        }
        return new TrendView.Curve(times, values);
    }

    @Test
    void aChartBeforeTheForecastIsTheHistoryOfEarlierRunsAndTheLibrarysSamples() throws IOException {
        archive(START - 86400 + " 3 0 9.00 \n" + (START - 20) + " 3 0 12.34 \n" + (START + 1) + " 3 0 66.00 \n");
        take(0, withArchive(0));
        take(1, withArchive(START + 1));
        take(2, withArchive(START + 13));
        feed.curves.put(3, new Curves(
                curve(START + 1, 50.123456, START + 13, 99.95, START + 14, Double.NaN), Optional.empty()));
        TrendView chart = watch.trend(3).get();
        assertEquals("history", chart.source());
        assertArrayEquals(new double[] {START - 20, START + 1, START + 13}, chart.samples().times());
        assertArrayEquals(new double[] {12.34, 50.1235, 99.95}, chart.samples().values());
        assertEquals(100.0, chart.limit());
        assertNull(chart.forecast());
        assertNull(chart.forecastAt());
    }

    @Test
    void earlierRunsAreReadOnce() throws IOException {
        archive(START - 20 + " 3 0 12.34 \n");
        take(0, withArchive(0));
        archive(START - 20 + " 3 0 12.34 \n" + (START - 10) + " 3 0 13.00 \n");
        take(1, withArchive(START));
        assertEquals(START - 20, only().reading().recent().from());
        assertArrayEquals(new double[] {START - 20, START}, watch.trend(3).get().samples().times());
    }

    private void giveForecast(long time) {
        feed.curves.put(3, new Curves(curve(START - 10, 40, START, 50), Optional.of(new Curves.Forecast(
                new RunResource.Forecast(time, "mean", 2.5), 75.000001, curve(START, 50, START + 3600, 99.99)))));
    }

    @Test
    void aForecastsChartIsAsTheLibraryHasItNow() {
        cycle(1, START, swap);
        giveForecast(START + 12); // a cycle is under way
        TrendView chart = watch.trend(3).get();
        assertEquals("forecast", chart.source());
        assertEquals(START + 12, chart.forecastAt());
        assertEquals(9000.0, chart.secondsToExhaustion());
        assertEquals("mean", chart.model());
        assertEquals(75.0, chart.notificationLevel());
        assertEquals(100.0, chart.limit());
        assertArrayEquals(new double[] {40, 50}, chart.samples().values());
        assertArrayEquals(new double[] {START, START + 3600}, chart.forecast().times());
        assertArrayEquals(new double[] {50, 99.99}, chart.forecast().values());
    }

    @Test
    void aForecastThatNoLongerCountsIsNoChart() {
        cycle(1, START + 61, swap);
        giveForecast(START);
        assertEquals("history", watch.trend(3).get().source());
    }

    @Test
    void aChartIsMadeOnceACycle() {
        cycle(1, START, swap);
        giveForecast(START);
        TrendView chart = watch.trend(3).get();
        assertSame(chart, watch.trend(3).get());
        cycle(2, START + 12, swap);
        assertNotSame(chart, watch.trend(3).get());
    }

    @Test
    void aChartThatACycleOvertakesIsNotThatOfTheCycle() {
        cycle(1, START, swap);
        giveForecast(START);
        feed.meanwhile = () -> cycle(2, START + 12, swap);
        assertEquals(START, watch.trend(3).get().forecastAt());
        feed.meanwhile = () -> { };
        giveForecast(START + 12);
        assertEquals(START + 12, watch.trend(3).get().forecastAt());
    }

    @Test
    void whatIsGoneLeavesItsLastChart() {
        cycle(1, START, swap);
        giveForecast(START);
        TrendView chart = watch.trend(3).get();
        feed.curves.clear();
        cycle(2, START + 12);
        assertSame(chart, watch.trend(3).get());
    }

    @Test
    void whatIsGoneBeforeAnybodyAskedHasItsHistory() {
        cycle(1, START, swap);
        cycle(2, START + 12);
        assertArrayEquals(new double[] {START}, watch.trend(3).get().samples().times());
    }

    @Test
    void chartsOfManyResourcesAreNotAllKept() {
        GivenResource[] many = new GivenResource[100];
        for (int i = 0; i < many.length; i++) {
            many[i] = GivenResource.disk(i, "/dev/vd" + i, "/" + i);
        }
        cycle(1, START, many);
        TrendView first = watch.trend(0).get();
        assertSame(first, watch.trend(0).get());
        for (int i = 1; i < many.length; i++) {
            watch.trend(i);
        }
        assertNotSame(first, watch.trend(0).get());
    }

    @Test
    void culpritsAreOfTheResourceByItsNameInTheDataHome() throws IOException {
        GivenResource own = GivenResource.swap(3);
        own.name = GivenResource.SWAP;
        RunState state = GivenResource.state(START, own);
        take(1, new RunState(state.cycle(), state.archive(), new RunState.Settings(home + "/", 10_000, 0, 48, 200),
                false, List.of(), state.resources()));
        assertEquals(new CulpritReport(3, "residentMegabytes", "MB resident", null, List.of()),
                watch.culprits(3).get());
        Files.writeString(home.resolve("PercentSwapSpaceUsed.cul"), "Top\n\t(java) \tPID 12 \tRSS 800 MB\n");
        assertEquals(List.of(), watch.culprits(3).get().processes());
        nanos += SECOND;
        assertEquals(List.of(new Culprit("java", 12, 800)), watch.culprits(3).get().processes());
    }

    @Test
    void whatIsLongGoneLeavesNoCulpritsBehind() throws IOException {
        GivenResource own = GivenResource.swap(3);
        own.name = GivenResource.SWAP;
        GivenResource[] many = new GivenResource[1001];
        for (int i = 0; i < many.length; i++) {
            many[i] = GivenResource.disk(10 + i, "/dev/vd" + i, "/" + i);
        }
        cycleOfHome(1, own);
        assertEquals(List.of(), watch.culprits(3).get().processes());
        cycleOfHome(2, many);
        cycleOfHome(3, many[0]);
        assertTrue(watch.culprits(3).isEmpty());
        Files.writeString(home.resolve("PercentSwapSpaceUsed.cul"), "Top\n\t(java) \tPID 12 \tRSS 800 MB\n");
        cycleOfHome(4, own);
        assertEquals(1, watch.culprits(3).get().processes().size());
    }

    private void cycleOfHome(long number, GivenResource... resources) {
        RunState state = GivenResource.state(START + 12 * number, resources);
        take(number, new RunState(state.cycle(), state.archive(),
                new RunState.Settings(home + "/", 10_000, 0, 48, 200), false, List.of(), state.resources()));
    }

    private void event(String resource, String instance) {
        events.accept(new Event.LimitReached(new Event.Moment("t", 1), Event.Type.UPPER_TOLERANCE,
                new Event.Subject(resource, instance), 100.0));
    }

    @Test
    void eventsBelongToTheirResource() {
        cycle(1, START, swap);
        event("Swap", "_Total");
        event("Swap", "x");
        assertEquals(1, watch.events(3, 10).get().size());
        assertEquals(2, watch.events(10).size());
        assertSame(events.counts(), watch.eventCounts());
    }

    @Test
    void theAgentsOwnMeasuresAreInTheSnapshotButNotInTheJson() throws IOException {
        cycle(1, START, swap);
        assertEquals(new Snapshot.Measures(6.5, 4096, Map.of(3, new TrendReader.Resource("Swap", "_Total")), Set.of()),
                watch.snapshot().measures());
        assertFalse(new ObjectMapper().writeValueAsString(watch.snapshot()).contains("measures"));
    }
}
