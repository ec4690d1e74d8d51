package com.quorin.sysmgt.tavl.LumetraAgent;

import java.util.List;
import java.util.Locale;

/** A JSON object under construction, on one line; valid for any text and any number. Not thread-safe. */
final class JsonObject {

    private final StringBuilder out = new StringBuilder("{");

    /** Starts an empty object. */
    JsonObject() {
        // the opening brace is there
    }

    /**
     * Adds a text.
     *
     * @param name  the member's name
     * @param value the text; null becomes JSON's null
     * @return this object
     */
    JsonObject text(String name, String value) {
        member(name);
        if (value == null) {
            out.append("null");
        } else {
            quote(value);
        }
        return this;
    }

    /**
     * Adds a number.
     *
     * @param name  the member's name
     * @param value the number; one that JSON cannot spell (NaN, infinite) becomes null
     * @return this object
     */
    JsonObject number(String name, double value) {
        member(name);
        out.append(Double.isFinite(value) ? Double.toString(value) : "null");
        return this;
    }

    /**
     * Adds a whole number.
     *
     * @param name  the member's name
     * @param value the number
     * @return this object
     */
    JsonObject whole(String name, long value) {
        member(name);
        out.append(value);
        return this;
    }

    /**
     * Adds a list of objects.
     *
     * @param name  the member's name
     * @param value the objects, each complete
     * @return this object
     */
    JsonObject objects(String name, List<JsonObject> value) {
        member(name);
        List<String> texts = value.stream().map(JsonObject::toString).toList();
        out.append('[').append(String.join(",", texts)).append(']');
        return this;
    }

    private void member(String name) {
        if (out.length() > 1) {
            out.append(',');
        }
        quote(name);
        out.append(':');
    }

    private void quote(String text) {
        out.append('"');
        text.codePoints().forEach(c -> {
            switch (c) {
                case '"' -> out.append("\\\"");
                case '\\' -> out.append("\\\\");
                case '\n' -> out.append("\\n");
                case '\r' -> out.append("\\r");
                case '\t' -> out.append("\\t");
                default -> {
                    if (isEscaped(c)) {
                        out.append(String.format(Locale.ROOT, "\\u%04x", c));
                    } else {
                        out.appendCodePoint(c);
                    }
                }
            }
        });
        out.append('"');
    }

    /** Control characters, foreign line ends, and halves of a character, which UTF-8 cannot spell. */
    private static boolean isEscaped(int c) {
        return c < 0x20 || c >= 0x7f && c < 0xa0 || c == 0x2028 || c == 0x2029 || c >= 0xd800 && c < 0xe000;
    }

    /**
     * The object so far.
     *
     * @return complete JSON without a line break
     */
    @Override
    public String toString() {
        return out + "}";
    }
}
