package com.quorin.sysmgt.tavl.LumetraAgent;

import java.util.ArrayList;
import java.util.List;
import java.util.Locale;
import java.util.Map;

/** What the agent found on the machine, one line per resource: name, instance, value, capacity, limit. */
final class ResourceReport {

    private final Map<Integer, KnownResource> known;
    private final List<DeclaredResource> declared;
    private final MachineCapacities capacities;

    /** The texts of one line, before they are lined up. */
    private record Row(String name, String instance, String value, String capacity, String limit) {}

    /**
     * Prepares a report.
     *
     * @param known      what each resource's number stands for
     * @param declared   the declarations that the agent started with
     * @param capacities the capacities of the machine
     */
    ResourceReport(Map<Integer, KnownResource> known, List<DeclaredResource> declared,
            MachineCapacities capacities) {
        this.known = known;
        this.declared = declared;
        this.capacities = capacities;
    }

    /**
     * The report on the samples of one cycle.
     *
     * @param samples the samples
     * @return a heading and one line for each resource, in the samples' order, without control characters
     */
    List<String> lines(ArchiveLine samples) {
        List<Row> rows = new ArrayList<>();
        samples.values().forEach((rid, value) -> rows.add(row(rid, value)));
        List<String> lines = new ArrayList<>();
        lines.add(switch (rows.size()) {
            case 0 -> "The agent found no resource to watch.";
            case 1 -> "The agent watches 1 resource:";
            default -> "The agent watches " + rows.size() + " resources:";
        });
        int name = width(rows.stream().map(Row::name).toList(), 30);
        int instance = width(rows.stream().map(Row::instance).toList(), 44);
        int capacity = width(rows.stream().map(Row::capacity).toList(), 34);
        String form = "  %-" + name + "s  %-" + instance + "s  %9s  %-" + capacity + "s  %s";
        for (Row row : rows) {
            String line = String.format(
                    Locale.ROOT, form, row.name, row.instance, row.value, row.capacity, row.limit);
            lines.add(line.stripTrailing());
        }
        return lines;
    }

    private static int width(List<String> column, int atMost) {
        return column.stream().mapToInt(String::length).filter(w -> w <= atMost).reduce(1, Math::max);
    }

    private Row row(int rid, double value) {
        KnownResource resource = known.get(rid);
        if (resource == null) {
            return new Row("resource " + rid, "", percent(value), "", "its record is not in the scratch pad");
        }
        ResourceFacts facts = ResourceFacts.of(resource, declared, capacities);
        String remark = facts.remark();
        return new Row(Words.ofBytes(facts.name()), Words.ofBytes(resource.instance()), value(facts, value),
                capacity(facts), remark.isEmpty() ? limit(facts, value) : remark);
    }

    private static String value(ResourceFacts facts, double value) {
        return switch (facts.kind()) {
            case NOT_MEASURED -> "-";
            case NO_SWAP -> "absent";
            default -> percent(value);
        };
    }

    private static String capacity(ResourceFacts facts) {
        return switch (facts.kind()) {
            case UNKNOWN_CAPACITY -> "of an unknown capacity";
            case COUNTS_NONE -> "of none";
            default -> facts.amount().map(a -> "of " + a).orElse("")
                    + (facts.own() && facts.amount().isPresent() ? " (UpperLimitAbs)" : "");
        };
    }

    private static String limit(ResourceFacts facts, double value) {
        boolean full = value >= 100 - ResourceFacts.MARGIN;
        String upper = full ? "is at its limit of 100 %" : "can reach its limit of 100 %";
        String lower = value <= 0 ? "is at its limit of 0 %" : "can fall to its limit of 0 %";
        return switch (facts.method()) {
            case 1 -> upper;
            case 2 -> lower;
            case 3 -> value <= 0 ? lower : full ? upper : upper + ", " + lower;
            default -> facts.methodRemark();
        };
    }

    private static String percent(double value) {
        return String.format(Locale.ROOT, "%.2f %%", value);
    }
}
