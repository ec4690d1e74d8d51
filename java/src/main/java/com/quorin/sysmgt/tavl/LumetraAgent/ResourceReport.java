package com.quorin.sysmgt.tavl.LumetraAgent;

import java.util.ArrayList;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.Optional;

/** What the agent found on the machine, one line per resource: name, instance, value, capacity, limit. */
final class ResourceReport {

    /** From this size on a kernel's maximum means "as many as you like". */
    private static final double NO_LIMIT = 9.2e18;

    /** A value this near to an upper limit counts as having reached it, as it does for the agent. */
    private static final double MARGIN = 0.05;

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
        Optional<DeclaredResource> declaration =
                declared.stream().filter(d -> declares(d, resource)).findFirst();
        String declaredName = declaration.map(DeclaredResource::name).orElse("");
        String name = declaredName.isEmpty() ? resource.counter() : declaredName;
        String instance = resource.instance();
        double own = declaration.map(DeclaredResource::upperLimitAbs).filter(a -> a > 0).orElse(0.0);
        double calculated = declaration.map(DeclaredResource::upperLimitCalc).orElse(0.0);
        Optional<Double> capacity = own > 0 ? Optional.of(own) : capacities.measured(resource, calculated);
        int method = declaration.map(DeclaredResource::method).orElse(1);
        Reading reading = reading(resource, value, capacity, own > 0);
        String limit = reading.remark.isEmpty() ? limit(method, value) : reading.remark;
        return new Row(Words.ofBytes(name), Words.ofBytes(instance), reading.value, reading.capacity, limit);
    }

    /** Whether this declaration is where the resource comes from. */
    private static boolean declares(DeclaredResource d, KnownResource resource) {
        return d.object().equals(resource.object()) && d.counter().equals(resource.counter())
                && (d.isTemplate() || d.instance().equals(resource.instance()));
    }

    /** What there is to say of a value; a remark takes the place of the limit. */
    private record Reading(String value, String capacity, String remark) {}

    private static Reading reading(
            KnownResource resource, double value, Optional<Double> capacity, boolean own) {
        if (!isMeasured(resource)) {
            return new Reading("-", "", "not measured: the agent has no counter of this name");
        }
        if (capacity.isEmpty()) {
            return new Reading(percent(value), "of an unknown capacity", "");
        }
        double amount = capacity.get();
        boolean disk = resource.object().equals(DeclaredResource.DISK);
        if (amount <= 0 && resource.object().equals(MachineCapacities.SWAP)) {
            return new Reading("absent", "", "this machine has no swap space");
        }
        if (amount <= 0 && disk) {
            String what = resource.counter().equals(MachineCapacities.SPACE) ? "space" : "inodes";
            String remark = "counts no " + what + " of its own, always reads as full";
            return new Reading(percent(value), "of none", remark);
        }
        if (amount >= NO_LIMIT) {
            return new Reading(percent(value), "",
                    "no limit on this machine; set UpperLimitAbs to forecast against one of your own");
        }
        String source = own ? " (UpperLimitAbs)" : "";
        return new Reading(percent(value), "of " + amount(resource, amount) + source, "");
    }

    private static boolean isMeasured(KnownResource resource) {
        return switch (resource.object()) {
            case MachineCapacities.PROCESSES, MachineCapacities.SWAP, MachineCapacities.DESCRIPTORS -> true;
            case DeclaredResource.DISK -> resource.counter().equals(MachineCapacities.SPACE)
                    || resource.counter().equals("PercentFreeInodesUsed");
            default -> false;
        };
    }

    private static String amount(KnownResource resource, double amount) {
        return switch (resource.object()) {
            case MachineCapacities.PROCESSES -> String.format(Locale.ROOT, "%.0f tasks", amount);
            case MachineCapacities.SWAP -> Words.ofBytes(amount * 1024);
            case MachineCapacities.DESCRIPTORS -> String.format(Locale.ROOT, "%.0f descriptors", amount);
            default -> resource.counter().equals(MachineCapacities.SPACE)
                    ? Words.ofBytes(amount * 1024)
                    : String.format(Locale.ROOT, "%.0f inodes", amount);
        };
    }

    private static String limit(int method, double value) {
        String upper = value >= 100 - MARGIN ? "is at its limit of 100 %" : "can reach its limit of 100 %";
        String lower = value <= 0 ? "is at its limit of 0 %" : "can fall to its limit of 0 %";
        return switch (method) {
            case 0 -> "sampled only, never forecast (AnalyticalMethod 0)";
            case 1 -> upper;
            case 2 -> lower;
            case 3 -> value <= 0 ? lower : value >= 100 - MARGIN ? upper : upper + ", " + lower;
            default -> "no limit to forecast against (AnalyticalMethod " + method + ")";
        };
    }

    private static String percent(double value) {
        return String.format(Locale.ROOT, "%.2f %%", value);
    }
}
