package com.quorin.sysmgt.tavl.LumetraAgent.host;

import com.quorin.sysmgt.tavl.LumetraAgent.CheckFeed;
import com.quorin.sysmgt.tavl.LumetraAgent.HostFeed;
import com.quorin.sysmgt.tavl.LumetraAgent.check.SkipRules;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Optional;
import java.util.stream.Stream;
import picocli.CommandLine;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;

/** Which disks are watched. */
final class DiskOptions {

    @Option(names = "--skip-fstype", paramLabel = "NAME",
            description = "Leave out disks of this type of file system. Repeatable; so does a line "
                    + "\"fstype NAME\" in config/skip.conf of the home.")
    private List<String> types = new ArrayList<>();

    @Option(names = "--skip-mount", paramLabel = "GLOB",
            description = "Leave out disks whose mount point matches this pattern, in which no wildcard matches "
                    + "a /. Repeatable; so does a line \"mount GLOB\" in config/skip.conf.")
    private List<String> mounts = new ArrayList<>();

    @Option(names = "--all-disks", description = "Leave out no disk: not by config/skip.conf, not what is full by "
            + "its nature (squashfs, iso9660 and their like), not further mounts of one file system.")
    private boolean all;

    private List<String> rules() {
        return Stream.concat(types.stream().map(type -> "fstype " + type), mounts.stream().map(glob -> "mount " + glob))
                .toList();
    }

    /** Refuses options that contradict each other. */
    void check(CommandLine line) {
        if (all && !rules().isEmpty()) {
            throw new ParameterException(line, "--all-disks leaves no disk out, so it goes without --skip-fstype "
                    + "and --skip-mount");
        }
    }

    /** Refuses rules that the library, which must be loaded, does not take. */
    void checkRules(CommandLine line) {
        for (String rule : CheckFeed.problem().isEmpty() ? rules() : List.<String>of()) {
            Optional<String> expected = rule.contains("\n") ? Optional.of("one line")
                    : SkipRules.expectedFor(bytes(rule));
            if (expected.isPresent()) {
                throw new ParameterException(line, "--skip-" + rule + ": expected " + expected.get());
            }
        }
    }

    /** Hands the rules to the library; of lines of the file that are none it tells. */
    void set(Path home, PrintStream out) {
        if (all) {
            HostFeed.skip(null);
            return;
        }
        SkipRules file = CheckFeed.problem().isEmpty() ? SkipRules.of(home) : new SkipRules(new byte[0], List.of());
        file.findings().stream().filter(SkipRules::isFlaw).forEach(finding -> out.println(finding.text()));
        String given = "\n" + String.join("\n", rules());
        byte[] text = new byte[file.text().length + bytes(given).length];
        System.arraycopy(file.text(), 0, text, 0, file.text().length);
        System.arraycopy(bytes(given), 0, text, file.text().length, bytes(given).length);
        HostFeed.skip(text);
    }

    private static byte[] bytes(String text) {
        return text.getBytes(StandardCharsets.UTF_8);
    }
}
