package com.quorin.sysmgt.tavl.LumetraAgent.watch;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;

import com.quorin.sysmgt.tavl.LumetraAgent.TrendReader;
import com.quorin.sysmgt.tavl.LumetraAgent.files.ArchiveLine;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.GivenResource;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.ResourceState;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.RunResource;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.RunState;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.stream.Collectors;
import java.util.stream.IntStream;
import org.junit.jupiter.api.Test;

class WatchedFleetTest {

    private static final long START = GivenResource.START;

    private final WatchedFleet fleet = new WatchedFleet();
    private final GivenResource swap = GivenResource.swap(3);
    private final GivenResource disk = GivenResource.disk(5, "/dev/vda", "/");
    private boolean stale;

    private void cycle(long number, GivenResource... resources) {
        cycle(number, START + 12 * number, resources);
    }

    private void cycle(long number, long time, GivenResource... resources) {
        fleet.take(number, GivenResource.state(time, resources));
    }

    private Snapshot.Resource row(int id) {
        return fleet.rows(stale, (key, n) -> Snapshot.Track.NONE).stream().filter(r -> r.id() == id).findFirst()
                .orElseThrow();
    }

    @Test
    void historiesMoveWithTheClockOnce() {
        cycle(1, START, swap);
        for (int number = 2; number < 4; number++) {
            RunState state = GivenResource.state(START + 86_400 + 12 * number, swap);
            RunState.Cycle cycle = new RunState.Cycle(state.cycle().time(), 86_400, 0, 0, 0, 0);
            fleet.take(number, new RunState(cycle, state.archive(), state.settings(), false, List.of(),
                    state.resources()));
        }
        assertArrayEquals(new double[] {START + 86_400, START + 86_424, START + 86_436},
                fleet.listed(3).history().between(0, Double.MAX_VALUE).times());
    }

    @Test
    void aResourceThatCollectsSaysWhenTheFirstForecastCanCome() {
        swap.value = 41.271234567;
        swap.samples = 2;
        cycle(1, START, swap);
        assertEquals(new Snapshot.Resource(
                new Snapshot.Identity(3, "Swap", "", null, null, "PercentSwapSpaceUsed", "Swap"),
                new Snapshot.Reading(41.2712, "2.0 GiB", 100.0, 2,
                        new Snapshot.Recent(START, START, List.of(41.271))),
                new Snapshot.Standing(ResourceState.COLLECTING, "collecting", null,
                        RunResource.WatchReason.DECLARED.words()),
                // a pause of ten seconds and two of work
                new Snapshot.Forecast(START + 198 * 12, null, null, null, null, null)), row(3));
    }

    @Test
    void aWindowThatIsTooShortAwaitsNoForecast() {
        swap.slots = 180;
        cycle(1, swap);
        assertEquals(ResourceState.COLLECTING, row(3).state());
        assertEquals(Snapshot.Forecast.NONE, row(3).forecast());
    }

    @Test
    void aForecastIsShownInTheCycleInWhichItIsMade() {
        swap.forecast(2.5, 75.123456);
        cycle(1, START, swap);
        assertEquals(ResourceState.PENDING, row(3).state());
        assertEquals(new Snapshot.Forecast(
                null, 9000.0, START + 9000, "hinge regression", 75.1235, START), row(3).forecast());
    }

    @Test
    void aForecastWithoutExhaustionHasNeitherTimeNorLevel() {
        swap.forecast(-1, 75);
        cycle(1, START, swap);
        assertEquals(ResourceState.NO_EXHAUSTION, row(3).state());
        assertEquals(new Snapshot.Forecast(null, null, null, "hinge regression", null, START), row(3).forecast());
    }

    @Test
    void aForecastThatIsNotRenewedCountsForAMinute() {
        swap.forecast(2.5, 75);
        cycle(1, START + 60, swap);
        assertEquals(ResourceState.PENDING, row(3).state());
        cycle(2, START + 61, swap);
        assertEquals("no forecast", row(3).standing().stateText());
        assertEquals("no model could be fitted", row(3).standing().note());
        assertEquals(Snapshot.Forecast.NONE, row(3).forecast());
    }

    @Test
    void whatHasNoLimitHasNoForecastEither() {
        swap.forecast(2.5, 75).measured = 9.3e18;
        cycle(1, START, swap);
        assertEquals(ResourceState.NO_LIMIT, row(3).state());
        assertEquals(Snapshot.Forecast.NONE, row(3).forecast());
        assertNull(row(3).reading().limit());
        assertEquals(50.0, row(3).reading().value());
    }

    @Test
    void whatWasNeverReadHasNoValueAndWhatWasKeepsItsLast() {
        swap.isRead = false;
        cycle(1, swap);
        assertNull(row(3).reading().value());
        assertEquals(ResourceState.UNREADABLE, row(3).state());
        swap.isRead = true;
        cycle(2, swap);
        swap.isRead = false;
        cycle(3, swap);
        assertEquals(50.0, row(3).reading().value());
        assertEquals(ResourceState.UNREADABLE, row(3).state());
    }

    @Test
    void ofALargeFleetFewerSamplesAreKept() {
        for (long number = 1; number <= 300; number++) {
            cycle(number, swap);
        }
        assertEquals(300, fleet.listed(3).history().between(0, Double.MAX_VALUE).length());
        List<GivenResource> more = IntStream.range(1000, 3000)
                .mapToObj(id -> GivenResource.disk(id, "/dev/vd" + id, "/" + id)).collect(Collectors.toList());
        more.add(swap);
        cycle(301, more.toArray(new GivenResource[0]));
        assertEquals(256, fleet.listed(3).history().between(0, Double.MAX_VALUE).length());
    }

    @Test
    void whatIsGoneIsAbsentUntilItComesBack() {
        cycle(1, swap, disk);
        cycle(2, swap);
        assertEquals(ResourceState.ABSENT, row(5).state());
        assertNull(row(5).reading().value());
        assertNull(row(5).reading().limit());
        assertEquals("/dev/vda", row(5).identity().device());
        cycle(3, swap, disk);
        assertEquals(ResourceState.COLLECTING, row(5).state());
        assertEquals(List.of(3, 5), fleet.rows(false, (key, n) -> Snapshot.Track.NONE).stream()
                .map(Snapshot.Resource::id).sorted().toList());
    }

    @Test
    void aStaleAgentKeepsItsValues() {
        cycle(1, swap);
        stale = true;
        assertEquals(ResourceState.STALE, row(3).state());
        assertEquals(50.0, row(3).reading().value());
    }

    @Test
    void whatIsAtItsLimitStaysSoWhileTheAgentIsStaleAndNoLonger() {
        disk.reached = RunResource.Reached.UPPER;
        GivenResource unread = GivenResource.disk(6, "/dev/vdb", "/b");
        unread.reached = RunResource.Reached.UPPER;
        unread.isRead = false;
        GivenResource gone = GivenResource.disk(7, "/dev/vdc", "/c");
        gone.reached = RunResource.Reached.UPPER;
        cycle(1, swap, gone);
        assertEquals(Set.of(7), fleet.atLimit());
        cycle(2, swap, disk, unread);
        stale = true;
        assertEquals(ResourceState.STALE, row(5).state());
        assertEquals(Set.of(5), fleet.atLimit());
        disk.reached = RunResource.Reached.NONE;
        cycle(3, swap, disk);
        assertEquals(Set.of(), fleet.atLimit());
    }

    @Test
    void earlierRunsGiveHistoryAndNoResources() {
        fleet.takeHistory(new ArchiveLine(START - 5000, Map.of(3, 10.0, 99, 1.0)));
        assertEquals(List.of(), fleet.rows(false, (key, n) -> Snapshot.Track.NONE));
        assertNull(fleet.listed(3));
        cycle(1, START, swap);
        assertEquals(START - 5000, row(3).reading().recent().from());
        assertEquals(10.0, row(3).reading().recent().values().get(0));
        assertEquals(1, fleet.rows(false, (key, n) -> Snapshot.Track.NONE).size());
    }

    @Test
    void whatOnlyTheArchiveKnowsMakesNoFleetLarge() {
        fleet.takeHistory(new ArchiveLine(START - 5000,
                IntStream.range(10, 3000).boxed().collect(Collectors.toMap(id -> id, id -> 1.0))));
        fleet.takeHistory(new ArchiveLine(START - 4000, Map.of(3, 1.0)));
        for (int number = 1; number <= 300; number++) {
            cycle(number, swap, disk);
        }
        assertEquals(301, fleet.listed(3).history().between(0, Double.MAX_VALUE).length());
        assertEquals(300, fleet.listed(5).history().between(0, Double.MAX_VALUE).length());
    }

    @Test
    void aCycleThatIsHandedOverTwiceIsOneSample() {
        cycle(1, START, swap);
        cycle(1, START, swap);
        assertEquals(1, fleet.listed(3).history().between(0, Double.MAX_VALUE).length());
        cycle(2, START + 1, swap);
        assertEquals(2, fleet.listed(3).history().between(0, Double.MAX_VALUE).length());
    }

    @Test
    void noMoreThanAThousandStayInTheListWhenTheyAreGone() {
        GivenResource[] many = new GivenResource[1500];
        for (int i = 0; i < many.length; i++) {
            many[i] = GivenResource.disk(i + 1, "/dev/vd" + i, "/" + i);
        }
        cycle(1, many);
        cycle(2, GivenResource.disk(1, "/dev/vd0", "/0"), GivenResource.disk(2, "/dev/vd1", "/1"));
        assertEquals(1002, fleet.rows(false, (key, n) -> Snapshot.Track.NONE).size());
        cycle(3, GivenResource.disk(1, "/dev/vd0", "/0"));
        assertEquals(1001, fleet.rows(false, (key, n) -> Snapshot.Track.NONE).size());
        assertEquals(ResourceState.ABSENT, row(2).state(), "the newest of those that are gone stay");
    }

    @Test
    void aNumberThatStandsForAnotherResourceTakesItsName() {
        cycle(1, disk);
        disk.instance = "/dev/vdb /mnt";
        cycle(2, disk);
        assertEquals("/dev/vdb", row(5).identity().device());
        assertEquals(Map.of(5, new TrendReader.Resource("Space", "/dev/vdb /mnt")), fleet.keys());
    }
}
