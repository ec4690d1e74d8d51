package com.quorin.sysmgt.tavl.LumetraAgent.score;

import com.fasterxml.jackson.core.JsonProcessingException;
import com.fasterxml.jackson.databind.JsonNode;
import com.fasterxml.jackson.databind.node.ArrayNode;
import com.fasterxml.jackson.databind.node.ObjectNode;
import com.quorin.sysmgt.tavl.LumetraAgent.files.EventFile;
import com.quorin.sysmgt.tavl.LumetraAgent.files.OwnFile;
import com.quorin.sysmgt.tavl.LumetraAgent.text.AsciiJson;
import java.io.BufferedReader;
import java.io.IOException;
import java.nio.channels.Channels;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Optional;

/**
 * The file in which a home keeps score: a line of JSON for each start of a run and for each episode that ended.
 * Bounded with one older generation (".1"), each line whole or not there. Not to be used by two threads at once.
 */
public final class ScoreFile {

    /** Its name in the directory of the logs. */
    public static final String NAME = "score.jsonl";

    private static final long LARGEST = 4L * 1024 * 1024;

    /**
     * What the file holds, oldest first.
     *
     * @param isThere whether there is a file
     * @param damaged lines that are neither a start nor an episode
     */
    public record Content(boolean isThere, List<Start> starts, List<History> histories, List<Scored> episodes,
            int damaged) {}

    /**
     * A run began.
     *
     * @param isResumed its rings were filled from the archive; else they were empty
     */
    public record Start(long epochSeconds, boolean isResumed) {}

    /** The archive was scored from this moment on, in seconds since the epoch. */
    public record History(long from) {}

    /** An episode that ended. The resource as the library names it. */
    public record Scored(String resource, String instance, Episode episode) {}

    private final Path file;
    private final EventFile lines;

    public ScoreFile(Path file) {
        this.file = file;
        lines = new EventFile(file, LARGEST);
        rehearse();
    }

    /**
     * Makes the line with most in it and forgets it: a class whose initialization fails for want of memory is lost for
     * as long as the process lives, and the first episode may end when memory is short.
     */
    private static void rehearse() {
        try {
            Episode any = new Episode(0, 0, 0, 0, Outcome.REACHED, 0, 0, 0, 0, List.of(0.0, Double.NaN));
            text(line(new Scored("", "", any)));
        } catch (IOException e) {
            // it will be told of a line that counts
        }
    }

    /** Everything in the file and its older generation; what cannot be read is not there. */
    public Content read() {
        Content content =
                new Content(OwnFile.exists(file), new ArrayList<>(), new ArrayList<>(), new ArrayList<>(), 0);
        int damaged = 0;
        for (Path generation : List.of(file.resolveSibling(file.getFileName() + ".1"), file)) {
            damaged += read(generation, content);
        }
        return new Content(content.isThere, List.copyOf(content.starts), List.copyOf(content.histories),
                List.copyOf(content.episodes), damaged);
    }

    /** Adds what a generation holds; returns how many lines are damaged. */
    private static int read(Path generation, Content content) {
        int damaged = 0;
        if (!OwnFile.exists(generation)) {
            return 0;
        }
        try (BufferedReader in = new BufferedReader(Channels.newReader(OwnFile.read(generation),
                StandardCharsets.ISO_8859_1))) {
            for (String line = in.readLine(); line != null; line = in.readLine()) {
                JsonNode read = parse(line);
                Optional<Start> start = start(read);
                Optional<History> history = history(read);
                Optional<Scored> episode = episode(read);
                was(read).ifPresent(was -> content.starts.removeIf(old -> old.epochSeconds() == was));
                start.ifPresent(content.starts::add);
                history.ifPresent(content.histories::add);
                episode.ifPresent(content.episodes::add);
                damaged += start.isEmpty() && history.isEmpty() && episode.isEmpty() ? 1 : 0;
            }
        } catch (IOException e) {
            damaged++;
        }
        return damaged;
    }

    private static JsonNode parse(String line) {
        try {
            return AsciiJson.MAPPER.readTree(line);
        } catch (JsonProcessingException | StackOverflowError e) {
            return AsciiJson.MAPPER.missingNode();
        }
    }

    private static Optional<Start> start(JsonNode line) {
        return line.path("type").asText().equals("start") && line.path("epochSeconds").canConvertToLong()
                ? Optional.of(new Start(line.path("epochSeconds").longValue(), line.path("resumed").asBoolean(true)))
                : Optional.empty();
    }

    /** When a start that is said anew was said to have been. */
    private static Optional<Long> was(JsonNode line) {
        return line.path("was").canConvertToLong() ? Optional.of(line.path("was").longValue()) : Optional.empty();
    }

    private static Optional<History> history(JsonNode line) {
        return line.path("type").asText().equals("history") && line.path("from").canConvertToLong()
                ? Optional.of(new History(line.path("from").longValue())) : Optional.empty();
    }

    private static Optional<Scored> episode(JsonNode line) {
        Optional<Outcome> outcome = Outcome.of(line.path("outcome").asText());
        if (!line.path("type").asText().equals("episode") || outcome.isEmpty() || !line.path("onset").canConvertToLong()
                || !line.path("end").canConvertToLong() || !line.path("resource").isTextual()) {
            return Optional.empty();
        }
        List<Double> errors = new ArrayList<>();
        for (int i = 0; i < Episode.MARKS_HOURS.size(); i++) {
            errors.add(line.path("errorsHours").path(i).asDouble(Double.NaN));
        }
        return Optional.of(new Scored(line.path("resource").textValue(), line.path("instance").asText(""),
                new Episode(0, line.path("onset").longValue(), line.path("firstEvent").asLong(),
                        line.path("end").longValue(), outcome.get(), line.path("announcedAtOnset").asLong(),
                        line.path("announcedAtEvent").asLong(), line.path("onsetValue").asDouble(),
                        line.path("highest").asDouble(), errors)));
    }

    /** Adds a line; false when that cannot be. */
    public boolean add(Start start) {
        return append(line(start));
    }

    /** Adds a line for a start that an earlier line has at a moment when the clock was wrong; false likewise. */
    boolean add(Start start, long was) {
        return append(line(start).put("was", was));
    }

    private static ObjectNode line(Start start) {
        return AsciiJson.MAPPER.createObjectNode().put("type", "start").put("epochSeconds", start.epochSeconds())
                .put("resumed", start.isResumed());
    }

    /** Adds a line; false when that cannot be. */
    public boolean add(History history) {
        return append(AsciiJson.MAPPER.createObjectNode().put("type", "history").put("from", history.from()));
    }

    /** Adds a line; false when that cannot be. */
    public boolean add(Scored scored) {
        return append(line(scored));
    }

    private static ObjectNode line(Scored scored) {
        Episode episode = scored.episode();
        ObjectNode line = AsciiJson.MAPPER.createObjectNode().put("type", "episode").put("resource", scored.resource())
                .put("instance", scored.instance())
                .put("onset", episode.onset()).put("firstEvent", episode.firstEvent())
                .put("end", episode.end()).put("outcome", episode.outcome().word())
                .put("announcedAtOnset", episode.announcedAtOnset()).put("announcedAtEvent", episode.announcedAtEvent())
                .put("onsetValue", episode.onsetValue()).put("highest", episode.highest());
        ArrayNode errors = line.putArray("errorsHours");
        episode.errorsHours().forEach(error -> errors.add(Double.isFinite(error) ? error : null));
        return line;
    }

    private boolean append(ObjectNode line) {
        try {
            return lines.append(text(line));
        } catch (IOException e) {
            return false;
        }
    }

    private static String text(ObjectNode line) throws IOException {
        return AsciiJson.MAPPER.writeValueAsString(line);
    }
}
