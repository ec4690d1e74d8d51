package com.quorin.sysmgt.tavl.LumetraAgent.files;

import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.util.ArrayList;
import java.util.List;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/**
 * One of the processes that use most of a resource, as the agent names it.
 *
 * @param name  of the command, up to its first blank or closing parenthesis; any other character may occur
 * @param pid   the process identifier
 * @param value how much it uses: descriptors, resident megabytes or child processes
 */
public record Culprit(String name, long pid, long value) {

    /** A blank, then "name(pid)value"; the name may hold opening parentheses itself. */
    private static final Pattern ENTRY =
            Pattern.compile("(?<![^ ])([^ )]*)\\((-?\\d{1,18})\\)(-?\\d{1,18})(?= |$)");

    /**
     * The entries of a culprit text " name(pid)value name(pid)value", in their order; null has none. What does not
     * look like an entry is passed over.
     */
    public static List<Culprit> parse(String text) {
        List<Culprit> found = new ArrayList<>();
        Matcher entries = ENTRY.matcher(text == null ? "" : text);
        while (entries.find()) {
            found.add(new Culprit(entries.group(1), Long.parseLong(entries.group(2)),
                    Long.parseLong(entries.group(3))));
        }
        return found;
    }

    /** Name, process identifier and value as a person reads them, without control characters. */
    public String inWords() {
        return Words.printable(name) + " (pid " + pid + ") " + value;
    }
}
