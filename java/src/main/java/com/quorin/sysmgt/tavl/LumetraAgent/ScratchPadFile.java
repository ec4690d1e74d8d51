package com.quorin.sysmgt.tavl.LumetraAgent;

import java.nio.file.Path;
import java.util.HashMap;
import java.util.Map;
import java.util.Optional;
import java.util.Set;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/** Reads the scratch pad, the file in which the agent keeps the number of every resource it ever met. */
final class ScratchPadFile {

    private static final String HEADER = "Event: ResourceDefinition - Informational";

    /**
     * An instance may hold parentheses of its own, so the fields are told apart by what stands between them.
     */
    private static final Pattern RECORD = Pattern.compile(
            "\\s*([12])\\s+(\\d{1,9})\\s+\\((.*?)\\)   \\((.*)\\)   \\((.*?)\\)   (-?\\d+)\\s.*",
            Pattern.DOTALL);

    private ScratchPadFile() {}

    /**
     * The records of the wanted numbers. Records that are torn are passed over.
     *
     * @param text   the file's content, one character per byte
     * @param wanted the numbers to look for
     * @return for each number found its newest record
     */
    static Map<Integer, KnownResource> parse(String text, Set<Integer> wanted) {
        Map<Integer, KnownResource> found = new HashMap<>();
        int start = text.indexOf(HEADER);
        while (start >= 0) {
            int next = text.indexOf(HEADER, start + HEADER.length());
            String body = text.substring(start + HEADER.length(), next < 0 ? text.length() : next);
            record(body).filter(r -> wanted.contains(r.rid())).ifPresent(r -> found.put(r.rid(), r));
            start = next;
        }
        return found;
    }

    /**
     * The records of the wanted numbers in a file.
     *
     * @param file   the scratch pad
     * @param wanted the numbers to look for
     * @return for each number found its newest record; none when the file cannot be read
     */
    static Map<Integer, KnownResource> read(Path file, Set<Integer> wanted) {
        return FileText.read(file).map(text -> parse(text, wanted)).orElse(Map.of());
    }

    private static Optional<KnownResource> record(String body) {
        Matcher m = RECORD.matcher(body);
        if (!m.matches()) {
            return Optional.empty();
        }
        return Optional.of(new KnownResource(Integer.parseInt(m.group(1)), Integer.parseInt(m.group(2)),
                m.group(3), m.group(4), m.group(5), m.group(6)));
    }
}
