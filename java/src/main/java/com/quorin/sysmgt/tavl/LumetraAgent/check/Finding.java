package com.quorin.sysmgt.tavl.LumetraAgent.check;

import com.fasterxml.jackson.annotation.JsonIgnore;
import com.fasterxml.jackson.annotation.JsonProperty;
import com.fasterxml.jackson.annotation.JsonPropertyOrder;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.util.Comparator;
import java.util.List;

/**
 * One thing that a check found, in a file or a directory.
 *
 * @param line    from 1 on; 0 for the file as a whole
 * @param column  in characters, from 1 on; 0 for the file as a whole
 * @param found   what was found, readable
 * @param details what else its message tells, readable
 */
@JsonPropertyOrder({"id", "severity", "file", "line", "column", "found", "expected", "message"})
public record Finding(@JsonIgnore FindingKind kind, String file, @JsonIgnore int line, @JsonIgnore int column,
        String found, @JsonIgnore List<String> details) {

    /** By file in the order in which the files were looked at, which a stable sort keeps, and by place. */
    static final Comparator<Finding> BY_PLACE =
            Comparator.comparingInt(Finding::line).thenComparingInt(Finding::column);

    private static final int LONGEST = 80;

    /**
     * A finding at a place.
     *
     * @param details what else its message tells, readable
     */
    Finding(FindingKind kind, String file, Place place, String found, String... details) {
        this(kind, file, place.line(), place.column(), found, List.of(details));
    }

    /**
     * Text of a file as a message shows it: readable, and of a limited length.
     *
     * @param bytes one character for each byte
     */
    static String excerpt(String bytes) {
        // more bytes than that many characters have
        String start = bytes.substring(0, Math.min(bytes.length(), 5 * LONGEST));
        String readable = Words.ofBytes(start);
        int end = readable.offsetByCodePoints(0, Math.min(LONGEST, readable.codePointCount(0,
                readable.length())));
        boolean whole = end == readable.length() && start.length() == bytes.length();
        return whole ? readable : readable.substring(0, end) + "...";
    }

    /** As {@link #excerpt}, in quotation marks. */
    static String quoted(String bytes) {
        return '"' + excerpt(bytes) + '"';
    }

    @JsonProperty
    String id() {
        return kind.id();
    }

    @JsonProperty
    String severity() {
        return kind.severity();
    }

    /** Null for the file as a whole. */
    @JsonProperty("line")
    Integer lineOrNull() {
        return line == 0 ? null : line;
    }

    /** Null for the file as a whole. */
    @JsonProperty("column")
    Integer columnOrNull() {
        return column == 0 ? null : column;
    }

    @JsonProperty
    String expected() {
        return kind.expected(found, details);
    }

    /** What was found, as the beginning of a sentence. */
    public String what() {
        return kind.message(found, details);
    }

    /** What was found and expected, in one sentence. */
    @JsonProperty
    String message() {
        return what() + "; expected " + expected();
    }

    /** The line of the report for people. */
    public String text() {
        String place = line == 0 ? file : file + ":" + line;
        return place + ": " + severity() + ": " + message() + " [" + id() + "]";
    }
}
