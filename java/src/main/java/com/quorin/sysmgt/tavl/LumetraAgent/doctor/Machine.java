package com.quorin.sysmgt.tavl.LumetraAgent.doctor;

import com.quorin.sysmgt.tavl.LumetraAgent.text.FileText;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.Optional;

/**
 * A machine as its kernel describes it.
 *
 * @param root where its /proc, /sys and /run lie
 */
record Machine(Path root, Commands commands) {

    /** A file's content, one character for each byte; empty when it cannot be read. */
    Optional<String> text(String path) {
        return FileText.read(root.resolve(path));
    }

    List<String> lines(String path) {
        return text(path).map(text -> text.lines().toList()).orElse(List.of());
    }

    boolean has(String path) {
        return Files.exists(root.resolve(path));
    }

    /** What follows a word at the start of a line of a file: the value of a field. */
    Optional<String> field(String path, String start) {
        return lines(path).stream().filter(line -> line.startsWith(start))
                .map(line -> line.substring(start.length()).strip()).findFirst();
    }

    /** A whole number; empty for anything else. */
    static Optional<Long> number(String text) {
        try {
            return Optional.of(Long.parseLong(text.strip()));
        } catch (NumberFormatException e) {
            return Optional.empty();
        }
    }
}
