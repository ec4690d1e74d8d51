package com.quorin.sysmgt.tavl.LumetraAgent.metrics;

import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import java.util.Comparator;
import java.util.HashMap;
import java.util.HashSet;
import java.util.List;
import java.util.Map;
import java.util.Set;

/**
 * The labels of resources. No two resources have the same ones: of those whose names are the same, the one
 * that was seen first keeps the bare name, and the others have their numbers in it.
 *
 * <p>One thread uses it at a time.
 */
final class MetricsNames {

    private record Names(String resource, String device, String mountpoint) {}

    private record Given(Names names, String labels) {}

    private Map<Integer, Given> given = new HashMap<>();

    /**
     * The labels of all resources by their numbers. Those that had theirs keep them while their names are the same.
     */
    Map<Integer, String> of(List<Snapshot.Resource> resources) {
        Map<Integer, Given> next = new HashMap<>();
        Set<String> taken = new HashSet<>();
        for (Snapshot.Resource r : resources) {
            Given before = given.get(r.id());
            if (before != null && before.names.equals(names(r))) {
                next.put(r.id(), before);
                taken.add(before.labels);
            }
        }
        resources.stream().filter(r -> !next.containsKey(r.id()))
                .sorted(Comparator.comparingInt(Snapshot.Resource::id))
                .forEach(r -> next.put(r.id(), give(names(r), r.id(), taken)));
        given = next;
        Map<Integer, String> labels = new HashMap<>();
        next.forEach((id, its) -> labels.put(id, its.labels));
        return labels;
    }

    private static Names names(Snapshot.Resource resource) {
        Snapshot.Identity r = resource.identity();
        // an instance that is no disk's is told by nothing else
        String device = r.device() == null ? r.instance() : r.device();
        return new Names(r.resource(), device, r.mountpoint() == null ? "" : r.mountpoint());
    }

    private static Given give(Names names, int id, Set<String> taken) {
        String labels = labels(names.resource, names);
        for (String name = names.resource; !taken.add(labels); ) {
            name += " (" + id + ")";
            labels = labels(name, names);
        }
        return new Given(names, labels);
    }

    private static String labels(String resource, Names names) {
        return MetricsText.labels(
                "resource", resource, "device", names.device, "mountpoint", names.mountpoint);
    }
}
