package com.quorin.sysmgt.tavl.LumetraAgent.check;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Comparator;
import java.util.List;
import java.util.Map;
import java.util.Optional;
import java.util.TreeMap;

/**
 * Checks all that the agent reads at its start, with its library but without the agent. An error is what the
 * agent refuses, by exactly its own judgement; a warning is what it accepts although it can hardly be meant.
 */
public final class AgentCheck {

    private final CheckHome home;
    private final Path configuration;
    private final List<Finding> findings = new ArrayList<>();

    private AgentCheck(Path directory, Path configuration) {
        home = new CheckHome(directory);
        this.configuration = configuration;
    }

    /** Checks a home and a configuration. The findings of a file are together, in the order of their places. */
    public static List<Finding> of(Path directory, Path configuration) {
        AgentCheck check = new AgentCheck(directory, configuration);
        if (check.checkHome()) {
            check.checkConfiguration();
            check.findings.addAll(SkipRules.of(directory).findings());
            check.checkPlaces();
        }
        return check.inOrder();
    }

    private List<Finding> inOrder() {
        Map<String, Integer> files = new TreeMap<>();
        findings.forEach(finding -> files.putIfAbsent(finding.file(), files.size()));
        findings.sort(Comparator.comparing((Finding finding) -> files.get(finding.file()))
                .thenComparing(Finding.BY_PLACE));
        return findings;
    }

    private boolean checkHome() {
        String label = CheckHome.label(home.directory());
        if (!Files.isDirectory(home.directory())) {
            new CheckedFile(label, findings).add(Place.NOWHERE, FindingKind.HOME_MISSING, label);
            return false;
        }
        if (!Files.isDirectory(home.bin())) {
            new CheckedFile(label, findings).add(Place.NOWHERE, FindingKind.BIN_MISSING,
                    CheckHome.label(home.bin()));
        }
        return true;
    }

    private void checkConfiguration() {
        CheckedFile file = new CheckedFile(CheckHome.label(configuration), findings);
        Optional<String> obstacle = CheckHome.whyUnopenable(configuration);
        Optional<String> kind = CheckHome.whyNoFile(configuration);
        if (obstacle.isPresent()) {
            file.add(Place.NOWHERE, FindingKind.CONFIGURATION_UNOPENABLE, obstacle.get());
        } else if (kind.isPresent()) {
            file.add(Place.NOWHERE, FindingKind.CONFIGURATION_NOT_A_FILE, kind.get());
        } else {
            ConfigurationCheck.check(file, read(file, configuration))
                    .ifPresent(items -> checkAll(file, items));
        }
    }

    private void checkPlaces() {
        try {
            findings.addAll(LibraryCheck.placesOf(home.directory(), configuration));
        } catch (IOException e) {
            // a home that is gone by now
        }
    }

    private static byte[] read(CheckedFile file, Path path) {
        long size = CheckHome.size(path);
        if (size > CheckHome.MOST_BYTES) {
            file.add(Place.NOWHERE, FindingKind.FILE_TOO_LONG, Long.toString(size),
                    Integer.toString(CheckHome.MOST_BYTES));
        }
        return CheckHome.read(path);
    }

    private void checkAll(CheckedFile configurationFile, ConfigurationItems items) {
        Path path = home.resolve(items.path(5));
        Optional<String> obstacle = CheckHome.whyUnopenable(path);
        Optional<String> kind = CheckHome.whyNoFile(path);
        Place place = items.place(5);
        if (obstacle.isPresent()) {
            configurationFile.add(place, FindingKind.DECLARATIONS_UNOPENABLE, CheckHome.label(path),
                    obstacle.get());
        } else if (kind.isPresent()) {
            configurationFile.add(place, FindingKind.DECLARATIONS_NOT_A_FILE, CheckHome.label(path),
                    kind.get());
        } else {
            checkDeclarations(configurationFile, items, path);
        }
        new HomeCheck(home, configuration, items, configurationFile).check();
    }

    private void checkDeclarations(CheckedFile configurationFile, ConfigurationItems items, Path path) {
        CheckedFile file = new CheckedFile(CheckHome.label(path), findings);
        LibraryCheck.Declarations read = LibraryCheck.declarationsOf(read(file, path), items.number(6),
                items.number(8));
        file.add(read.findings());
        if (!read.accepted()) {
            return;
        }
        if (read.rewritten() && !read.comment().equals(Place.NOWHERE)) {
            file.add(read.comment(), FindingKind.COMMENT_NOT_KEPT, "/*");
        }
        List<DeclaredInput> resources = DeclarationJudge.judge(file, read.inputs());
        new WindowCheck(configurationFile, items, file, read).check(resources);
    }
}
