package com.quorin.sysmgt.tavl.LumetraAgent.doctor;

import com.quorin.sysmgt.tavl.LumetraAgent.check.AgentCheck;
import com.quorin.sysmgt.tavl.LumetraAgent.check.Finding;
import com.quorin.sysmgt.tavl.LumetraAgent.check.FindingKind;
import com.quorin.sysmgt.tavl.LumetraAgent.check.LibraryCheck;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.Optional;

/** Whether a home can be worked in: its disk, its owner, what the check says of its files. */
final class HomeCondition {

    private static final Duration PATIENCE = Duration.ofSeconds(10);
    private static final long MIB = 1L << 20;
    private static final long LITTLE = 64 * MIB;
    private static final long TOO_LITTLE = MIB;
    private static final List<String> DIRECTORIES = List.of("", "bin", "config", "data", "log", "tempdata");

    private final Machine machine;
    private final List<Mount> mounts;
    private final Path home;
    private final Path configuration;

    HomeCondition(Machine machine, List<Mount> mounts, Path home, Path configuration) {
        this.machine = machine;
        this.mounts = mounts;
        this.home = home;
        this.configuration = configuration;
    }

    /** Whether all of it can be looked at without the risk of a wait for ever, wherever its links lead. */
    boolean answers() {
        List<String> words = new ArrayList<>(List.of("stat", "-L", "--", configuration.toString()));
        DIRECTORIES.forEach(name -> words.add(home.resolve(name).toString()));
        return machine.commands().run(PATIENCE, false, words.toArray(String[]::new)).end() != Commands.End.HANGS;
    }

    /** Those of its directories that this user can see, without links. */
    private List<Path> directories() {
        List<Path> found = new ArrayList<>();
        for (String name : DIRECTORIES) {
            try {
                found.add(home.resolve(name).toRealPath());
            } catch (IOException e) {
                // one that is missing is the check's matter
            }
        }
        return found;
    }

    /** Whether it is there and this user may look into it. */
    boolean isOpen() {
        return Files.isDirectory(home) && Files.isReadable(home) && Files.isExecutable(home);
    }

    Symptom home() {
        if (!Files.isDirectory(home)) {
            return new Symptom(Subject.HOME, Severity.PROBLEM, "there is no home " + home,
                    "Name it with --home, or have lumetra run make one.");
        }
        if (!isOpen()) {
            return new Symptom(Subject.HOME, Severity.NOTICE, "this user may not look into the home " + home,
                    "Ask again as root: what follows is only what can be seen from outside.");
        }
        for (Path directory : directories()) {
            Optional<Mount> mount = Mount.under(mounts, directory).filter(found -> found.options().contains("ro"));
            if (mount.isPresent()) {
                return new Symptom(Subject.HOME, Severity.PROBLEM, directory + " lies on a file system that is mounted "
                        + "read-only, " + mount.get().point() + ": nothing can be kept",
                        "See why (dmesg), and remount it: mount -o remount,rw " + mount.get().point() + ".");
            }
        }
        return Symptom.ok(Subject.HOME, "the home is " + home);
    }

    Symptom space() {
        Symptom worst = Symptom.ok(Subject.SPACE, "the home's disk has room");
        for (Path directory : directories()) {
            Symptom here = spaceAt(directory).orElse(worst);
            worst = here.severity().compareTo(worst.severity()) < 0 ? here : worst;
        }
        return worst;
    }

    private Optional<Symptom> spaceAt(Path directory) {
        Commands.Outcome asked = machine.commands().run(PATIENCE, true, "stat", "-f", "-c", "%a %S %d %c", "--",
                directory.toString());
        String[] numbers = asked.output().split(" ");
        if (asked.end() != Commands.End.DONE || numbers.length != 4) {
            return Optional.empty();
        }
        try {
            long free = Long.parseLong(numbers[0]) * Long.parseLong(numbers[1]);
            boolean lacksInodes = Long.parseLong(numbers[3]) > 0 && Long.parseLong(numbers[2]) < 16;
            if (free >= LITTLE && !lacksInodes) {
                return Optional.empty();
            }
            String what = lacksInodes ? "the file system of " + directory + " has no inodes left"
                    : "the file system of " + directory + " has only " + Words.ofBytes((double) free) + " left";
            return Optional.of(new Symptom(Subject.SPACE,
                    free < TOO_LITTLE || lacksInodes ? Severity.PROBLEM : Severity.WARNING,
                    what + ": samples reach no archive when it is full", "Make room there."));
        } catch (NumberFormatException e) {
            return Optional.empty();
        }
    }

    Symptom owner() {
        try {
            String owner = Files.getOwner(home).getName();
            Optional<Finding> first = LibraryCheck.placesOf(home, configuration).stream().findFirst();
            return first.map(place -> foreign(place, owner)).orElseGet(() -> Symptom.ok(Subject.OWNER,
                    "nobody but its owner, " + owner + ", and root can write in the home"));
        } catch (IOException | RuntimeException e) {
            return new Symptom(Subject.OWNER, Severity.NOTICE, "who may write in the home cannot be seen",
                    "Ask again as root.");
        }
    }

    private static Symptom foreign(Finding place, String owner) {
        return new Symptom(Subject.OWNER, Severity.WARNING, place.what(),
                place.kind() == FindingKind.PLACE_OPEN_TO_OTHERS ? "chmod go-w " + place.file() + "."
                        : "chown " + owner + " " + place.file() + ".");
    }

    Symptom configuration() {
        List<Finding> findings = AgentCheck.of(home, configuration).stream()
                .filter(finding -> !finding.kind().isOfAPlace()).toList();
        long errors = findings.stream().filter(finding -> finding.kind().isError()).count();
        long warnings = findings.size() - errors;
        if (findings.isEmpty()) {
            return Symptom.ok(Subject.CONFIGURATION, "configuration and declarations are in order");
        }
        String what = "lumetra check has " + (errors == 1 ? "1 error" : errors + " errors") + " and "
                + (warnings == 1 ? "1 warning" : warnings + " warnings") + " to tell";
        return new Symptom(Subject.CONFIGURATION, errors > 0 ? Severity.PROBLEM : Severity.WARNING, what,
                "Run lumetra check --home " + home + " --config " + configuration + ".");
    }
}
