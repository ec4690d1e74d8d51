package com.quorin.sysmgt.tavl.LumetraAgent.resource;

import java.time.Duration;
import java.util.Optional;

/**
 * What is published of the agent that runs in this process. Any thread may call; nobody who calls holds up the
 * agent. What is published but not understood is an IllegalStateException.
 */
public interface Feed {

    /**
     * The newest publication, as soon as its serial is above {@code after}; empty when none came in so long. For no
     * time it does not wait.
     */
    Optional<Publication> await(long after, Duration patience);

    /** The curves of a resource as of now, at once; empty when the agent has no such resource, or does not run. */
    Optional<Curves> curves(int id);
}
