package com.quorin.sysmgt.tavl.LumetraAgent.events;

import com.fasterxml.jackson.core.JsonProcessingException;
import com.fasterxml.jackson.databind.JsonNode;
import com.fasterxml.jackson.databind.node.ObjectNode;
import com.quorin.sysmgt.tavl.LumetraAgent.text.FileText;
import java.io.IOException;
import java.nio.channels.FileChannel;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Deque;
import java.util.Iterator;
import java.util.List;
import java.util.Set;
import java.util.function.Consumer;
import java.util.function.Predicate;

/**
 * The newest events, those of earlier runs included. Events are never changed once they are here.
 *
 * <p>All methods may be called from any thread.
 */
public final class EventHistory implements Consumer<JsonNode> {

    /** So many events are kept. */
    static final int MOST = 1000;

    private static final int LONGEST_TAIL = 1024 * 1024;
    private static final Set<String> TYPES =
            Set.of("exhaustion", "upperTolerance", "innerTolerance", AgentEvents.FATAL);
    private static final List<String> TEXTS =
            List.of("resource", "instance", "timeToExhaustion", "culpritText", "message");
    private static final List<String> NUMBERS = List.of("secondsToExhaustion", "limit");

    private final Deque<JsonNode> newestFirst = new ArrayDeque<>();
    private final MetricsEvents counts = new MetricsEvents();

    /** Creates a history without events. */
    public EventHistory() {
        // the deque is there
    }

    /**
     * The events that a file of events and its older generation end with.
     *
     * @param file the file of events; what cannot be read yields no events
     * @return the history
     */
    public static EventHistory of(Path file) {
        EventHistory history = new EventHistory();
        List<String> lines = tail(file, LONGEST_TAIL);
        int rest = LONGEST_TAIL - lines.stream().mapToInt(line -> line.length() + 1).sum();
        if (lines.size() < MOST && rest > 0) {
            tail(file.resolveSibling(file.getFileName() + ".1"), rest).forEach(history::acceptLine);
        }
        lines.forEach(history::acceptLine);
        return history;
    }

    private void acceptLine(String line) {
        try {
            if (AgentEvents.mapper().readTree(line) instanceof ObjectNode event && complete(event)) {
                keep(event);
            }
        } catch (JsonProcessingException | StackOverflowError e) {
            // a line that is torn or foreign is no event
        }
    }

    /** Gives an event of an older version the members that it lacks; false for what is no event. */
    private static boolean complete(ObjectNode event) {
        if (!event.path("time").isTextual() || !event.path("epochSeconds").isIntegralNumber()
                || !TYPES.contains(event.path("type").asText())) {
            return false;
        }
        TEXTS.stream().filter(n -> !event.path(n).isTextual()).forEach(event::putNull);
        NUMBERS.stream().filter(n -> !event.path(n).isNumber()).forEach(event::putNull);
        if (!event.path("culprits").isArray()) {
            event.putArray("culprits");
        }
        for (Iterator<JsonNode> all = event.path("culprits").elements(); all.hasNext(); ) {
            JsonNode one = all.next();
            if (!one.path("name").isTextual() || !one.path("pid").isIntegralNumber()
                    || !one.path("value").isIntegralNumber()) {
                all.remove();
            }
        }
        return true;
    }

    /**
     * Takes up an event that has just happened.
     *
     * @param event the event; not changed from now on
     */
    @Override
    public void accept(JsonNode event) {
        counts.add(event);
        keep(event);
    }

    /**
     * How many events were taken up, those of earlier runs not included.
     *
     * @return the counts
     */
    public MetricsEvents counts() {
        return counts;
    }

    private void keep(JsonNode event) {
        synchronized (newestFirst) {
            newestFirst.addFirst(event);
            if (newestFirst.size() > MOST) {
                newestFirst.removeLast();
            }
        }
    }

    /**
     * The newest events.
     *
     * @param limit how many at most
     * @return the events, newest first
     */
    public List<JsonNode> newest(int limit) {
        return newest(limit, event -> true);
    }

    /**
     * The newest events of one resource.
     *
     * @param name     its display name
     * @param instance its instance
     * @param limit    how many at most
     * @return the events, newest first
     */
    public List<JsonNode> newestOf(String name, String instance, int limit) {
        return newest(limit, event -> name.equals(event.path("resource").textValue())
                && isInstance(event.path("instance"), instance));
    }

    private static boolean isInstance(JsonNode told, String instance) {
        return told.isTextual() ? told.textValue().equals(instance)
                : instance.isEmpty() || instance.equals(AgentEvents.NO_INSTANCE);
    }

    private List<JsonNode> newest(int limit, Predicate<JsonNode> wanted) {
        List<JsonNode> all;
        synchronized (newestFirst) {
            all = new ArrayList<>(newestFirst);
        }
        return all.stream().filter(wanted).limit(Math.max(0, limit)).toList();
    }

    /** The whole lines at the end of a file, at most so many bytes. */
    private static List<String> tail(Path file, int most) {
        if (!Files.isRegularFile(file)) {
            return List.of(); // opening a pipe would wait for its writer
        }
        try (FileChannel channel = FileChannel.open(file)) {
            long end = channel.size();
            long start = Math.max(0, end - most);
            String text = FileText.part(channel, start, end, StandardCharsets.UTF_8);
            List<String> lines = Arrays.asList(text.split("\n"));
            return start == 0 ? lines : lines.subList(1, lines.size());
        } catch (IOException | SecurityException e) {
            return List.of();
        }
    }
}
