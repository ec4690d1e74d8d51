package com.quorin.sysmgt.tavl.LumetraAgent.resource;

import java.util.Comparator;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.Optional;
import java.util.stream.Collectors;

/** How much is left out and by what, in one sentence. */
public final class LeftOutSummary {

    private static final int MOST_RULES = 5;

    private LeftOutSummary() {}

    /** Empty when nothing is left out. */
    public static Optional<String> of(List<Snapshot.LeftOut> leftOut) {
        if (leftOut.isEmpty()) {
            return Optional.empty();
        }
        boolean disks = leftOut.stream().allMatch(l -> l.kind() != null && l.kind() != LeftOutKind.OTHER);
        String noun = (disks ? "disk" : "thing") + (leftOut.size() == 1 ? "" : "s");
        return Optional.of("The agent leaves out " + leftOut.size() + " " + noun + " (" + byRule(leftOut) + ").");
    }

    private static String byRule(List<Snapshot.LeftOut> leftOut) {
        Map<String, Long> counts = leftOut.stream()
                .collect(Collectors.groupingBy(Snapshot.LeftOut::rule, LinkedHashMap::new, Collectors.counting()));
        List<String> parts = counts.entrySet().stream()
                .sorted(Comparator.comparing((Map.Entry<String, Long> e) -> -e.getValue()))
                .map(e -> e.getKey() + ": " + e.getValue()).toList();
        int more = parts.size() - MOST_RULES;
        return String.join("; ", parts.subList(0, Math.min(MOST_RULES, parts.size())))
                + (more <= 0 ? "" : "; " + more + (more == 1 ? " more rule" : " more rules"));
    }
}
