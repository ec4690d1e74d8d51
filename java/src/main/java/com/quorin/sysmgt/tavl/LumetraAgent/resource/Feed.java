package com.quorin.sysmgt.tavl.LumetraAgent.resource;

import java.time.Duration;
import java.util.Optional;

/**
 * What is published of the agent that runs in this process. Any thread may call; nobody who calls holds up the
 * agent. What is published but not understood is an IllegalStateException.
 */
public interface Feed {

    /**
     * Waits for a publication whose serial is above {@code after}, at most so long; not at all for no time.
     *
     * @return the newest publication; empty when none came in time
     */
    Optional<Publication> await(long after, Duration patience);

    /**
     * The curves of a resource as of now, at once.
     *
     * @return empty when the agent has no such resource, or does not run
     */
    Optional<Curves> curves(int id);
}
