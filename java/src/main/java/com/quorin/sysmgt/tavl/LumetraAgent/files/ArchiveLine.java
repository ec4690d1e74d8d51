package com.quorin.sysmgt.tavl.LumetraAgent.files;

import java.util.LinkedHashMap;
import java.util.Locale;
import java.util.Map;
import java.util.Optional;

/**
 * One line of the archive: the samples of one cycle.
 *
 * @param epochSeconds when the cycle took place
 * @param values       of each resource, in per cent, by the resource's number and in the line's order
 */
public record ArchiveLine(long epochSeconds, Map<Integer, Double> values) {

    /**
     * The samples of a line, a time and then a number, a status and a value for each resource, up to the first that
     * is damaged. Empty when the line has no time. Its end may be there or not.
     */
    static Optional<ArchiveLine> parse(String line) {
        String[] fields = line.strip().split("\\s+");
        Optional<Long> time = whole(fields[0]);
        return time.map(t -> new ArchiveLine(t, triples(fields)));
    }

    private static Map<Integer, Double> triples(String[] fields) {
        Map<Integer, Double> values = new LinkedHashMap<>();
        for (int i = 1; i + 2 < fields.length; i += 3) {
            Optional<Long> rid = whole(fields[i]);
            if (rid.isEmpty() || whole(fields[i + 1]).isEmpty()) {
                break;
            }
            values.put(rid.get().intValue(), toNumber(fields[i + 2]));
        }
        return values;
    }

    /** A value as the agent writes it, "12.50", "-nan" or "inf"; 0 for a text that is no number. */
    private static double toNumber(String field) {
        String word = field.toLowerCase(Locale.ROOT);
        boolean negative = word.startsWith("-");
        String plain = negative || word.startsWith("+") ? word.substring(1) : word;
        if (plain.startsWith("nan")) {
            return Double.NaN;
        }
        if (plain.startsWith("inf")) {
            return negative ? Double.NEGATIVE_INFINITY : Double.POSITIVE_INFINITY;
        }
        try {
            return Double.parseDouble(field);
        } catch (NumberFormatException e) {
            return 0.0;
        }
    }

    private static Optional<Long> whole(String field) {
        try {
            return Optional.of(Long.parseLong(field));
        } catch (NumberFormatException e) {
            return Optional.empty();
        }
    }
}
