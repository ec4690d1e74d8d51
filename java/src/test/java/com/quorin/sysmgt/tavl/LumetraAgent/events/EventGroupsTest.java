package com.quorin.sysmgt.tavl.LumetraAgent.events;

import static org.junit.jupiter.api.Assertions.assertEquals;

import java.util.List;
import org.junit.jupiter.api.Test;

class EventGroupsTest {

    private static final int HOUR = 3600;

    private final EventGroups groups = new EventGroups(3);

    private void forecast(long at, String instance, long episode) {
        groups.add(new Event.Exhaustion(new Event.Moment("t" + at, at), new Event.Subject("Space", instance), 60.0,
                "soon", List.of(), null, new Event.Background(null, episode)));
    }

    private void limit(long at, Event.Type type, String instance) {
        groups.add(new Event.LimitReached(new Event.Moment("t" + at, at), type, new Event.Subject("Space", instance),
                100.0));
    }

    private void failure(long at, String message) {
        groups.add(new Event.Failure(new Event.Moment("t" + at, at), message));
    }

    /** Each group as "newest/times/since". */
    private List<String> shown() {
        return groups.newestFirst().stream()
                .map(g -> g.newest().at().epochSeconds() + "/" + g.times() + "/" + g.since()).toList();
    }

    @Test
    void anEpisodeIsOneGroupHoweverLongTheCyclesAre() {
        forecast(1000, "/a", 900);
        forecast(1000 + 5 * HOUR, "/a", 900);
        forecast(1000 + 10 * HOUR, "/a", 900);
        assertEquals(List.of(1000 + 10 * HOUR + "/3/1000"), shown());
    }

    @Test
    void theNextEpisodeIsAnotherGroupHoweverSoonItComes() {
        forecast(1000, "/a", 900);
        forecast(1010, "/a", 1005);
        forecast(1020, "/a", 1005);
        assertEquals(List.of("1020/2/1010", "1000/1/1000"), shown());
    }

    @Test
    void anEventWhoseEpisodeIsNotKnownYetMixesNoEpisodes() {
        forecast(1000, "/a", 900);
        forecast(1010, "/a", 0);
        forecast(1020, "/a", 1005);
        forecast(1030, "/a", 1005);
        assertEquals(List.of("1030/2/1020", "1010/2/1000"), shown());
        forecast(1040, "/b", 0);
        forecast(1060, "/b", 1050);
        assertEquals(List.of("1060/1/1060", "1040/1/1040", "1030/2/1020"), shown());
    }

    @Test
    void withoutAnEpisodeALongSilenceBeginsAnew() {
        forecast(1000, "/a", 0);
        forecast(1000 + HOUR, "/a", 950);
        forecast(1001 + 2 * HOUR, "/a", 0);
        assertEquals(List.of(1001 + 2 * HOUR + "/1/" + (1001 + 2 * HOUR), 1000 + HOUR + "/2/1000"), shown());
        limit(100_000, Event.Type.UPPER_TOLERANCE, "/a");
        limit(100_001, Event.Type.UPPER_TOLERANCE, "/a");
        assertEquals("100001/2/100000", shown().get(0));
    }

    @Test
    void onlyWhatSaysTheSameIsGathered() {
        forecast(1, "/a", 0);
        forecast(2, "/b", 0);
        limit(3, Event.Type.UPPER_TOLERANCE, "/a");
        assertEquals(List.of("3/1/3", "2/1/2", "1/1/1"), shown());
        limit(4, Event.Type.INNER_TOLERANCE, "/a");
        failure(5, "one");
        failure(6, "two");
        assertEquals(List.of("6/1/6", "5/1/5", "4/1/4"), shown());
        failure(7, null);
        failure(8, null);
        assertEquals("8/2/7", shown().get(0));
    }

    @Test
    void absentAndWrittenAbsenceOfAnInstanceAreTheSame() {
        forecast(1, null, 0);
        forecast(2, "Null", 0);
        assertEquals(List.of("2/2/1"), shown());
    }

    @Test
    void theEldestGivesWayAndBeginsAnewLater() {
        forecast(1, "/a", 0);
        forecast(2, "/b", 0);
        forecast(3, "/c", 0);
        forecast(4, "/a", 0);
        forecast(5, "/d", 0);
        assertEquals(List.of("5/1/5", "4/2/1", "3/1/3"), shown());
        forecast(6, "/b", 0);
        assertEquals(List.of("6/1/6", "5/1/5", "4/2/1"), shown());
    }
}
