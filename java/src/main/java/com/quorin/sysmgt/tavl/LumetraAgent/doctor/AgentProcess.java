package com.quorin.sysmgt.tavl.LumetraAgent.doctor;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Optional;

/**
 * The process that an agent is, or would be.
 *
 * @param isAgent whether it is one that runs; else it is this process, in whose place one could be started
 * @param proc    its directory in /proc
 */
record AgentProcess(boolean isAgent, String number, String proc) {

    private static final String LOCK = "bin/agent.lock";
    private static final String SERVICE = "/lumetra-agent.service";
    private static final int MINOR_BITS = 8;

    /** The agent that works in a home, by the lock that it holds; this process without one. */
    static AgentProcess of(Machine machine, Path home) {
        return lockHolder(machine, home.resolve(LOCK)).map(number -> new AgentProcess(true, number, "proc/" + number))
                .orElseGet(() -> new AgentProcess(false, "", "proc/self"));
    }

    /** The kernel's list tells it without any right to the file, and without taking the lock. */
    private static Optional<String> lockHolder(Machine machine, Path lock) {
        try {
            long inode = (long) Files.getAttribute(lock, "unix:ino");
            long device = (long) Files.getAttribute(lock, "unix:dev");
            return machine.lines("proc/locks").stream().map(line -> line.strip().split("\\s+"))
                    .filter(words -> words.length >= 6 && isOf(words[5], device, inode)).map(words -> words[4])
                    .findFirst();
        } catch (IOException | RuntimeException e) {
            return Optional.empty();
        }
    }

    /**
     * Of some file systems the kernel's list has another device than the file. The numbers of files use all 64 bits on
     * an overlay.
     */
    static boolean isOf(String place, long device, long inode) {
        String[] parts = place.split(":");
        if (parts.length != 3 || !parts[2].equals(Long.toUnsignedString(inode))) {
            return false;
        }
        long major = device >> MINOR_BITS & 0xfff;
        long minor = device & 0xff | device >> 12 & 0xfff00;
        return major == 0 || Long.parseLong(parts[0], 16) == major && Long.parseLong(parts[1], 16) == minor;
    }

    Symptom lock(Machine machine) {
        if (!isAgent) {
            return Symptom.ok(Subject.LOCK, "no agent works in the home");
        }
        boolean isService = machine.text(proc + "/cgroup").orElse("").contains(SERVICE);
        return isService ? Symptom.ok(Subject.LOCK, "the service works in the home, process " + number)
                : new Symptom(Subject.LOCK, Severity.NOTICE, "an agent works in the home, process " + number
                        + ", and no other can", "Nothing, if it is the one that should.");
    }

    /** Whose rights and limits are looked at. */
    String who() {
        return isAgent ? "the agent" : "an agent of this user";
    }
}
