package com.quorin.sysmgt.tavl.LumetraAgent.http;

import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import java.util.stream.Stream;

/**
 * A request, taken apart. What two programs could read in two ways is refused, never guessed at.
 *
 * @param path    as it was sent, percent signs and all
 * @param query   as it was sent, without its question mark; null for none
 * @param headers by their names in lower case
 */
record WebRequest(String method, String path, String query, boolean isOldest, Map<String, List<String>> headers) {

    /** Stands for what was no request. */
    static final WebRequest NONE = new WebRequest("", "", null, true, Map.of());

    private static final int MOST_HEADERS = 64;
    private static final String TOKEN = "([!#$%&'*+.^_`|~0-9A-Za-z-]+)";
    private static final Pattern LINE = Pattern.compile(TOKEN + " ([!-~]+) HTTP/1\\.([0-9])");
    private static final Pattern HEADER = Pattern.compile(TOKEN + ":([\\t -~\\x80-\\xff]*)");

    /**
     * Takes a request apart.
     *
     * @param text up to the empty line at its end
     * @throws WebProblem 400 or 431
     */
    static WebRequest of(String text) throws WebProblem {
        String[] lines = text.split("\r\n");
        Matcher line = LINE.matcher(lines[0]);
        if (!line.matches()) {
            throw new WebProblem(400, "A request begins with a method, a path and HTTP/1.1.");
        }
        String target = line.group(2);
        if (!target.startsWith("/") || target.startsWith("//") || target.contains("#")) {
            throw new WebProblem(400, "The request must name a path of this server.");
        }
        int mark = target.indexOf('?');
        return new WebRequest(line.group(1), mark < 0 ? target : target.substring(0, mark),
                mark < 0 ? null : target.substring(mark + 1), line.group(3).equals("0"), headers(lines));
    }

    private static Map<String, List<String>> headers(String[] lines) throws WebProblem {
        if (lines.length - 1 > MOST_HEADERS) {
            throw WebProblem.tooLarge();
        }
        Map<String, List<String>> headers = new HashMap<>();
        for (int i = 1; i < lines.length; i++) {
            Matcher header = HEADER.matcher(lines[i]);
            if (!header.matches()) {
                throw new WebProblem(400, "A header is a name, a colon and a value, on one line.");
            }
            headers.computeIfAbsent(header.group(1).toLowerCase(Locale.ROOT), name -> new ArrayList<>())
                    .add(header.group(2).strip());
        }
        return headers;
    }

    /** All values of a header; empty for none. */
    List<String> all(String name) {
        return headers.getOrDefault(name, List.of());
    }

    /** The values of a header as the list that they are together; empty for none. */
    String joined(String name) {
        return String.join(",", all(name));
    }

    /** Whether a body is announced, however that is done. */
    boolean hasBody() {
        return headers.containsKey("transfer-encoding")
                || headers.containsKey("content-length") && !all("content-length").equals(List.of("0"));
    }

    /** Whether the connection ends behind the answer; a body that was announced is not waited for. */
    boolean isLast() {
        return isOldest || hasBody()
                || Stream.of(joined("connection").split(",")).anyMatch(word -> word.strip().equalsIgnoreCase("close"));
    }
}
