package com.quorin.sysmgt.tavl.LumetraAgent.events;

import com.quorin.sysmgt.tavl.LumetraAgent.files.OwnFile;
import com.quorin.sysmgt.tavl.LumetraAgent.text.FileText;
import java.io.IOException;
import java.nio.channels.FileChannel;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Deque;
import java.util.List;
import java.util.function.Consumer;
import java.util.function.Predicate;

/**
 * The newest events, those of earlier runs included, one by one and gathered by what they repeat. Events are never
 * changed once they are here.
 *
 * <p>All methods may be called from any thread.
 */
public final class EventHistory implements Consumer<Event> {

    /** So many events are kept. */
    static final int MOST = 1000;

    private static final int LONGEST_TAIL = 1024 * 1024;

    private final Deque<Event> newestFirst = new ArrayDeque<>();
    private final EventGroups groups = new EventGroups(MOST);
    private final EventCounts counts = new EventCounts();

    /** The events that a file of events and its older generation end with. What cannot be read yields none. */
    public static EventHistory of(Path file) {
        EventHistory history = new EventHistory();
        List<String> lines = tail(file, LONGEST_TAIL);
        int rest = LONGEST_TAIL - lines.stream().mapToInt(line -> line.length() + 1).sum();
        if (lines.size() < MOST && rest > 0) {
            tail(file.resolveSibling(file.getFileName() + ".1"), rest).forEach(history::keepLine);
        }
        lines.forEach(history::keepLine);
        return history;
    }

    private void keepLine(String line) {
        EventLine.read(line).ifPresent(this::keep);
    }

    /** Takes up an event that has just happened. */
    @Override
    public void accept(Event event) {
        counts.add(event);
        keep(event);
    }

    /** How many events were taken up, those of earlier runs not included. */
    public EventCounts counts() {
        return counts;
    }

    private void keep(Event event) {
        synchronized (newestFirst) {
            newestFirst.addFirst(event);
            if (newestFirst.size() > MOST) {
                newestFirst.removeLast();
            }
            groups.add(event);
        }
    }

    /** At most so many events, newest first. */
    public List<Event> newest(int limit) {
        return newest(limit, event -> true);
    }

    /**
     * At most so many events of one resource, newest first.
     *
     * @param name as it is displayed
     */
    public List<Event> newestOf(String name, String instance, int limit) {
        return newest(limit, isOf(name, instance));
    }

    /** At most so many groups, the one with the newest event first. */
    public List<EventGroup> newestGroups(int limit) {
        return newestGroups(limit, event -> true);
    }

    /** At most so many groups of one resource, as {@link #newestOf} has its events. */
    public List<EventGroup> newestGroupsOf(String name, String instance, int limit) {
        return newestGroups(limit, isOf(name, instance));
    }

    private static Predicate<Event> isOf(String name, String instance) {
        Event.Subject wanted = new Event.Subject(name, instance).plain();
        return event -> event.subject().resource() != null && event.subject().plain().equals(wanted);
    }

    private List<Event> newest(int limit, Predicate<Event> wanted) {
        List<Event> all;
        synchronized (newestFirst) {
            all = new ArrayList<>(newestFirst);
        }
        return all.stream().filter(wanted).limit(Math.max(0, limit)).toList();
    }

    private List<EventGroup> newestGroups(int limit, Predicate<Event> wanted) {
        List<EventGroup> all;
        synchronized (newestFirst) {
            all = groups.newestFirst();
        }
        return all.stream().filter(group -> wanted.test(group.newest())).limit(Math.max(0, limit)).toList();
    }

    /** The whole lines at the end of a file, at most so many bytes. */
    private static List<String> tail(Path file, int most) {
        try (FileChannel channel = OwnFile.read(file)) {
            long end = channel.size();
            long start = Math.max(0, end - most);
            String text = new String(FileText.part(channel, start, end), StandardCharsets.UTF_8);
            List<String> lines = Arrays.asList(text.split("\n"));
            return start == 0 ? lines : lines.subList(1, lines.size());
        } catch (IOException | SecurityException e) {
            return List.of();
        }
    }
}
