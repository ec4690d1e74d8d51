package com.quorin.sysmgt.tavl.LumetraAgent.host;

import com.quorin.sysmgt.tavl.LumetraAgent.events.Event;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Publication;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.RunResource;
import java.util.Map;
import java.util.function.Consumer;
import java.util.stream.Collectors;

/**
 * The episodes that are on, as of the newest publication, by the names that events have.
 *
 * <p>Any thread may call.
 */
final class OpenEpisodes implements Consumer<Publication> {

    private volatile Map<Event.Subject, Long> begun = Map.of();

    @Override
    public void accept(Publication publication) {
        begun = publication.state().map(state -> state.resources().stream()
                .filter(resource -> resource.notification().since() != 0)
                .collect(Collectors.toMap(OpenEpisodes::subject, r -> r.notification().since(), Math::max)))
                .orElse(Map.of());
    }

    /** When the episode of a resource began, in seconds since the epoch; 0 when none is known to be on. */
    long since(String name, String instance) {
        return begun.getOrDefault(new Event.Subject(name, instance).plain(), 0L);
    }

    private static Event.Subject subject(RunResource resource) {
        RunResource.Identity who = resource.identity();
        return Event.Subject.published(who.name(), who.instance());
    }
}
