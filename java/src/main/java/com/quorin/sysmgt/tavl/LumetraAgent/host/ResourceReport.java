package com.quorin.sysmgt.tavl.LumetraAgent.host;

import com.quorin.sysmgt.tavl.LumetraAgent.resource.ResourceFacts;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.RunResource;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.util.ArrayList;
import java.util.List;
import java.util.Locale;

/** What the agent found on the machine, one line per resource: name, instance, value, capacity, limit. */
final class ResourceReport {

    /** The texts of one line, before they are lined up. */
    private record Row(String name, String instance, String value, String capacity, String limit) {}

    private ResourceReport() {}

    /**
     * The report on the resources of one cycle: a heading and one line for each, in their order, without control
     * characters.
     */
    static List<String> lines(List<RunResource> resources) {
        List<Row> rows = resources.stream().map(ResourceReport::row).toList();
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

    private static Row row(RunResource resource) {
        ResourceFacts facts = ResourceFacts.of(resource);
        String remark = facts.remark();
        return new Row(Words.ofBytes(resource.identity().displayName()),
                Words.ofBytes(resource.identity().instance()), value(facts), capacity(facts),
                remark.isEmpty() ? limit(facts) : remark);
    }

    private static String value(ResourceFacts facts) {
        RunResource.Reading reading = facts.resource().reading();
        return switch (facts.kind()) {
            case NOT_MEASURED -> "-";
            case NONE_THERE -> "absent";
            default -> reading.isRead() ? String.format(Locale.ROOT, "%.2f %%", reading.value()) : "not read";
        };
    }

    private static String capacity(ResourceFacts facts) {
        return switch (facts.kind()) {
            case UNKNOWN_CAPACITY -> "of an unknown capacity";
            case COUNTS_NONE -> "of none";
            default -> facts.amount().map(a -> "of " + a + (facts.isOwn() ? " (UpperLimitAbs)" : "")).orElse("");
        };
    }

    private static String limit(ResourceFacts facts) {
        RunResource.Limits limits = facts.resource().analysis().limits();
        List<String> words = new ArrayList<>();
        if (limits.hasUpper() && limits.reached() != RunResource.Reached.LOWER) {
            words.add((limits.reached() == RunResource.Reached.UPPER ? "is at" : "can reach")
                    + String.format(Locale.ROOT, " its limit of %.0f %%", limits.upper()));
        }
        if (limits.hasLower() && limits.reached() != RunResource.Reached.UPPER) {
            words.add((limits.reached() == RunResource.Reached.LOWER ? "is at" : "can fall to")
                    + String.format(Locale.ROOT, " its limit of %.0f %%", limits.lower()));
        }
        return words.isEmpty() ? facts.methodRemark() : String.join(", ", words);
    }
}
