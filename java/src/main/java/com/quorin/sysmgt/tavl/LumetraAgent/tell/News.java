package com.quorin.sysmgt.tavl.LumetraAgent.tell;

import com.quorin.sysmgt.tavl.LumetraAgent.events.Event;
import com.quorin.sysmgt.tavl.LumetraAgent.events.EventLine;
import com.quorin.sysmgt.tavl.LumetraAgent.events.EventWords;
import com.quorin.sysmgt.tavl.LumetraAgent.score.Episode;
import com.quorin.sysmgt.tavl.LumetraAgent.score.Outcome;
import java.time.Instant;
import java.util.List;

/**
 * Something that is worth telling somebody who does not look.
 *
 * @param line       its members; of the type "ended" where an episode ended
 * @param outcome    how an episode ended; null for anything else
 * @param isReminder whether it was told before
 * @param sentence   what happened, without control characters
 * @param timeToGo   how far away the exhaustion is, for people; empty where none is ahead
 * @param culprits   the largest users, for people; empty where none are known
 * @param id         the number of the resource; null where it is about none, or about one that is gone
 */
record News(EventLine line, Outcome outcome, boolean isReminder, String sentence, String timeToGo, String culprits,
        Integer id) {

    private static final String ENDED = "ended";

    static News of(Event event, Integer id) {
        return of(event, false, id);
    }

    /** Of an exhaustion that was told before. */
    static News reminder(Event.Exhaustion event, Integer id) {
        return of(event, true, id);
    }

    private static News of(Event event, boolean isReminder, Integer id) {
        String sentence = (isReminder ? "reminder: " : "") + EventWords.sentence(event);
        return event instanceof Event.Exhaustion e
                ? new News(EventLine.of(e), null, isReminder, sentence, EventWords.timeToGo(e),
                        EventWords.culprits(e), id)
                : new News(EventLine.of(event), null, isReminder, sentence, "", "", id);
    }

    /**
     * Of the end of an episode that was told.
     *
     * @param trackRecord what came of all announcements so far, in words; null when there is nothing to say
     */
    static News end(Event.Subject subject, Episode episode, String trackRecord, Integer id) {
        Event.Moment at = Event.Moment.of(Instant.ofEpochSecond(episode.end()));
        EventLine line = new EventLine(at.text(), at.epochSeconds(), ENDED, subject.resource(), subject.instance(),
                null, null, null, List.of(), null, trackRecord, episode.onset(), null);
        String what = switch (episode.outcome()) {
            case REACHED -> " has run out, as announced";
            case FREED -> " no longer runs out: it has been freed";
            case LEVELLED_OFF -> " no longer runs out: it has levelled off";
            case OPEN -> throw new IllegalArgumentException("an episode that is open has not ended");
        };
        return new News(line, episode.outcome(), false, EventWords.resource(subject) + what, "", "", id);
    }
}
