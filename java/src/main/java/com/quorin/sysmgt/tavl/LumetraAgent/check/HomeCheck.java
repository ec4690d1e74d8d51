package com.quorin.sysmgt.tavl.LumetraAgent.check;

import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.io.IOException;
import java.nio.file.DirectoryStream;
import java.nio.file.Files;
import java.nio.file.LinkOption;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Collections;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.regex.Pattern;

/** Checks the directories and files that a configuration leads to. */
final class HomeCheck {

    private static final int MOST_NAMES = 10;
    private static final Pattern DELETED = Pattern.compile("[^.].*\\.(cul|ini|gnp)", Pattern.DOTALL);
    private static final Pattern AGENTS_OWN = Pattern.compile("(.*BM\\.ini|.*BMPRD\\.gnp|.*BMSMP\\.gnp"
            + "|Percent(Processes|SwapSpace|FileDescriptors)Used\\.cul)", Pattern.DOTALL);

    /** A file that the agent uses, and the item that names it; 0 for none. */
    private record Use(int item, String name, Path path) {}

    private final CheckHome home;
    private final Path configuration;
    private final ConfigurationItems items;
    private final CheckedFile file;

    HomeCheck(CheckHome home, Path configuration, ConfigurationItems items, CheckedFile file) {
        this.home = home;
        this.configuration = configuration;
        this.items = items;
        this.file = file;
    }

    /** Checks everything but the content of the files. */
    void check() {
        checkFixed("../log", "the log, which is lost without it");
        checkFixed("../tempdata", "the disk listings, which go through a pipe without it");
        checkDirectory(CheckHome.parent(home.resolve(items.archive())), 1, "the archive and the trend files");
        checkOutput(home.resolve(items.archive()), 2, "the archive");
        Path pad = home.resolve(items.path(3));
        if (!CheckHome.parent(pad).equals(CheckHome.parent(home.resolve(items.archive())))) {
            checkDirectory(CheckHome.parent(pad), 3, "the scratch pad");
        }
        checkOutput(pad, 3, "the scratch pad");
        checkRewriting(home.resolve(items.path(5)));
        checkSameFiles();
        checkDeletion();
    }

    private void checkFixed(String path, String purpose) {
        Path directory = home.resolve(path);
        String label = CheckHome.label(directory);
        CheckedFile checked = new CheckedFile(label, file.findings());
        if (!Files.isDirectory(directory)) {
            checked.add(Place.NOWHERE, FindingKind.DIRECTORY_MISSING, label, purpose);
        } else if (!Files.isWritable(directory)) {
            checked.add(Place.NOWHERE, FindingKind.DIRECTORY_UNWRITABLE, label, purpose);
        }
    }

    /** The agent makes the directories in the name of the data home directory, and no others. */
    private void checkDirectory(Path directory, int item, String purpose) {
        Path existing = directory;
        while (!Files.exists(existing) && !existing.equals(CheckHome.parent(existing))) {
            existing = CheckHome.parent(existing);
        }
        boolean made = madeAtStart().startsWith(directory);
        if (!Files.isDirectory(existing) || !existing.equals(directory) && !made) {
            tell(item, FindingKind.DIRECTORY_MISSING, directory, purpose);
        } else if (!Files.isWritable(existing)) {
            tell(item, FindingKind.DIRECTORY_UNWRITABLE, existing, purpose);
        }
    }

    private Path madeAtStart() {
        String name = items.path(1);
        return home.resolve(name.substring(0, name.lastIndexOf('/') + 1));
    }

    private void tell(int item, FindingKind kind, Path path, String detail) {
        file.add(items.place(item), kind, CheckHome.label(path), detail);
    }

    private void checkOutput(Path output, int item, String name) {
        if (!Files.exists(output)) {
            return;
        }
        if (!Files.isRegularFile(output)) {
            tell(item, FindingKind.OUTPUT_NOT_A_FILE, output, name);
        } else if (!Files.isWritable(output)) {
            tell(item, FindingKind.OUTPUT_UNWRITABLE, output, name);
        }
    }

    /** The declarations are replaced by a file that is written beside them. */
    private void checkRewriting(Path declarations) {
        if (!Files.isRegularFile(declarations)) {
            return;
        }
        Path target = declarations;
        try {
            target = declarations.toRealPath();
        } catch (IOException e) {
            // the path as it stands will do
        }
        if (!Files.isWritable(target.getParent())) {
            tell(5, FindingKind.DIRECTORY_UNWRITABLE, target.getParent(),
                    "the declarations, which take no measured capacities then");
        }
    }

    private void checkSameFiles() {
        List<Use> uses = List.of(new Use(0, "the configuration", configuration),
                new Use(0, "the log", home.resolve("../log/LumetraAgent.log")),
                new Use(2, "the archive", home.resolve(items.archive())),
                new Use(3, "the scratch pad", home.resolve(items.path(3))),
                new Use(5, "the resource declarations", home.resolve(items.path(5))));
        Map<Path, Use> known = new HashMap<>();
        for (Use use : uses) {
            Use other = known.putIfAbsent(identity(use.path), use);
            if (other != null && use.item > 0) {
                file.add(items.place(use.item), FindingKind.SAME_FILE, CheckHome.label(use.path), use.name,
                        other.name);
            }
        }
    }

    private static Path identity(Path path) {
        try {
            return path.toRealPath();
        } catch (IOException e) {
            return path.toAbsolutePath().normalize();
        }
    }

    private void checkDeletion() {
        List<String> names = new ArrayList<>();
        try (DirectoryStream<Path> entries = Files.newDirectoryStream(home.resolve(items.path(1) + "/"))) {
            for (Path entry : entries) {
                if (isDeleted(entry)) {
                    names.add(Words.printable(entry.getFileName().toString()));
                }
            }
        } catch (IOException e) {
            return; // a directory that the agent cannot search either keeps its files
        }
        if (!names.isEmpty()) {
            Collections.sort(names);
            String all = String.join(", ", names.subList(0, Math.min(MOST_NAMES, names.size())));
            file.add(items.place(1), FindingKind.DELETION_AT_START, names.size() <= MOST_NAMES ? all
                    : all + " and " + (names.size() - MOST_NAMES) + " more");
        }
    }

    private boolean isDeleted(Path entry) {
        String name = entry.getFileName().toString();
        return DELETED.matcher(name).matches() && !AGENTS_OWN.matcher(name).matches()
                && !Files.isDirectory(entry, LinkOption.NOFOLLOW_LINKS) && !isInUse(entry);
    }

    /** The files that the configuration names are safe from the deletion. */
    private boolean isInUse(Path entry) {
        List<Path> used = List.of(configuration, home.resolve(items.path(5)), home.resolve(items.path(3)),
                home.resolve(items.archive()));
        Path real = identity(entry);
        return Files.exists(entry) && used.stream().anyMatch(path -> identity(path).equals(real));
    }
}
