package com.quorin.sysmgt.tavl.LumetraAgent.resource;

import com.quorin.sysmgt.tavl.LumetraAgent.HostFeed;
import java.util.List;
import java.util.Optional;
import java.util.stream.Collectors;

/**
 * What the agent can count, and of which resources it names the largest users: the library's own table. Texts
 * are for people but where they are names of declarations.
 */
public record CounterTable(List<Counter> counters, List<Report> reports) {

    /**
     * One thing that the agent can count.
     *
     * @param object     of the declaration
     * @param counter    of the declaration; empty: whatever stands there
     * @param words      its name; of a disk's counter what it counts there
     * @param unit       of the capacity; empty for bytes
     * @param bytes      in one unit of the capacity; 0 for what is no bytes
     * @param wholeLimit whether an UpperLimitAbs counts without its fraction
     * @param whole      what 100 per cent are
     * @param nothing    what a measured capacity of 0 means; empty for nothing of note
     * @param isAbsent   whether such a resource is not there at all, rather than always full
     */
    public record Counter(String object, String counter, String words, String unit, double bytes, boolean wholeLimit,
            String whole, String nothing, boolean isAbsent) {}

    /**
     * A report on the largest users of a resource.
     *
     * @param displayName of the resource
     * @param measure     what is counted of each process, for programs
     * @param words       the same, behind a number
     */
    public record Report(String displayName, String measure, String words) {}

    private static volatile CounterTable current;

    /** The table of the library, which must have been loaded. */
    public static CounterTable current() {
        if (current == null) {
            current = FeedReader.counters(HostFeed.counters());
        }
        return current;
    }

    /** Puts another table in the library's place; null takes it away again. For tests. */
    static void use(CounterTable table) {
        current = table;
    }

    /** The counter of a declaration. */
    public Optional<Counter> of(String object, String counter) {
        return counters.stream()
                .filter(c -> c.object.equals(object) && (c.counter.isEmpty() || c.counter.equals(counter)))
                .findFirst();
    }

    /** Whether there is a counter of that object. */
    public boolean knows(String object) {
        return counters.stream().anyMatch(c -> c.object.equals(object));
    }

    public Optional<Report> reportOn(String displayName) {
        return reports.stream().filter(r -> r.displayName.equals(displayName)).findFirst();
    }

    /** The objects that a declaration may name, in one phrase. */
    public String objects() {
        return listed(counters.stream().map(Counter::object).distinct().toList());
    }

    /** The counters that a declaration of an object may name, in one phrase. */
    public String countersOf(String object) {
        return listed(counters.stream().filter(c -> c.object.equals(object)).map(Counter::counter).toList());
    }

    private static String listed(List<String> names) {
        int last = names.size() - 1;
        return last < 1 ? String.join("", names)
                : names.stream().limit(last).collect(Collectors.joining(", ")) + " or " + names.get(last);
    }
}
