package com.quorin.sysmgt.tavl.LumetraAgent.doctor;

import com.quorin.sysmgt.tavl.LumetraAgent.text.FileText;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Optional;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/**
 * A file system in its place.
 *
 * @param options those of the mount and of the file system
 */
record Mount(Path point, String type, List<String> options) {

    private static final int POINT = 4;
    private static final int OPTIONS = 5;
    private static final Pattern ESCAPE = Pattern.compile("\\\\([0-3][0-7]{2})");

    /** All that a process sees, in the order in which they were made. */
    static List<Mount> of(Machine machine) {
        return machine.lines("proc/self/mountinfo").stream().map(Mount::parse).flatMap(Optional::stream).toList();
    }

    /** The one that a path, without links, lies on. */
    static Optional<Mount> under(List<Mount> mounts, Path path) {
        return mounts.stream().filter(mount -> path.startsWith(mount.point))
                .reduce((one, other) -> one.point.getNameCount() > other.point.getNameCount() ? one : other);
    }

    private static Optional<Mount> parse(String line) {
        String[] words = line.split(" ");
        int dash = List.of(words).indexOf("-");
        if (dash <= OPTIONS || words.length < dash + 4) {
            return Optional.empty();
        }
        List<String> options = new ArrayList<>(List.of(words[OPTIONS].split(",")));
        options.addAll(List.of(words[dash + 3].split(",")));
        return Optional.of(new Mount(FileText.path(unescaped(words[POINT])), words[dash + 1], options));
    }

    private static String unescaped(String text) {
        Matcher escapes = ESCAPE.matcher(text);
        return escapes.replaceAll(found -> Matcher.quoteReplacement(
                String.valueOf((char) Integer.parseInt(found.group(1), 8))));
    }
}
