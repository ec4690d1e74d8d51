package com.quorin.sysmgt.tavl.LumetraAgent.client;

import java.net.URI;
import java.util.Optional;

/** An agent that may run on this machine. */
public final class RunningAgent {

    private static final int PATIENCE_SECONDS = 3;

    private RunningAgent() {}

    /** The home of the agent that answers at a port; empty when none does. */
    public static Optional<String> homeAt(int port) {
        try {
            URI page = URI.create("http://127.0.0.1:" + port + "/");
            return Optional.ofNullable(
                    new AgentClient(page, PATIENCE_SECONDS, 2 * PATIENCE_SECONDS).overview().snapshot().agent().home());
        } catch (Failed e) {
            return Optional.empty();
        }
    }
}
