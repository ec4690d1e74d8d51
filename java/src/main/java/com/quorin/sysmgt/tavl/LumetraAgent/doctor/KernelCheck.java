package com.quorin.sysmgt.tavl.LumetraAgent.doctor;

import java.nio.file.Path;
import java.time.Duration;
import java.util.List;
import java.util.Optional;

/** What the kernel has and hides: descriptors, swap space, processes, the clock, a container around it all. */
final class KernelCheck {

    /** No machine has so many descriptors open that one of them would be seen in a percentage. */
    private static final long AS_GOOD_AS_UNLIMITED = 1_000_000_000_000L;

    private static final Path PROC = Path.of("/proc");
    private static final Duration PATIENCE = Duration.ofSeconds(5);

    private final Machine machine;

    KernelCheck(Machine machine) {
        this.machine = machine;
    }

    Symptom descriptors() {
        String[] numbers = machine.text("proc/sys/fs/file-nr").orElse("").strip().split("\\s+");
        Optional<Long> most = numbers.length < 3 ? Optional.empty() : Machine.number(numbers[2]);
        if (most.isEmpty()) {
            return new Symptom(Subject.DESCRIPTORS, Severity.WARNING,
                    "how many file descriptors the kernel has open cannot be read", "Look at /proc/sys/fs/file-nr.");
        }
        if (most.get() >= AS_GOOD_AS_UNLIMITED) {
            return new Symptom(Subject.DESCRIPTORS, Severity.NOTICE, "the kernel's maximum of file descriptors is "
                    + most.get() + ", which is none: their percentage of it stays at 0",
                    "Set UpperLimitAbs of PercentFileDescriptorsUsed to what this machine should have open at most, "
                            + "or sysctl fs.file-max.");
        }
        return Symptom.ok(Subject.DESCRIPTORS, "the kernel opens at most " + most.get() + " file descriptors");
    }

    Symptom swap() {
        Optional<Long> total = machine.field("proc/meminfo", "SwapTotal:")
                .flatMap(text -> Machine.number(text.replace("kB", "")));
        if (total.isEmpty()) {
            return new Symptom(Subject.SWAP, Severity.WARNING, "memory and swap space cannot be read",
                    "Look at /proc/meminfo.");
        }
        return total.get() > 0 ? Symptom.ok(Subject.SWAP, "there is swap space")
                : new Symptom(Subject.SWAP, Severity.NOTICE, "there is no swap space, so none is forecast",
                        "Nothing, unless there should be some: swapon --show.");
    }

    Symptom processes(List<Mount> mounts) {
        Optional<String> hiding = mounts.stream().filter(mount -> mount.point().equals(PROC))
                .flatMap(mount -> mount.options().stream())
                .filter(option -> option.startsWith("hidepid=")
                        && !List.of("hidepid=0", "hidepid=off").contains(option))
                .findFirst();
        return hiding.map(option -> new Symptom(Subject.PROCESSES, Severity.WARNING,
                "/proc is mounted with " + option + ": an agent that is not root does not see other users' processes "
                        + "and names none of them",
                "mount -o remount,hidepid=0 /proc, or name the agent's group: gid=."))
                .orElseGet(() -> Symptom.ok(Subject.PROCESSES, "all users' processes are seen"));
    }

    Symptom clock() {
        Commands.Outcome asked =
                machine.commands().run(PATIENCE, true, "timedatectl", "show", "-p", "NTPSynchronized", "--value");
        return switch (asked.end() == Commands.End.DONE ? asked.output() : "") {
            case "yes" -> Symptom.ok(Subject.CLOCK, "the clock is synchronised");
            case "no" -> new Symptom(Subject.CLOCK, Severity.WARNING,
                    "the clock is not synchronised: times may be wrong, and a jump confuses forecasts for a while",
                    "Have it synchronised: systemctl enable --now systemd-timesyncd, or chrony.");
            default -> new Symptom(Subject.CLOCK, Severity.NOTICE,
                    "whether the clock is synchronised cannot be told here",
                    "Look at it: timedatectl, or chronyc tracking.");
        };
    }

    Symptom container() {
        Optional<String> kind = machine.text("run/systemd/container").map(String::strip)
                .or(() -> machine.has(".dockerenv") ? Optional.of("docker") : Optional.empty())
                .or(() -> machine.has("run/.containerenv") ? Optional.of("podman") : Optional.empty())
                .or(() -> machine.text("proc/1/environ").flatMap(KernelCheck::containerOf));
        return kind.map(name -> new Symptom(Subject.CONTAINER, Severity.NOTICE,
                "this is a container (" + name + "): the agent sees the container's mounts and processes, and of the "
                        + "machine around it memory, swap space and descriptors at most",
                "To watch the machine, run the agent there."))
                .orElseGet(() -> Symptom.ok(Subject.CONTAINER, "no container is in the way"));
    }

    private static Optional<String> containerOf(String environment) {
        return List.of(environment.split("\0")).stream().filter(word -> word.startsWith("container="))
                .map(word -> word.substring("container=".length())).findFirst();
    }
}
