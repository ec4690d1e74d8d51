package com.quorin.sysmgt.tavl.LumetraAgent.check;

import com.quorin.sysmgt.tavl.LumetraAgent.files.OwnFile;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Optional;

/**
 * The file of a home that names the disks to be left out. One that is missing has no rules.
 *
 * @param text     as it stands there; empty when it cannot be read
 * @param findings on it, and on what it means on this machine now
 */
public record SkipRules(byte[] text, List<Finding> findings) {

    /** Reads the rules of a home. The library must be loaded. */
    public static SkipRules of(Path home) {
        Path path = home.resolve("config").resolve("skip.conf");
        List<Finding> findings = new ArrayList<>();
        CheckedFile file = new CheckedFile(CheckHome.label(path), findings);
        if (!Files.exists(path)) {
            return new SkipRules(new byte[0], findings);
        }
        Optional<String> obstacle = CheckHome.whyUnopenable(path)
                .or(() -> CheckHome.whyNoFile(path).map(kind -> "it is " + kind))
                .or(() -> objection(path, home));
        if (obstacle.isPresent()) {
            file.add(Place.NOWHERE, FindingKind.SKIP_RULES_UNREADABLE, obstacle.get());
            return new SkipRules(new byte[0], findings);
        }
        byte[] text = CheckHome.read(path);
        file.add(LibraryCheck.skipRulesOf(text));
        return new SkipRules(text, findings);
    }

    /** As the library judges the other files that people write. */
    private static Optional<String> objection(Path path, Path home) {
        try {
            return OwnFile.objectionToGiven(path, OwnFile.owner(home));
        } catch (IOException e) {
            return Optional.of("it is gone");
        }
    }

    /** What was expected in the place of a rule that is none, whatever is mounted; empty for a rule. */
    public static Optional<String> expectedFor(byte[] rule) {
        return LibraryCheck.skipRulesOf(rule).stream().map(found -> found.worded(""))
                .filter(SkipRules::isFlaw).map(Finding::expected).findFirst();
    }

    /** Whether it is about the rules themselves, and not about what is mounted. */
    public static boolean isFlaw(Finding finding) {
        return finding.kind() != FindingKind.SKIP_MATCHES_NOTHING;
    }
}
