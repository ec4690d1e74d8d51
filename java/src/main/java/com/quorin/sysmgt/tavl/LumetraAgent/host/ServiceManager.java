package com.quorin.sysmgt.tavl.LumetraAgent.host;

import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.nio.charset.StandardCharsets;
import java.util.Map;
import java.util.Optional;

/**
 * The service manager that started this process and wants to be told how the agent is, as the environment describes
 * it.
 *
 * @param socket               where it listens, as it named it
 * @param watchdogMicroseconds it wants a sign of life at least that often; 0 for no such wish
 */
record ServiceManager(String socket, long watchdogMicroseconds) {

    /** Tells the library whom to tell; false when nobody can be told there. */
    interface Door {
        boolean tell(byte[] socket, long watchdogMicroseconds);
    }

    /**
     * The one that the environment names; empty without one.
     *
     * @param process the number of this process: what was meant for another one is none of its business
     */
    static Optional<ServiceManager> of(Map<String, String> environment, long process) {
        String socket = environment.getOrDefault("NOTIFY_SOCKET", "");
        if (socket.isEmpty()) {
            return Optional.empty();
        }
        boolean isMeant = number(environment.getOrDefault("WATCHDOG_PID", Long.toString(process))) == process;
        return Optional.of(new ServiceManager(socket,
                isMeant ? number(environment.getOrDefault("WATCHDOG_USEC", "0")) : 0));
    }

    private static long number(String text) {
        try {
            return Math.max(0, Long.parseLong(text));
        } catch (NumberFormatException e) {
            return 0;
        }
    }

    /** Has the agent tell it; gives back what there is to say when that cannot be. */
    Optional<String> introduce(Door door) {
        return door.tell(socket.getBytes(StandardCharsets.UTF_8), watchdogMicroseconds) ? Optional.empty()
                : Optional.of("The service manager cannot be told how the agent is: its socket "
                        + Words.printable(socket) + " cannot be used.");
    }
}
