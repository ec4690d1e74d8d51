package com.quorin.sysmgt.tavl.LumetraAgent.tell;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;

import com.quorin.sysmgt.tavl.LumetraAgent.events.Event;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.GivenResource;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Publication;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.RunResource;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.RunState;
import com.quorin.sysmgt.tavl.LumetraAgent.score.EndedEpisode;
import com.quorin.sysmgt.tavl.LumetraAgent.score.Episode;
import com.quorin.sysmgt.tavl.LumetraAgent.score.Outcome;
import java.time.Duration;
import java.time.Instant;
import java.util.ArrayList;
import java.util.List;
import java.util.Optional;
import org.junit.jupiter.api.Test;

class NewsDeskTest {

    private static final long HOUR = 3600;
    private static final String DISK = "Space [/dev/a /data]";

    private final List<News> news = new ArrayList<>();
    private final List<EndedEpisode> ended = new ArrayList<>();
    private NewsDesk desk = desk(0);
    private long cycles;
    private long now = GivenResource.START;
    private long clockSteps;

    private NewsDesk desk(int remindHours) {
        return new NewsDesk(news::add, (name, instance) -> "record of " + name, Duration.ofHours(remindHours),
                known -> Math.max(known, cycles));
    }

    private static GivenResource disk(long onset) {
        GivenResource disk = GivenResource.disk(7, "/dev/a", "/data").forecast(onset == 0 ? -1 : 2, 60);
        disk.episodeSince = onset;
        return disk;
    }

    private static GivenResource full() {
        GivenResource disk = disk(0);
        disk.value = 100;
        disk.reached = RunResource.Reached.UPPER;
        return disk;
    }

    private Event.Moment at() {
        return Event.Moment.of(Instant.ofEpochSecond(now));
    }

    private void exhaustion() {
        desk.take(new Event.Exhaustion(at(), new Event.Subject("Space", "/dev/a /data"), 7200, "2 h", List.of(), null,
                Event.Background.NONE));
    }

    private void limit() {
        desk.take(new Event.LimitReached(at(), Event.Type.UPPER_TOLERANCE, new Event.Subject("Space", "/dev/a /data"),
                100));
    }

    private void failure(String message) {
        desk.take(new Event.Failure(at(), message));
    }

    private void end(Outcome outcome, long onset, long firstEvent) {
        ended.add(new EndedEpisode(ended.size() + 1, 7, "Space", "/dev/a /data",
                new Episode(0, onset, firstEvent, now, outcome, 0, 0, 0, 0, List.of())));
    }

    /** Publishes a cycle; what is told then. */
    private List<String> cycle(GivenResource... resources) {
        RunState state = GivenResource.state(now, resources);
        RunState.Cycle cycle = new RunState.Cycle(now, clockSteps, 0, 0, 0, 0);
        return publish(Optional.of(new RunState(cycle, state.archive(), state.settings(), false,
                state.leftOut(), state.resources(), List.copyOf(ended))));
    }

    private List<String> publish(Optional<RunState> state) {
        news.clear();
        cycles++;
        desk.take(new Publication(cycles, cycles, state));
        now += 10;
        return news.stream().map(News::sentence).toList();
    }

    @Test
    void ofTheEventsOfAnEpisodeTheFirstIsTold() {
        assertEquals(List.of(), cycle(disk(0)));
        exhaustion();
        assertEquals(List.of(), news, "before the publication of the cycle");
        assertEquals(List.of(DISK + " will be exhausted in 2 h"), cycle(disk(5)));
        assertEquals(7, news.get(0).id());
        exhaustion();
        assertEquals(List.of(), cycle(disk(5)));
        assertEquals(List.of(), cycle(disk(5)));
        exhaustion();
        assertEquals(List.of(), cycle(disk(5)));
    }

    @Test
    void aStepOfTheClockMakesNoEpisodeNewAndRemindsOfNone() {
        desk = desk(24);
        exhaustion();
        cycle(disk(500_000));
        for (long step : new long[] {30 * HOUR, -40 * HOUR}) {
            clockSteps += step;
            now += step;
            exhaustion();
            assertEquals(List.of(), cycle(disk(500_000 + clockSteps)));
            exhaustion();
            assertEquals(List.of(), cycle(disk(500_000 + clockSteps)));
        }
        now += 24 * HOUR;
        exhaustion();
        assertEquals(1, cycle(disk(500_000 + clockSteps)).size(), "the reminder of a day that went by");
    }

    @Test
    void anEpisodeThatWasToldIsToldToEndAndTheNextIsToldAnew() {
        exhaustion();
        cycle(disk(5));
        end(Outcome.FREED, 5, now - 10);
        assertEquals(List.of(DISK + " no longer runs out: it has been freed"), cycle(disk(0)));
        assertEquals("ended", news.get(0).line().type());
        assertEquals("record of Space", news.get(0).line().trackRecord());
        assertEquals(now - 10, news.get(0).line().epochSeconds());
        assertEquals(5, news.get(0).line().episodeSince());
        assertEquals(List.of(), cycle(disk(0)));
        exhaustion();
        assertEquals(1, cycle(disk(50)).size());
        end(Outcome.LEVELLED_OFF, 50, now - 10);
        assertEquals(List.of(DISK + " no longer runs out: it has levelled off"), cycle(disk(0)));
    }

    @Test
    void anEpisodeThatBeginsBeforeTheEndOfTheLastIsSeenIsNotMissed() {
        exhaustion();
        cycle(disk(5));
        exhaustion();
        end(Outcome.LEVELLED_OFF, 5, 1);
        assertEquals(List.of(DISK + " no longer runs out: it has levelled off",
                DISK + " will be exhausted in 2 h"), cycle(disk(50)));
    }

    @Test
    void anEpisodeAfterOneWhoseEndWasNeverSeenIsToldAnew() {
        exhaustion();
        cycle(disk(5));
        exhaustion();
        assertEquals(1, cycle(disk(50)).size());
    }

    @Test
    void anEpisodeOfWhichNobodyHeardEndsWithoutAWord() {
        cycle(disk(5));
        end(Outcome.FREED, 5, 0);
        assertEquals(List.of(), cycle(disk(0)));
    }

    @Test
    void anEpisodeThatIsOverBeforeAnyPublicationIsToldWhole() {
        exhaustion();
        now += 10;
        end(Outcome.FREED, now - 100, now - 10);
        assertEquals(List.of(DISK + " will be exhausted in 2 h", DISK + " no longer runs out: it has been freed"),
                cycle(disk(0)));
    }

    @Test
    void whatIsAtItsLimitIsNotAnnouncedAnyMore() {
        exhaustion();
        cycle(disk(5));
        exhaustion();
        limit();
        end(Outcome.REACHED, 5, now - 10);
        assertEquals(List.of(DISK + " has run out, as announced", DISK + " has reached its limit of 100.00 %"),
                cycle(full()));
        exhaustion();
        assertEquals(List.of(), cycle(full()));
    }

    @Test
    void aReminderComesWhenItsTimeIsOverAndAnother() {
        desk = desk(2);
        exhaustion();
        assertEquals(1, cycle(disk(5)).size());
        now += 2 * HOUR - 11;
        exhaustion();
        assertEquals(List.of(), cycle(disk(5)));
        exhaustion();
        assertEquals(List.of("reminder: " + DISK + " will be exhausted in 2 h"), cycle(disk(5)));
        assertEquals(true, news.get(0).isReminder());
        exhaustion();
        assertEquals(List.of(), cycle(disk(5)));
        now += 2 * HOUR;
        assertEquals(List.of(), cycle(disk(5)), "nothing is announced in this cycle");
        exhaustion();
        assertEquals(1, cycle(disk(5)).size());
        end(Outcome.FREED, 5, 1);
        cycle(disk(0));
        now += 2 * HOUR;
        assertEquals(List.of(), cycle(disk(0)));
    }

    @Test
    void withoutAReminderThereIsNone() {
        exhaustion();
        cycle(disk(5));
        now += 10_000 * HOUR;
        exhaustion();
        assertEquals(List.of(), cycle(disk(5)));
    }

    @Test
    void aLimitIsToldWhenItIsReachedAndAgainOnceItWasLeft() {
        cycle(disk(0));
        limit();
        assertEquals(List.of(DISK + " has reached its limit of 100.00 %"), cycle(full()));
        limit();
        assertEquals(List.of(), cycle(full()));
        assertEquals(List.of(), cycle(disk(0)));
        limit();
        assertEquals(1, cycle(full()).size());
    }

    @Test
    void aLimitOfWhichTheAgentSendsNoEventIsToldAllTheSame() {
        cycle(disk(0));
        assertEquals(List.of(DISK + " has reached its limit of 100.00 %"), cycle(full()));
        assertEquals("upperTolerance", news.get(0).line().type());
        assertEquals(List.of(), cycle(full()));
        cycle(disk(0));
        assertEquals(1, cycle(full()).size());
    }

    @Test
    void aDiskThatComesLaterAndIsFullIsTold() {
        assertEquals(List.of(), cycle(GivenResource.swap(1)));
        assertEquals(List.of(DISK + " has reached its limit of 100.00 %"), cycle(GivenResource.swap(1), full()));
        assertEquals(List.of(), cycle(GivenResource.swap(1), full()));
        assertEquals(List.of(), cycle(GivenResource.swap(1)));
        assertEquals(List.of(DISK + " has reached its limit of 100.00 %"), cycle(GivenResource.swap(1), full()));
    }

    @Test
    void whatIsFoundAtItsLimitIsToldIfTheAgentTellsIt() {
        assertEquals(List.of(), cycle(full()));
        limit();
        assertEquals(List.of(), cycle(full()));
        desk = desk(0);
        limit();
        assertEquals(1, cycle(full()).size());
    }

    @Test
    void whatIsAtItsLimitInTheFirstCycleThatIsSeenWasFoundThere() {
        desk.take(new Publication(1, 0, Optional.of(GivenResource.state(now, disk(0)))));
        cycles = 6; // those before were passed over
        assertEquals(List.of(), cycle(full()));
        cycle(disk(0));
        assertEquals(List.of(DISK + " has reached its limit of 100.00 %"), cycle(full()));
    }

    @Test
    void whatIsAtItsLimitInAFirstCycleThatIsHandedOverAgainWasFoundThere() {
        List<String> told = new ArrayList<>();
        desk = new NewsDesk(one -> {
            told.add(one.sentence());
            if (told.size() == 1) {
                throw new OutOfMemoryError("no");
            }
        }, (name, instance) -> null, Duration.ZERO, known -> cycles);
        failure("a");
        Publication first = new Publication(1, 1, Optional.of(GivenResource.state(now, full())));
        assertThrows(OutOfMemoryError.class, () -> desk.take(first));
        desk.take(first);
        assertEquals(List.of("a", "a"), told);
    }

    @Test
    void theLowerLimitIsNamedWhereItIsTheOne() {
        cycle(disk(0));
        GivenResource low = full();
        low.lower = 5;
        low.reached = RunResource.Reached.LOWER;
        assertEquals(List.of(DISK + " has reached its limit of 5.00 %"), cycle(low));
    }

    @Test
    void aFailureIsToldWhenItWasNotThereInTheCycleBefore() {
        failure("a");
        failure("a");
        failure("b");
        assertEquals(List.of("a", "b"), cycle());
        failure("b");
        failure("c");
        assertEquals(List.of("c"), cycle());
        failure("a");
        assertEquals(List.of("a"), cycle());
        assertEquals(List.of(), cycle());
        failure("a");
        assertEquals(List.of("a"), cycle());
    }

    @Test
    void anEventOfTheNextCycleIsNotTakenForOneOfThisOne() {
        cycle();
        failure("a");
        cycles++; // published, and not yet looked at
        failure("a");
        cycles--;
        assertEquals(List.of("a"), cycle());
        assertEquals(List.of(), cycle());
        failure("a");
        assertEquals(List.of(), cycle(), "it was there in each cycle");
        cycle();
        cycles++;
        failure("b");
        cycles--;
        assertEquals(List.of(), cycle());
        assertEquals(List.of("b"), cycle());
    }

    @Test
    void whatHappensAtTheEndOfTheRunIsToldWithoutAState() {
        failure("the end");
        exhaustion();
        limit();
        assertEquals(List.of(DISK + " will be exhausted in 2 h", DISK + " has reached its limit of 100.00 %",
                "the end"), publish(Optional.empty()));
    }

    @Test
    void whatIsNeverPublishedIsToldAtTheEnd() {
        failure("it cannot start");
        desk.close();
        assertEquals(List.of("it cannot start"), news.stream().map(News::sentence).toList());
    }

    @Test
    void whatWasAnnouncedIsNotToldAgainAtTheEndForWantOfAPublication() {
        exhaustion();
        assertEquals(1, cycle(disk(now)).size());
        news.clear();
        exhaustion();
        desk.close();
        assertEquals(List.of(), news);
    }

    @Test
    void whatIsAtItsLimitDoesNotRunOutAtTheEndForWantOfAPublication() {
        cycle(full());
        news.clear();
        exhaustion();
        desk.close();
        assertEquals(List.of(), news);
    }

    @Test
    void aPublicationThatIsHandedOverAgainTellsOnlyWhatWasNotTold() {
        List<String> told = new ArrayList<>();
        boolean[] fails = {true};
        desk = new NewsDesk(one -> {
            if (fails[0] && one.sentence().equals("b")) {
                throw new OutOfMemoryError("no");
            }
            told.add(one.sentence());
        }, (name, instance) -> null, Duration.ZERO, known -> cycles);
        cycle(disk(0));
        exhaustion();
        limit();
        failure("a");
        failure("b");
        Publication publication = new Publication(5, 5, Optional.of(GivenResource.state(now, disk(5))));
        assertThrows(OutOfMemoryError.class, () -> desk.take(publication));
        fails[0] = false;
        desk.take(publication);
        desk.take(publication);
        assertEquals(List.of(DISK + " will be exhausted in 2 h", DISK + " has reached its limit of 100.00 %", "a", "b"),
                told);
    }

    @Test
    void aResourceThatIsGoneIsForgotten() {
        exhaustion();
        cycle(disk(5));
        assertEquals(List.of(), cycle());
        exhaustion();
        assertEquals(1, cycle(disk(5)).size());
    }

    @Test
    void aResourceWithoutAnInstanceIsTheSameInEventsAndPublications() {
        GivenResource swap = GivenResource.single(3, GivenResource.SWAP).forecast(1, 60);
        swap.instance = "";
        swap.episodeSince = 5;
        desk.take(new Event.Exhaustion(at(), new Event.Subject(GivenResource.SWAP, "Null"), 7200, "2 h", List.of(),
                null, Event.Background.NONE));
        assertEquals(1, cycle(swap).size());
        assertEquals(3, news.get(0).id());
        ended.add(new EndedEpisode(1, 3, GivenResource.SWAP, "",
                new Episode(0, 5, 6, now, Outcome.FREED, 0, 0, 0, 0, List.of())));
        assertEquals(List.of(GivenResource.SWAP + " no longer runs out: it has been freed"), cycle(swap));
    }

    @Test
    void aFloodOfDifferentFailuresIsBounded() {
        for (int i = 0; i < 5000; i++) {
            failure("failure " + i);
        }
        assertEquals(1000, cycle().size());
        failure("after it");
        assertEquals(List.of("after it"), cycle());
    }
}
