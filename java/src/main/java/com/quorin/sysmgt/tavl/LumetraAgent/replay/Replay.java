package com.quorin.sysmgt.tavl.LumetraAgent.replay;

import com.quorin.sysmgt.tavl.LumetraAgent.ReplayFeed;
import com.quorin.sysmgt.tavl.LumetraAgent.score.Episode;
import com.quorin.sysmgt.tavl.LumetraAgent.score.ScoreFile;
import com.quorin.sysmgt.tavl.LumetraAgent.text.LibraryBytes;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.Arrays;
import java.util.List;

/** One replay of the library's. Not to be used by two threads at once. */
final class Replay implements AutoCloseable {

    /** So many forecasts take a fraction of a second. */
    private static final long FORECASTS_A_STEP = 20_000;

    private static final int LEAST = 4;

    /** What is replayed, and how. Texts are bytes as the files have them. */
    record Request(List<byte[]> archives, byte[] declarations, byte[] scratchPad, Settings settings,
            List<ScoreFile.Start> starts, boolean withRivals, boolean withSamples) {

        Request with(Settings other) {
            return new Request(archives, declarations, scratchPad, other, starts, withRivals, false);
        }
    }

    /**
     * The settings of a run.
     *
     * @param periodMillis -1: chosen by the library
     * @param every        only each so many-th cycle of the archive is taken
     */
    record Settings(int periodMillis, int minForecastHours, int maxForecastHours, int every) {}

    /** How far a replay has come. Times are seconds since the epoch, 0 before the first cycle. */
    record Progress(long bytesRead, long bytes, long from, long to, long cycles, long forecasts, long damagedLines,
            long unknownSamples, boolean isOver) {}

    enum What {
        ONSET("onset"),
        EVENT("event"),
        CLEARED("cleared"),
        LIMIT("limit");

        private final String word;

        What(String word) {
            this.word = word;
        }

        String word() {
            return word;
        }
    }

    /** Something that a run would have told. {@code announced}: the moment of exhaustion, 0 for none. */
    record Happening(long time, int id, What what, long announced) {}

    record EpisodeOf(int id, Episode episode) {}

    /** What was passed over; line 0 is the file itself. */
    record Damage(String file, long line, String what) {}

    record Sample(int id, long time, double value, long announced) {}

    /** What one step came to. */
    record Step(Progress progress, List<Happening> happenings, List<EpisodeOf> episodes, List<Damage> damages,
            List<Sample> samples) {}

    /** One resource at the end. {@code chosen}: how often each model was, in the library's order. */
    record Tally(int id, String resource, String instance, long samples, long observedSeconds, List<Long> chosen,
            List<Long> reached, List<Episode> open) {}

    record Summary(int periodMillis, List<Tally> resources) {}

    private final int number;

    Replay(Request request) {
        number = ReplayFeed.open(bytes(request));
    }

    /** As the library's replay/replayFeed.h lays it out. */
    private static byte[] bytes(Request request) {
        int size = 64 + request.declarations().length + request.scratchPad().length + 9 * request.starts().size()
                + request.archives().stream().mapToInt(path -> Integer.BYTES + path.length).sum();
        ByteBuffer bytes = ByteBuffer.allocate(size).order(ByteOrder.LITTLE_ENDIAN);
        Settings settings = request.settings();
        bytes.putInt(ReplayFeed.VERSION).putInt(settings.periodMillis()).putInt(settings.minForecastHours())
                .putInt(settings.maxForecastHours()).putInt(settings.every());
        bytes.put((byte) (request.withRivals() ? 1 : 0)).put((byte) (request.withSamples() ? 1 : 0));
        text(bytes, request.declarations());
        text(bytes, request.scratchPad());
        bytes.putInt(request.archives().size());
        request.archives().forEach(path -> text(bytes, path));
        bytes.putInt(request.starts().size());
        request.starts().forEach(
                start -> bytes.putLong(start.epochSeconds()).put((byte) (start.isResumed() ? 1 : 0)));
        return Arrays.copyOf(bytes.array(), bytes.position());
    }

    private static void text(ByteBuffer bytes, byte[] text) {
        bytes.putInt(text.length).put(text);
    }

    Step step() {
        LibraryBytes bytes = begin(ReplayFeed.step(number, FORECASTS_A_STEP));
        Step step = new Step(progress(bytes),
                bytes.list(LEAST, "the happenings", () -> happening(bytes)),
                bytes.list(LEAST, "the episodes", () -> new EpisodeOf(bytes.number("a resource"), Episode.read(bytes))),
                bytes.list(LEAST, "the damages", () -> new Damage(bytes.text("a file"), bytes.longNumber("a line"),
                        bytes.text("a damage"))),
                bytes.list(LEAST, "the samples", () -> new Sample(bytes.number("a resource"),
                        bytes.longNumber("a time"), bytes.real("a value"), bytes.longNumber("an announced moment"))));
        bytes.end();
        return step;
    }

    private static Happening happening(LibraryBytes bytes) {
        return new Happening(bytes.longNumber("a time"), bytes.number("a resource"),
                bytes.oneOf(What.values(), "a happening"),
                bytes.longNumber("an announced moment"));
    }

    private static Progress progress(LibraryBytes bytes) {
        return new Progress(bytes.longNumber("the bytes read"), bytes.longNumber("the bytes"),
                bytes.longNumber("a time"), bytes.longNumber("a time"),
                bytes.longNumber("the cycles"), bytes.longNumber("the forecasts"),
                bytes.longNumber("the damaged lines"), bytes.longNumber("the unknown samples"),
                bytes.flag("whether it is over"));
    }

    Summary summary() {
        LibraryBytes bytes = begin(ReplayFeed.summary(number));
        Summary summary = new Summary(bytes.number("the period"),
                bytes.list(LEAST, "the resources", () -> tally(bytes)));
        bytes.end();
        return summary;
    }

    private static Tally tally(LibraryBytes bytes) {
        return new Tally(bytes.number("a resource"), bytes.text("a name"), bytes.text("an instance"),
                bytes.longNumber("the samples"), bytes.longNumber("the seconds"),
                bytes.list(Long.BYTES, "the models", () -> bytes.longNumber("a count")),
                bytes.list(Long.BYTES, "the limits", () -> bytes.longNumber("a time")),
                bytes.list(LEAST, "the open episodes", () -> Episode.read(bytes)));
    }

    private static LibraryBytes begin(byte[] answer) {
        LibraryBytes bytes = new LibraryBytes(answer, "the library's replay");
        bytes.version(ReplayFeed.VERSION);
        return bytes;
    }

    @Override
    public void close() {
        ReplayFeed.close(number);
    }
}
