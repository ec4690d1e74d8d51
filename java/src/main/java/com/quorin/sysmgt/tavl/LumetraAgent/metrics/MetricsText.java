package com.quorin.sysmgt.tavl.LumetraAgent.metrics;

import java.math.BigDecimal;
import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.List;
import java.util.Locale;

/** Writes metrics, family by family, in one of the two forms. */
final class MetricsText {

    /** The metrics of thousands of resources are megabytes: they are encoded piece by piece. */
    private static final int PIECE = 64 * 1024;

    /** The types of families that the agent has. */
    enum Type {
        /** A value that goes up and down. */
        GAUGE,
        /** A value that only grows. */
        COUNTER,
        /** A count of observations and their sum. */
        SUMMARY,
        /** A text in a label of a constant 1. */
        INFO
    }

    private final MetricsFormat format;
    private final StringBuilder out = new StringBuilder();
    private final List<byte[]> pieces = new ArrayList<>();
    private String name = "";

    MetricsText(MetricsFormat format) {
        this.format = format;
    }

    /**
     * Starts a family.
     *
     * @param newName its name, as its samples have it
     * @param unit    the unit that its name ends with; empty for none
     * @param help    what it tells, in one line without backslashes and quotation marks
     */
    void family(String newName, Type type, String unit, String help) {
        name = newName;
        boolean open = format == MetricsFormat.OPEN;
        String family = open ? without(newName, type) : newName;
        String typeName = !open && type == Type.INFO ? "gauge" : type.name().toLowerCase(Locale.ROOT);
        out.append("# HELP ").append(family).append(' ').append(help).append('\n');
        out.append("# TYPE ").append(family).append(' ').append(typeName).append('\n');
        if (open && !unit.isEmpty()) {
            out.append("# UNIT ").append(family).append(' ').append(unit).append('\n');
        }
    }

    /** In OpenMetrics a family of counters has no "_total", and one of texts no "_info". */
    private static String without(String name, Type type) {
        String end = type == Type.COUNTER ? "_total" : type == Type.INFO ? "_info" : "";
        return name.endsWith(end) ? name.substring(0, name.length() - end.length()) : name;
    }

    /**
     * A sample of the present family.
     *
     * @param labels see {@link #labels}; empty for none
     */
    void sample(String labels, double value) {
        sample("", labels, value);
    }

    /** A sample whose name is longer than its family's, by a suffix. */
    void sample(String suffix, String labels, double value) {
        out.append(name).append(suffix);
        if (!labels.isEmpty()) {
            out.append('{').append(labels).append('}');
        }
        out.append(' ').append(number(value)).append('\n');
        if (out.length() >= PIECE) {
            encode();
        }
    }

    private void encode() {
        pieces.add(out.toString().getBytes(StandardCharsets.UTF_8));
        out.setLength(0);
    }

    /** Labels as they stand between the braces, of names and values in turn. */
    static String labels(String... namesAndValues) {
        StringBuilder text = new StringBuilder();
        for (int i = 0; i < namesAndValues.length; i += 2) {
            text.append(i == 0 ? "" : ",").append(namesAndValues[i]).append("=\"")
                    .append(escaped(namesAndValues[i + 1])).append('"');
        }
        return text.toString();
    }

    private static String escaped(String value) {
        return value.replace("\\", "\\\\").replace("\"", "\\\"").replace("\n", "\\n");
    }

    /** Plain digits without an exponent. */
    private static String number(double value) {
        if (Double.isNaN(value)) {
            return "NaN";
        }
        if (Double.isInfinite(value)) {
            return value > 0 ? "+Inf" : "-Inf";
        }
        return new BigDecimal(Double.toString(value)).stripTrailingZeros().toPlainString();
    }

    /** The finished text in UTF-8. */
    byte[] bytes() {
        out.append(format == MetricsFormat.OPEN ? "# EOF\n" : "");
        encode();
        ByteBuffer all = ByteBuffer.allocate(pieces.stream().mapToInt(piece -> piece.length).sum());
        pieces.forEach(all::put);
        return all.array();
    }
}
