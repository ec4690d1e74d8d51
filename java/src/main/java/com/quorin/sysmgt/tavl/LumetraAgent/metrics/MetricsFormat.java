package com.quorin.sysmgt.tavl.LumetraAgent.metrics;

import java.util.Arrays;
import java.util.List;
import java.util.Locale;

/** The two text forms of metrics, and which of them a client wants. */
enum MetricsFormat {
    /** The Prometheus text format 0.0.4. */
    CLASSIC("text/plain; version=0.0.4; charset=utf-8"),
    /** OpenMetrics 1.0. */
    OPEN("application/openmetrics-text; version=1.0.0; charset=utf-8");

    private static final List<String> CLASSIC_TYPES = List.of("text/plain", "text/*", "*/*");

    private final String contentType;

    MetricsFormat(String contentType) {
        this.contentType = contentType;
    }

    String contentType() {
        return contentType;
    }

    /**
     * The form that a client's Accept headers prefer: OpenMetrics when it is named and nothing is preferred to it,
     * otherwise the classic form, which also goes to those who want neither.
     */
    static MetricsFormat wantedBy(List<String> accepted) {
        double open = 0;
        double classic = 0;
        for (String range : String.join(",", accepted).split(",")) {
            String[] words = range.toLowerCase(Locale.ROOT).split(";", -1);
            Arrays.setAll(words, i -> words[i].strip());
            if (words[0].equals("application/openmetrics-text") && isVersion(words, "1.0.0")) {
                open = Math.max(open, quality(words));
            } else if (CLASSIC_TYPES.contains(words[0]) && isVersion(words, "0.0.4")) {
                classic = Math.max(classic, quality(words));
            }
        }
        return open > 0 && open >= classic ? OPEN : CLASSIC;
    }

    /** A client that names no version takes the one there is. */
    private static boolean isVersion(String[] words, String version) {
        for (String word : words) {
            if (word.startsWith("version=")) {
                return word.substring(8).replace("\"", "").equals(version);
            }
        }
        return true;
    }

    private static double quality(String[] words) {
        for (String word : words) {
            if (word.startsWith("q=")) {
                return word.matches("q=[01](\\.\\d{0,3})?") ? Double.parseDouble(word.substring(2)) : 0;
            }
        }
        return 1;
    }
}
