package com.quorin.sysmgt.tavl.LumetraAgent;

import java.util.LinkedHashMap;
import java.util.Map;
import java.util.Optional;

/**
 * One line of the archive: the samples of one cycle.
 *
 * @param epochSeconds when the cycle took place
 * @param values       the value of each resource, in per cent, by the resource's number and in the line's
 *                     order
 */
record ArchiveLine(long epochSeconds, Map<Integer, Double> values) {

    /**
     * Reads a line: a time, then a number, a status and a value for each resource.
     *
     * @param line the line, with or without its end
     * @return the samples up to the first that is damaged; empty when the line has no time
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
            values.put(rid.get().intValue(), TextScanner.toNumber(fields[i + 2]));
        }
        return values;
    }

    private static Optional<Long> whole(String field) {
        try {
            return Optional.of(Long.parseLong(field));
        } catch (NumberFormatException e) {
            return Optional.empty();
        }
    }
}
