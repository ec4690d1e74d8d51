package com.quorin.sysmgt.tavl.LumetraAgent.doctor;

import java.nio.file.Path;
import java.time.Duration;
import java.util.ArrayList;
import java.util.HashSet;
import java.util.List;
import java.util.Set;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Future;

/** Whether the disks answer, each by itself, and df for all of them. */
final class DisksCheck {

    /** As long as the agent waits for a listing. */
    private static final Duration PATIENCE = Duration.ofSeconds(10);
    private static final int AT_ONCE = 16;
    private static final int MOST_NAMES = 5;

    private final Machine machine;
    private final List<Mount> mounts;
    private final Set<Path> silent = new HashSet<>();

    DisksCheck(Machine machine, List<Mount> mounts) {
        this.machine = machine;
        this.mounts = mounts;
    }

    /** Asks each file system, with a deadline of its own; those that are mounted on demand are left alone. */
    Symptom mounts() {
        List<Path> points = mounts.stream().filter(mount -> !mount.type().equals("autofs")).map(Mount::point).distinct()
                .toList();
        ExecutorService askers = Executors.newFixedThreadPool(AT_ONCE, task -> {
            Thread thread = new Thread(task, "lumetra-doctor");
            thread.setDaemon(true);
            return thread;
        });
        List<Future<Boolean>> answers = new ArrayList<>();
        points.forEach(point -> answers.add(askers.submit(() -> hangs(point))));
        for (int i = 0; i < points.size(); i++) {
            if (isTrue(answers.get(i))) {
                silent.add(points.get(i));
            }
        }
        askers.shutdown();
        if (silent.isEmpty()) {
            return Symptom.ok(Subject.MOUNTS, points.size() == 1 ? "the one file system answers"
                    : "all " + points.size() + " file systems answer");
        }
        List<String> names = silent.stream().map(Path::toString).sorted().toList();
        return new Symptom(Subject.MOUNTS, Severity.PROBLEM,
                (names.size() == 1 ? "a file system does" : names.size() + " file systems do") + " not answer within "
                        + PATIENCE.toSeconds() + " s: " + some(names),
                "No disk is listed while one of them hangs. See to its server or device, or umount -l it.");
    }

    private static String some(List<String> names) {
        int more = names.size() - MOST_NAMES;
        return more <= 0 ? String.join(", ", names)
                : String.join(", ", names.subList(0, MOST_NAMES)) + " and " + more + " more";
    }

    private boolean hangs(Path point) {
        return machine.commands().run(PATIENCE, false, "stat", "-f", "-c", "%T", "--", point.toString()).end()
                == Commands.End.HANGS;
    }

    private static boolean isTrue(Future<Boolean> answer) {
        try {
            return answer.get();
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
            return false;
        } catch (ExecutionException e) {
            return false;
        }
    }

    /** How df ends. */
    Commands.End list() {
        return machine.commands().run(PATIENCE, false, "df").end();
    }

    /** What that means, once each file system has been asked. */
    Symptom df(Commands.End end) {
        return switch (end) {
            case DONE -> Symptom.ok(Subject.DF, "df lists the disks");
            case FAILED -> new Symptom(Subject.DF, Severity.WARNING,
                    "df ends with an error: what it lists is watched, and not what it complains about",
                    "Run df and see.");
            case MISSING -> new Symptom(Subject.DF, Severity.PROBLEM, "there is no df, so no disk is watched",
                    "Install it (coreutils), or put its directory into the agent's PATH.");
            case HANGS -> new Symptom(Subject.DF, Severity.PROBLEM,
                    "df does not end within " + PATIENCE.toSeconds() + " s, so no disk is watched",
                    silent.isEmpty() ? "Run df and see where it stops."
                            : "See to the file systems that do not answer.");
        };
    }
}
