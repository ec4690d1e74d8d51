package com.quorin.sysmgt.tavl.LumetraAgent.score;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorin.sysmgt.tavl.LumetraAgent.Mutations;
import com.quorin.sysmgt.tavl.LumetraAgent.TrendReader;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Set;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class ScoreBookTest {

    @TempDir
    private Path directory;

    private final List<String> complaints = new ArrayList<>();

    private Path file() {
        return directory.resolve(ScoreFile.NAME);
    }

    private ScoreBook book() {
        return new ScoreBook(new ScoreFile(file()), complaints::add);
    }

    private static EndedEpisode ended(long number, Outcome outcome) {
        return new EndedEpisode(number, 3, "Space", "/dev/\u00c3\u00a9 /a",
                new Episode(0, 100, 200, 300, outcome, 400, 500, 50.5, 60.25,
                        List.of(1.0, Double.NaN, -0.5, 0.0, 2.0)));
    }

    @Test
    void whatIsTakenUpSurvivesARestart() {
        ScoreBook first = book();
        assertTrue(first.isNew());
        first.takeCycle(new ScoreFile.Start(50, true), 0);
        first.take(List.of(ended(1, Outcome.REACHED), ended(2, Outcome.FREED)));
        first.take(List.of(ended(2, Outcome.FREED), ended(3, Outcome.LEVELLED_OFF)));
        ScoreBook second = book();
        assertFalse(second.isNew());
        assertEquals(first.of("Space", "/dev/\u00e9 /a"), second.of("Space", "/dev/\u00e9 /a"));
        assertEquals(3, second.of("Space", "/dev/\u00e9 /a").announcements());
        assertEquals(50, second.since(1000));
        assertEquals(List.of(new ScoreFile.Start(50, true)), new ScoreFile(file()).read().starts());
        assertEquals(List.of(), complaints);
    }

    @Test
    void anEpisodeIsReadAsItWasWritten() {
        book().take(List.of(ended(1, Outcome.REACHED)));
        ScoreFile.Scored read = new ScoreFile(file()).read().episodes().get(0);
        assertEquals(new ScoreFile.Scored("Space", "/dev/\u00e9 /a", ended(1, Outcome.REACHED).episode()), read);
    }

    @Test
    void aLineIsAsItIsDocumented() throws IOException {
        ScoreFile score = new ScoreFile(file());
        score.add(new ScoreFile.Start(50, false));
        score.add(new ScoreFile.History(7));
        score.add(new ScoreFile.Scored("Space", "/dev/a /a", ended(1, Outcome.LEVELLED_OFF).episode()));
        assertEquals(List.of("{\"type\":\"start\",\"epochSeconds\":50,\"resumed\":false}",
                "{\"type\":\"history\",\"from\":7}",
                "{\"type\":\"episode\",\"resource\":\"Space\",\"instance\":\"/dev/a /a\",\"onset\":100,"
                        + "\"firstEvent\":200,\"end\":300,\"outcome\":\"levelledOff\","
                        + "\"announcedAtOnset\":400,\"announcedAtEvent\":500,"
                        + "\"onsetValue\":50.5,\"highest\":60.25,\"errorsHours\":[1.0,null,-0.5,0.0,2.0]}"),
                Files.readAllLines(file()));
    }

    @Test
    void aRunBeginsOnce() throws IOException {
        ScoreBook score = book();
        score.takeCycle(new ScoreFile.Start(50, true), 0);
        score.takeCycle(new ScoreFile.Start(60, true), 0);
        score.takeCycle(new ScoreFile.Start(49, true), 0); // less than a step
        assertEquals(1, Files.readAllLines(file()).size());
    }

    @Test
    void aStartByAClockThatWasWrongIsMovedWithIt() {
        long day = 86_400;
        ScoreBook score = book();
        score.takeCycle(new ScoreFile.Start(1000, true), 0);
        score.takeCycle(new ScoreFile.Start(1010, true), 0);
        score.takeCycle(new ScoreFile.Start(1020 + 800 * day, true), 800 * day);
        assertEquals(1000 + 800 * day, score.since(900 * day));
        assertEquals(1000 + 800 * day, book().since(900 * day));
        score.takeCycle(new ScoreFile.Start(1030 + 801 * day, true), 801 * day);
        assertEquals(1000 + 800 * day, score.since(900 * day), "a machine that slept was there before");
        assertEquals(List.of(new ScoreFile.Start(1000 + 800 * day, true)), new ScoreFile(file()).read().starts());
    }

    @Test
    void aStartByAClockThatWasAheadIsMovedBackAndNoOtherIs() {
        ScoreBook first = book();
        first.takeCycle(new ScoreFile.Start(5000, true), 0);
        first.takeCycle(new ScoreFile.Start(5010, true), 0);
        ScoreBook second = book();
        second.takeCycle(new ScoreFile.Start(9000, false), 70);
        second.takeCycle(new ScoreFile.Start(9010, false), 70);
        second.takeCycle(new ScoreFile.Start(3020, false), -5930);
        assertEquals(3000, second.since(10_000));
        assertEquals(List.of(new ScoreFile.Start(5000, true), new ScoreFile.Start(3000, false)),
                new ScoreFile(file()).read().starts());
        assertEquals(3000, book().since(10_000));
    }

    @Test
    void damageIsToldAndPassedOver() throws IOException {
        book().take(List.of(ended(1, Outcome.FREED)));
        Files.writeString(file(), "rubbish\n[]\n{\"type\":\"episode\"}\n" + Files.readString(file())
                + "{\"type\":\"start\",\"epochSeconds\":7}\n{\"type\":\"sta");
        ScoreBook score = book();
        assertEquals(List.of("The score of earlier announcements is damaged: 4 lines were passed over."), complaints);
        assertEquals(1, score.of("Space", "/dev/\u00e9 /a").freed());
        assertEquals(7, score.since(1000));
    }

    @Test
    void aLastLineThatADeathToreIsToldAndTakesNoOtherWithIt() throws IOException {
        ScoreBook first = book();
        first.takeCycle(new ScoreFile.Start(50, true), 0);
        first.take(List.of(ended(1, Outcome.REACHED)));
        String whole = Files.readString(file());
        first.take(List.of(ended(2, Outcome.FREED)));
        String line = Files.readString(file()).substring(whole.length());
        for (int length = 1; length < line.length() - 1; length++) {
            Files.writeString(file(), whole + line.substring(0, length));
            complaints.clear();
            ScoreBook second = book();
            assertEquals(List.of("The score of earlier announcements is damaged: 1 line was passed over."), complaints);
            assertEquals(1, second.of("Space", "/dev/\u00e9 /a").announcements());
            second.takeCycle(new ScoreFile.Start(60, true), 0);
            second.take(List.of(ended(1, Outcome.FREED)));
            ScoreFile.Content content = new ScoreFile(file()).read();
            assertEquals(List.of(new ScoreFile.Start(50, true), new ScoreFile.Start(60, true)), content.starts());
            assertEquals(2, content.episodes().size());
            assertEquals(1, content.damaged());
        }
    }

    @Test
    void whateverTheLinesEachIsReadOrCountedAsDamage() throws IOException {
        ScoreFile score = new ScoreFile(file());
        score.add(new ScoreFile.Start(50, false));
        score.add(new ScoreFile.History(7));
        score.add(new ScoreFile.Scored("Space", "/dev/a /a", ended(1, Outcome.LEVELLED_OFF).episode()));
        Mutations mutations = Mutations.ofTexts(20261122, List.of(Files.readString(file())), "1e999", "-0.5", "null",
                "[[[[", "{\"", "\"", "9".repeat(40), "true", "\\u0000", "\\ud800", "\n", "\r", "NaN");
        int episodes = 0;
        for (int i = Mutations.often(300); i > 0; i--) {
            String text = mutations.nextText();
            Files.writeString(file(), text, StandardCharsets.ISO_8859_1);
            ScoreFile.Content content = score.read();
            assertEquals(text.lines().count(), content.starts().size() + content.histories().size()
                    + content.episodes().size() + content.damaged(), text);
            episodes += content.episodes().size();
            book().takeCycle(new ScoreFile.Start(60, true), 0);
            assertTrue(score.read().starts().contains(new ScoreFile.Start(60, true)), text);
        }
        assertTrue(episodes > 30, "so few were right: " + episodes);
    }

    @Test
    void aFileThatIsGoneIsBegunAnewAndOneThatCannotBeWrittenIsToldOnce() {
        ScoreBook score = new ScoreBook(new ScoreFile(directory.resolve("none/score.jsonl")), complaints::add);
        assertTrue(score.isNew());
        score.take(List.of(ended(1, Outcome.FREED), ended(2, Outcome.FREED)));
        assertEquals(List.of("The score of announcements cannot be written for now; it is kept in memory."),
                complaints);
        assertEquals(2, score.of("Space", "/dev/\u00e9 /a").freed());
    }

    @Test
    void whatWasBeforeScoreWasKeptCountsFromItsBeginning() {
        ScoreBook score = book();
        score.takeCycle(new ScoreFile.Start(5000, true), 0);
        score.add(new ScoreFile.Scored("Swap", "", ended(1, Outcome.REACHED).episode()));
        score.scoredFrom(20);
        assertEquals(20, score.since(9000));
        assertEquals(20, book().since(9000));
        assertEquals(1, book().of("Swap", "").reached());
    }

    @Test
    void ofVeryManyThatAreGoneTheNewestKeepTheirRecordsAndWhatIsThereKeepsItsOwn() {
        ScoreBook score = new ScoreBook(new ScoreFile(directory.resolve("none/score.jsonl")), complaints::add);
        for (int i = 0; i < ScoreBook.MOST_GONE + 5; i++) {
            score.add(new ScoreFile.Scored("Space", "/dev/" + i, new Episode(0, 100, 200, 300 + i, Outcome.FREED,
                    400, 500, 50.5, 60.25, List.of())));
        }
        score.forgetLongGone(() -> Set.of(new TrendReader.Resource("Space", "/dev/1")));
        assertEquals(0, score.of("Space", "/dev/0").announcements());
        assertEquals(1, score.of("Space", "/dev/1").announcements(), "it is there");
        assertEquals(0, score.of("Space", "/dev/4").announcements());
        assertEquals(1, score.of("Space", "/dev/5").announcements());
        score.add(new ScoreFile.Scored("Space", "/dev/5", ended(1, Outcome.FREED).episode()));
        assertEquals(2, score.of("Space", "/dev/5").announcements());
    }

    @Test
    void nothingIsKnownOfOthersAndScoreBeginsNow() {
        assertEquals(TrackRecord.NONE, book().of("Swap", "x"));
        assertEquals(77, book().since(77));
    }
}
