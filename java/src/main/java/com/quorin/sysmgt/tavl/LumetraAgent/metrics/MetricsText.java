package com.quorin.sysmgt.tavl.LumetraAgent.metrics;

import com.quorin.sysmgt.tavl.LumetraAgent.text.Digits;
import java.io.IOException;
import java.io.OutputStream;
import java.io.UncheckedIOException;
import java.math.BigDecimal;
import java.nio.charset.StandardCharsets;
import java.util.Locale;

/** Writes metrics, family by family, in one of the two forms and in UTF-8. */
final class MetricsText {

    /** The metrics of thousands of resources are megabytes: they are encoded piece by piece. */
    private static final int PIECE = 64 * 1024;

    /** The digits of a whole number below this one are those of its shortest text. */
    private static final long LARGEST_EXACT = 1_000_000_000_000_000L;

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
    private final OutputStream target;
    private String name = "";

    MetricsText(MetricsFormat format, OutputStream target) {
        this.format = format;
        this.target = target;
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
        sample(labels, "", value);
    }

    /**
     * A sample of the present family whose labels come in two parts.
     *
     * @param labels see {@link #labels}; empty for none at all
     * @param more   the same, behind a comma; empty for none
     */
    void sample(String labels, String more, double value) {
        out.append(name);
        if (!labels.isEmpty()) {
            out.append('{').append(labels).append(more).append('}');
        }
        end(value);
    }

    /** A sample without labels whose name is longer than its family's, by a suffix. */
    void part(String suffix, double value) {
        out.append(name).append(suffix);
        end(value);
    }

    private void end(double value) {
        out.append(' ');
        appendNumber(value);
        out.append('\n');
        if (out.length() >= PIECE) {
            encode();
        }
    }

    /** Plain digits without an exponent. Nearly all values are whole, and none of those needs more than a long. */
    private void appendNumber(double value) {
        long whole = (long) value;
        if (whole == value && Math.abs(value) < LARGEST_EXACT) {
            out.append(whole);
        } else {
            out.append(number(value));
        }
    }

    private static String number(double value) {
        if (Double.isNaN(value)) {
            return "NaN";
        }
        if (Double.isInfinite(value)) {
            return value > 0 ? "+Inf" : "-Inf";
        }
        String text = Digits.of(value);
        boolean isPlain = text.indexOf('E') < 0 && !text.endsWith("0");
        return isPlain ? text : new BigDecimal(text).stripTrailingZeros().toPlainString();
    }

    private void encode() {
        try {
            target.write(out.toString().getBytes(StandardCharsets.UTF_8));
        } catch (IOException e) {
            throw new UncheckedIOException(e);
        }
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

    /** Writes what there is still to write. */
    void finish() {
        out.append(format == MetricsFormat.OPEN ? "# EOF\n" : "");
        encode();
    }
}
