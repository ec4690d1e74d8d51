package com.quorin.sysmgt.tavl.LumetraAgent;

import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Comparator;
import java.util.List;
import java.util.Map;
import java.util.Optional;
import java.util.TreeMap;

/**
 * Checks all that the agent reads at its start, without the agent. An error is what the agent refuses, by
 * exactly its own judgement; a warning is what it accepts although it can hardly be meant.
 */
final class AgentCheck {

    private final CheckHome home;
    private final Path configuration;
    private final List<Finding> findings = new ArrayList<>();

    private AgentCheck(Path directory, Path configuration) {
        home = new CheckHome(directory);
        this.configuration = configuration;
    }

    /**
     * Checks a home and a configuration.
     *
     * @param directory     the home
     * @param configuration the configuration file
     * @return the findings: those of a file together, in the order of their places
     */
    static List<Finding> of(Path directory, Path configuration) {
        AgentCheck check = new AgentCheck(directory, configuration);
        if (check.checkHome()) {
            check.checkConfiguration();
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
            findings.add(new Finding(FindingKind.HOME_MISSING, label, 0, 0, label, List.of()));
            return false;
        }
        if (!Files.isDirectory(home.bin())) {
            findings.add(new Finding(FindingKind.BIN_MISSING, label, 0, 0, CheckHome.label(home.bin()),
                    List.of()));
        }
        return true;
    }

    private void checkConfiguration() {
        Optional<String> obstacle = CheckHome.whyUnopenable(configuration);
        Optional<String> kind = CheckHome.whyNoFile(configuration);
        CheckedText text = read(configuration, obstacle.isEmpty() && kind.isEmpty());
        if (obstacle.isPresent()) {
            text.addWhole(FindingKind.CONFIGURATION_UNOPENABLE, obstacle.get());
        } else if (kind.isPresent()) {
            text.addWhole(FindingKind.CONFIGURATION_NOT_A_FILE, kind.get());
        } else {
            ConfigurationCheck.check(text).ifPresent(items -> checkAll(text, items));
        }
    }

    private CheckedText read(Path file, boolean readable) {
        CheckedText text = new CheckedText(CheckHome.label(file), readable ? CheckHome.read(file) : "",
                findings);
        if (readable && CheckHome.size(file) > CheckHome.MOST_BYTES) {
            text.addWhole(FindingKind.FILE_TOO_LONG, Long.toString(CheckHome.size(file)),
                    Integer.toString(CheckHome.MOST_BYTES));
        }
        return text;
    }

    private void checkAll(CheckedText text, CheckedItems items) {
        Path file = home.resolve(items.path(5));
        Optional<String> obstacle = CheckHome.whyUnopenable(file);
        Optional<String> kind = CheckHome.whyNoFile(file);
        int place = items.place(5);
        if (obstacle.isPresent()) {
            text.add(place, FindingKind.DECLARATIONS_UNOPENABLE, CheckHome.label(file), obstacle.get());
        } else if (kind.isPresent()) {
            text.add(place, FindingKind.DECLARATIONS_NOT_A_FILE, CheckHome.label(file), kind.get());
        } else {
            checkDeclarations(text, items, file);
        }
        new HomeCheck(home, configuration, items, text, findings).check();
    }

    private void checkDeclarations(CheckedText configurationText, CheckedItems items, Path file) {
        CheckedText text = read(file, true);
        DeclarationCheck.Result result = DeclarationCheck.check(text);
        boolean rewritten = result.rewritten() && CheckHome.size(file) <= CheckHome.MOST_BYTES;
        if (!result.accepted()) {
            return;
        }
        if (rewritten && result.comment() >= 0) {
            text.add(result.comment(), FindingKind.COMMENT_NOT_KEPT, "/*");
        }
        List<CheckedInput> resources = DeclarationJudge.judge(text, result.inputs());
        WindowCheck.check(configurationText, items, text, resources, rewritten);
    }
}
