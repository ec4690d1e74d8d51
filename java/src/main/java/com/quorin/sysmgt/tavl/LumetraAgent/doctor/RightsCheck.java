package com.quorin.sysmgt.tavl.LumetraAgent.doctor;

import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.io.IOException;
import java.nio.file.DirectoryStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Optional;

/** What the agent's process may see and have. */
final class RightsCheck {

    /** CAP_DAC_OVERRIDE and CAP_DAC_READ_SEARCH: either lets it look into any directory. */
    private static final long LOOKS_ANYWHERE = 1L << 1 | 1L << 2;

    /** The service has 4096; an agent at work has about 60 open. */
    private static final long FEW_FILES = 256;
    private static final long TOO_FEW_FILES = 64;

    /** An agent with its page has about 40 threads, and a df now and then. */
    private static final long FEW_THREADS = 64;
    private static final long TOO_FEW_THREADS = 40;

    private static final long MIB = 1L << 20;
    private static final long LITTLE_MEMORY = 256 * MIB;
    private static final long TOO_LITTLE_MEMORY = 128 * MIB;

    private final Machine machine;
    private final AgentProcess process;

    RightsCheck(Machine machine, AgentProcess process) {
        this.machine = machine;
        this.process = process;
    }

    Symptom rights() {
        Optional<String> effective = machine.field(process.proc() + "/status", "CapEff:");
        if (effective.isPresent() && (Long.parseUnsignedLong(effective.get(), 16) & LOOKS_ANYWHERE) != 0) {
            return Symptom.ok(Subject.RIGHTS, process.who() + " sees other users' descriptors");
        }
        return new Symptom(Subject.RIGHTS, Severity.NOTICE, process.who()
                + " cannot count the descriptors of other users' processes, so they are not named as largest users",
                "Run it as the service, which has CAP_DAC_READ_SEARCH for that, or as root.");
    }

    Symptom openFiles() {
        Optional<Long> most = limit("Max open files");
        String what = process.who() + " may open " + most.map(Object::toString).orElse("any number of") + " files";
        return judged(Subject.OPEN_FILES, most, FEW_FILES, TOO_FEW_FILES, what,
                "Raise it: LimitNOFILE= of the service, or ulimit -n.");
    }

    /** The soft limit; empty for none. */
    private Optional<Long> limit(String name) {
        return machine.field(process.proc() + "/limits", name).map(values -> values.split("\\s+")[0])
                .flatMap(Machine::number);
    }

    private static Symptom judged(Subject subject, Optional<Long> room, long few, long tooFew, String what,
            String advice) {
        if (room.isEmpty() || room.get() >= few) {
            return Symptom.ok(subject, what);
        }
        return room.get() < tooFew ? new Symptom(subject, Severity.PROBLEM, what + ": too little for it", advice)
                : new Symptom(subject, Severity.WARNING, what + ", which is little", advice);
    }

    Symptom threads() {
        long uid = machine.field(process.proc() + "/status", "Uid:").map(ids -> ids.split("\\s+")[0])
                .flatMap(Machine::number).orElse(0L);
        // a limit of processes does not bind root
        Optional<Long> ofUser = uid == 0 ? Optional.empty() : limit("Max processes").map(most -> most - threadsOf(uid));
        Optional<Long> room = ofUser;
        for (Path group : groups("pids")) {
            Optional<Long> most = number(group, "pids.max");
            Optional<Long> now = number(group, "pids.current");
            if (most.isPresent() && now.isPresent()) {
                long left = most.get() - now.get();
                room = Optional.of(room.map(other -> Math.min(other, left)).orElse(left));
            }
        }
        long own = process.isAgent() ? machine.field(process.proc() + "/status", "Threads:").flatMap(Machine::number)
                .orElse(0L) : 0;
        room = room.map(left -> left + own);
        return judged(Subject.THREADS, room, FEW_THREADS, TOO_FEW_THREADS, process.who() + " may have "
                + room.map(Object::toString).orElse("any number of") + " threads",
                "Raise LimitNPROC=, TasksMax= of the service, ulimit -u, or pids.max of its control group.");
    }

    private long threadsOf(long uid) {
        long threads = 0;
        try (DirectoryStream<Path> all = Files.newDirectoryStream(machine.root().resolve("proc"), "[0-9]*")) {
            for (Path one : all) {
                String status = "proc/" + one.getFileName() + "/status";
                boolean isOfUser = machine.field(status, "Uid:").map(ids -> ids.split("\\s+")[0])
                        .flatMap(Machine::number).orElse(-1L) == uid;
                threads += isOfUser ? machine.field(status, "Threads:").flatMap(Machine::number).orElse(1L) : 0;
            }
        } catch (IOException | RuntimeException e) {
            return threads;
        }
        return threads;
    }

    Symptom memory() {
        Optional<Long> least = Optional.empty();
        for (Path group : groups("memory")) {
            Optional<Long> most = number(group, "memory.max").or(() -> number(group, "memory.limit_in_bytes"));
            // without a limit the older kind of control group has one of 8 EiB
            if (most.isPresent() && most.get() < 1L << 60 && most.get() < least.orElse(Long.MAX_VALUE)) {
                least = most;
            }
        }
        return judged(Subject.MEMORY, least, LITTLE_MEMORY, TOO_LITTLE_MEMORY, process.who() + " may use "
                + least.map(bytes -> Words.ofBytes((double) bytes)).orElse("all the") + " memory",
                "Raise MemoryMax= of the service, or memory.max of its control group, to 256 MiB and more.");
    }

    /** The control groups that the process is in, for one controller: its own and those above it. */
    private List<Path> groups(String controller) {
        List<Path> groups = new ArrayList<>();
        for (String line : machine.lines(process.proc() + "/cgroup")) {
            String[] parts = line.split(":", 3);
            boolean isUnified = parts.length == 3 && parts[1].isEmpty();
            if (isUnified || parts.length == 3 && List.of(parts[1].split(",")).contains(controller)) {
                Path top = machine.root().resolve("sys/fs/cgroup").resolve(isUnified ? "" : controller);
                Path group = top.resolve(parts[2].substring(1)).normalize();
                for (; group != null && group.startsWith(top); group = group.getParent()) {
                    groups.add(group);
                }
            }
        }
        return groups;
    }

    private Optional<Long> number(Path group, String name) {
        return machine.text(machine.root().relativize(group.resolve(name)).toString()).flatMap(Machine::number);
    }
}
