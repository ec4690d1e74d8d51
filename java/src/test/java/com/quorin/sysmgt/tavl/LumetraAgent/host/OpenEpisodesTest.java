package com.quorin.sysmgt.tavl.LumetraAgent.host;

import static org.junit.jupiter.api.Assertions.assertEquals;

import com.quorin.sysmgt.tavl.LumetraAgent.resource.GivenResource;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Publication;
import java.util.Optional;
import org.junit.jupiter.api.Test;

class OpenEpisodesTest {

    private final OpenEpisodes episodes = new OpenEpisodes();

    private void publish(GivenResource... resources) {
        episodes.accept(new Publication(1, 1, Optional.of(GivenResource.state(GivenResource.START, resources))));
    }

    private static GivenResource since(GivenResource resource, long since) {
        resource.episodeSince = since;
        return resource;
    }

    @Test
    void anEpisodeIsKnownByTheNamesOfItsEventsUntilItEnds() {
        publish(since(GivenResource.disk(1, "/dev/a", "/\u00c3\u00bc"), 700), since(GivenResource.swap(2), 0),
                GivenResource.disk(3, "/dev/b", "/b"));
        assertEquals(700, episodes.since("Space", "/dev/a /\u00fc"));
        assertEquals(0, episodes.since("Space", "/dev/b /b"));
        assertEquals(0, episodes.since("Swap", "_Total"));
        assertEquals(0, episodes.since(null, null));
        publish(since(GivenResource.swap(2), 900));
        assertEquals(0, episodes.since("Space", "/dev/a /\u00fc"));
        assertEquals(900, episodes.since("Swap", "_Total"));
        episodes.accept(new Publication(2, 1, Optional.empty()));
        assertEquals(0, episodes.since("Swap", "_Total"));
    }

    @Test
    void ofTwoThatEventsCannotTellApartTheYoungerCounts() {
        publish(since(GivenResource.swap(1), 900), since(GivenResource.swap(2), 800));
        assertEquals(900, episodes.since("Swap", "_Total"));
    }
}
