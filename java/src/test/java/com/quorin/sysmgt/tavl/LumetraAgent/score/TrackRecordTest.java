package com.quorin.sysmgt.tavl.LumetraAgent.score;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.Collections;
import java.util.List;
import org.junit.jupiter.api.Test;

class TrackRecordTest {

    private static final int HOUR = 3600;
    private static final long DAY = 24 * HOUR;

    static Episode ended(Outcome outcome, long onset, long firstEvent, long end, long announcedAtOnset,
            long announcedAtEvent) {
        return new Episode(0, onset, firstEvent, end, outcome, announcedAtOnset, announcedAtEvent, 50, 60,
                Collections.nCopies(5, Double.NaN));
    }

    private static Episode levelledOff(long end) {
        return ended(Outcome.LEVELLED_OFF, end - HOUR, 0, end, end + DAY, 0);
    }

    @Test
    void withoutAnEpisodeThereIsNothingToSayUnlessOneIsOn() {
        assertNull(TrackRecord.NONE.words(0, 14 * DAY, false));
        assertEquals("announced for the first time here", TrackRecord.NONE.words(0, 14 * DAY, true));
    }

    @Test
    void outcomesAreCounted() {
        TrackRecord known = TrackRecord.NONE;
        for (int i = 1; i <= 5; i++) {
            known = known.with(levelledOff(i * DAY));
        }
        known = known.with(ended(Outcome.FREED, 6 * DAY, 0, 6 * DAY + HOUR, 7 * DAY, 0));
        assertEquals("announced 6 times in 14 days: reached 0, freed 1, levelled off 5",
                known.words(0, 14 * DAY, false));
        assertEquals(6, known.announcements());
        assertEquals(0, known.levelledOffInARow());
        assertEquals(1, known.with(levelledOff(8 * DAY)).levelledOffInARow());
    }

    @Test
    void theErrorIsThatOfTheEventOrOfTheOnsetWhereThereWasNone() {
        TrackRecord known = TrackRecord.NONE
                .with(ended(Outcome.REACHED, 0, HOUR, 10 * HOUR, 30 * HOUR, 11 * HOUR));
        assertEquals("announced once in 20 h: reached 1, freed 0, levelled off 0; announced moment off by 1.0 h",
                known.words(0, 20 * HOUR, true));
        known = known.with(ended(Outcome.REACHED, 0, 0, 10 * HOUR, 8 * HOUR, 0));
        assertEquals(1.5, known.medianErrorHours());
        assertEquals("announced 2 times in 20 h: reached 2, freed 0, levelled off 0; "
                + "announced moment off by 1.5 h in the median", known.words(0, 20 * HOUR, true));
    }

    @Test
    void aLimitThatWasReachedEndsTheRowOfThoseThatLevelledOff() {
        TrackRecord known = TrackRecord.NONE.with(levelledOff(1)).with(levelledOff(2));
        assertEquals(2, known.levelledOffInARow());
        assertEquals(0, known.with(ended(Outcome.REACHED, 0, 0, 5, 0, 0)).levelledOffInARow());
    }

    @Test
    void errorsOfYearsDoNotFillTheMemory() {
        TrackRecord known = TrackRecord.NONE;
        for (int i = 0; i < 500; i++) {
            known = known.with(ended(Outcome.REACHED, 0, 0, 10 * HOUR, 10 * HOUR + (long) i * HOUR, 0));
        }
        assertEquals(100, known.errorsHours().size());
        assertEquals(449.5, known.medianErrorHours());
    }

    @Test
    void theMedianIsTheMiddle() {
        assertEquals(2.0, TrackRecord.median(List.of(3.0, 1.0, 2.0)));
        assertEquals(1.5, TrackRecord.median(List.of(2.0, 1.0)));
        assertTrue(Double.isNaN(TrackRecord.median(List.of())));
    }
}
