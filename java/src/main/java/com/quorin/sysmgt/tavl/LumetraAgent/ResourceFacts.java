package com.quorin.sysmgt.tavl.LumetraAgent;

import java.util.List;
import java.util.Locale;
import java.util.Optional;

/**
 * What is known of a resource beside its samples: how it is declared, what 100 per cent stand for on this
 * machine, and whether there is anything that it could run out of. Texts are texts of bytes.
 *
 * @param resource    what the resource's number stands for
 * @param name        display name
 * @param method      the analytical method
 * @param windowHours the declared analysis window; negative asks for automatic sizing
 * @param capacity    what 100 per cent stand for, in the resource's unit; empty when it cannot be told
 * @param own         whether the capacity is the user's and not the machine's
 * @param kind        what the capacity means
 */
record ResourceFacts(KnownResource resource, String name, int method, double windowHours,
        Optional<Double> capacity, boolean own, Kind kind) {

    /** A value this near to an upper limit counts as having reached it, as it does for the agent. */
    static final double MARGIN = 0.05;

    /** From this size on a kernel's maximum means "as many as you like". */
    private static final double NO_LIMIT = 9.2e18;

    private static final String INODES = "PercentFreeInodesUsed";

    /** What the capacity means. */
    enum Kind {
        /** The resource has a capacity that it can use up. */
        COUNTED,
        /** The agent has no counter of this name and archives 0. */
        NOT_MEASURED,
        /** The machine does not tell the capacity. */
        UNKNOWN_CAPACITY,
        /** The machine has no swap space. */
        NO_SWAP,
        /** A file system that counts no space or no inodes of its own. */
        COUNTS_NONE,
        /** The kernel sets no maximum. */
        UNLIMITED
    }

    /**
     * Puts together what is known.
     *
     * @param resource   the resource
     * @param declared   the declarations that the agent started with
     * @param capacities the capacities of the machine
     * @return the facts
     */
    static ResourceFacts of(
            KnownResource resource, List<DeclaredResource> declared, MachineCapacities capacities) {
        Optional<DeclaredResource> declaration =
                declared.stream().filter(d -> declares(d, resource)).findFirst();
        String declaredName = declaration.map(DeclaredResource::name).orElse("");
        double own = declaration.map(DeclaredResource::upperLimitAbs).filter(a -> a > 0).orElse(0.0);
        double calculated = declaration.map(DeclaredResource::upperLimitCalc).orElse(0.0);
        Optional<Double> capacity = own > 0 ? Optional.of(own) : capacities.measured(resource, calculated);
        return new ResourceFacts(resource, declaredName.isEmpty() ? resource.counter() : declaredName,
                declaration.map(DeclaredResource::method).orElse(1),
                declaration.map(DeclaredResource::windowHours).orElse(-1.0),
                capacity, own > 0, kind(resource, capacity));
    }

    /** Whether this declaration is where the resource comes from. */
    private static boolean declares(DeclaredResource d, KnownResource resource) {
        return d.object().equals(resource.object()) && d.counter().equals(resource.counter())
                && (d.isTemplate() || d.instance().equals(resource.instance()));
    }

    private static Kind kind(KnownResource resource, Optional<Double> capacity) {
        if (!isMeasured(resource)) {
            return Kind.NOT_MEASURED;
        }
        if (capacity.isEmpty()) {
            return Kind.UNKNOWN_CAPACITY;
        }
        if (capacity.get() <= 0 && resource.object().equals(MachineCapacities.SWAP)) {
            return Kind.NO_SWAP;
        }
        if (capacity.get() <= 0 && resource.isDisk()) {
            return Kind.COUNTS_NONE;
        }
        return capacity.get() >= NO_LIMIT ? Kind.UNLIMITED : Kind.COUNTED;
    }

    private static boolean isMeasured(KnownResource resource) {
        return switch (resource.object()) {
            case MachineCapacities.PROCESSES, MachineCapacities.SWAP, MachineCapacities.DESCRIPTORS -> true;
            case DeclaredResource.DISK ->
                resource.counter().equals(MachineCapacities.SPACE) || resource.counter().equals(INODES);
            default -> false;
        };
    }

    /**
     * Whether the resource is a file system.
     *
     * @return true for disks
     */
    boolean isDisk() {
        return resource.isDisk();
    }

    /**
     * Whether the method looks at an upper limit of 100 per cent.
     *
     * @return true for the methods 1 and 3
     */
    boolean hasUpperLimit() {
        return method == 1 || method == 3;
    }

    /**
     * Whether the method looks at a lower limit of 0 per cent.
     *
     * @return true for the methods 2 and 3
     */
    boolean hasLowerLimit() {
        return method == 2 || method == 3;
    }

    /**
     * Whether there is something that the resource could run out of.
     *
     * @return false for what has no end, is not counted, or is not forecast
     */
    boolean hasLimit() {
        return (hasUpperLimit() || hasLowerLimit())
                && (kind == Kind.COUNTED || kind == Kind.UNKNOWN_CAPACITY || kind == Kind.NO_SWAP);
    }

    /**
     * Whether a value has reached a limit of the method.
     *
     * @param value the value in per cent
     * @return true when it has
     */
    boolean isAtLimit(double value) {
        return hasUpperLimit() && value >= 100 - MARGIN || hasLowerLimit() && value <= 0;
    }

    /**
     * What the capacity means, where that needs a word.
     *
     * @return the remark; empty for a capacity that can be used up or is unknown
     */
    String remark() {
        return switch (kind) {
            case COUNTED, UNKNOWN_CAPACITY -> "";
            case NOT_MEASURED -> "not measured: the agent has no counter of this name";
            case NO_SWAP -> "this machine has no swap space";
            case COUNTS_NONE -> "counts no " + (countsSpace() ? "space" : "inodes")
                    + " of its own, always reads as full";
            case UNLIMITED ->
                "no limit on this machine; set UpperLimitAbs to forecast against one of your own";
        };
    }

    /**
     * Why the method forecasts nothing.
     *
     * @return the remark; empty for a method that forecasts
     */
    String methodRemark() {
        if (hasUpperLimit() || hasLowerLimit()) {
            return "";
        }
        return method == 0 ? "sampled only, never forecast (AnalyticalMethod 0)"
                : "no limit to forecast against (AnalyticalMethod " + method + ")";
    }

    /**
     * What 100 per cent stand for, in words.
     *
     * @return the amount; empty when there is none to be told
     */
    Optional<String> amount() {
        return kind == Kind.COUNTED ? capacity.map(this::inWords) : Optional.empty();
    }

    private String inWords(double amount) {
        return switch (resource.object()) {
            case MachineCapacities.PROCESSES -> String.format(Locale.ROOT, "%.0f tasks", amount);
            case MachineCapacities.SWAP -> Words.ofBytes(amount * 1024);
            case MachineCapacities.DESCRIPTORS -> String.format(Locale.ROOT, "%.0f descriptors", amount);
            default -> countsSpace() ? Words.ofBytes(amount * 1024)
                    : String.format(Locale.ROOT, "%.0f inodes", amount);
        };
    }

    private boolean countsSpace() {
        return resource.counter().equals(MachineCapacities.SPACE);
    }
}
