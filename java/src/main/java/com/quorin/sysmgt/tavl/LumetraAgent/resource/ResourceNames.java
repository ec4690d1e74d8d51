package com.quorin.sysmgt.tavl.LumetraAgent.resource;

import com.quorin.sysmgt.tavl.LumetraAgent.TrendReader;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;

/**
 * The names of a resource, as they are shown and as events tell them.
 *
 * @param shown without control characters
 * @param key   as the library hands them to Java
 */
public record ResourceNames(Snapshot.Identity shown, TrendReader.Resource key) {

    public static ResourceNames of(RunResource.Identity identity) {
        String instance = identity.instance();
        boolean isMounted = identity.mountPoint() > 0;
        // a blank stands between the device and the mount point
        String device = isMounted ? instance.substring(0, identity.mountPoint() - 1) : instance;
        Snapshot.Identity shown = new Snapshot.Identity(identity.id(),
                Words.ofBytes(identity.displayName()), identity.hasInstance() ? Words.ofBytes(instance) : "",
                identity.isDisk() ? Words.ofBytes(device) : null,
                isMounted ? Words.ofBytes(instance.substring(identity.mountPoint())) : null,
                Words.ofBytes(identity.counter()),
                CounterTable.current().of(identity.object(), identity.counter())
                        .map(CounterTable.Counter::words).orElse(null));
        return new ResourceNames(shown, new TrendReader.Resource(
                Words.asFromLibrary(identity.name()), Words.asFromLibrary(instance)));
    }
}
