package com.quorin.sysmgt.tavl.LumetraAgent.text;

import java.nio.ByteBuffer;
import java.nio.CharBuffer;
import java.nio.charset.CharacterCodingException;
import java.nio.charset.CharsetDecoder;
import java.nio.charset.CoderResult;
import java.nio.charset.CodingErrorAction;
import java.nio.charset.StandardCharsets;
import java.time.Duration;
import java.util.Locale;

/** Durations, sizes and foreign names as a person reads them. */
public final class Words {

    private static final String[] BINARY_UNITS = {"bytes", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};

    private Words() {}

    /**
     * A duration rounded to what matters at its size: "45 s", "33 min", "2 h 15 min", "3 days 4 h". A negative one is
     * taken for zero.
     */
    public static String ofDuration(Duration duration) {
        long seconds = Math.max(0, duration.getSeconds());
        if (seconds < 120) {
            return seconds + " s";
        }
        long minutes = (seconds + 30) / 60;
        if (minutes < 120) {
            return minutes + " min";
        }
        if (minutes < 48 * 60) {
            return withRest(minutes / 60 + " h", minutes % 60, "min");
        }
        long hours = (minutes + 30) / 60;
        return withRest(hours / 24 + " days", hours % 24, "h");
    }

    private static String withRest(String main, long rest, String unit) {
        return rest == 0 ? main : main + " " + rest + " " + unit;
    }

    /** A number of bytes in the largest binary unit that leaves at least one: "512 bytes", "95.7 GiB". */
    public static String ofBytes(double bytes) {
        double rest = bytes;
        int unit = 0;
        while (Math.abs(rest) >= 1024 && unit < BINARY_UNITS.length - 1) {
            rest /= 1024;
            unit++;
        }
        String form = unit == 0 ? "%.0f %s" : "%.1f %s";
        return String.format(Locale.ROOT, form, rest, BINARY_UNITS[unit]);
    }

    /**
     * A text of bytes as readable text without control characters: valid UTF-8 is decoded, every other byte and every
     * control character is shown as an escape.
     *
     * @param bytes one character, 0 to 255, for each byte
     */
    public static String ofBytes(String bytes) {
        CharsetDecoder decoder = StandardCharsets.UTF_8.newDecoder()
                .onMalformedInput(CodingErrorAction.REPORT)
                .onUnmappableCharacter(CodingErrorAction.REPORT);
        ByteBuffer in = ByteBuffer.wrap(bytes.getBytes(StandardCharsets.ISO_8859_1));
        StringBuilder out = new StringBuilder(bytes.length());
        CharBuffer decoded = CharBuffer.allocate(in.remaining() + 1);
        while (in.hasRemaining()) {
            CoderResult result = decoder.decode(in, decoded, true);
            decoded.flip();
            out.append(printable(decoded.toString()));
            decoded.clear();
            decoder.reset();
            if (result.isError()) {
                appendEscaped(out, result, in);
            }
        }
        return out.toString();
    }

    /**
     * A text of bytes as the native library hands it to Java, control characters included: valid UTF-8 is decoded,
     * every other byte becomes U+FFFD.
     *
     * @param bytes one character, 0 to 255, for each byte
     */
    public static String asFromLibrary(String bytes) {
        CharsetDecoder decoder = StandardCharsets.UTF_8.newDecoder();
        ByteBuffer in = ByteBuffer.wrap(bytes.getBytes(StandardCharsets.ISO_8859_1));
        CharBuffer out = CharBuffer.allocate(in.remaining() + 1);
        while (in.hasRemaining()) {
            CoderResult result = decoder.decode(in, out, true);
            for (int i = 0; result.isError() && i < result.length(); i++) {
                in.get();
                out.put('\ufffd');
            }
            decoder.reset();
        }
        return out.flip().toString();
    }

    private static void appendEscaped(StringBuilder out, CoderResult result, ByteBuffer in) {
        for (int i = 0; i < result.length() && in.hasRemaining(); i++) {
            out.append(String.format(Locale.ROOT, "\\x%02x", in.get() & 0xff));
        }
    }

    /**
     * Text without anything that could move the cursor, start a line or reverse the reading order: such characters
     * are shown as escapes ("\n", "\x1b", "\u202e"). Null is shown as an empty text.
     */
    public static String printable(String text) {
        if (text == null) {
            return "";
        }
        StringBuilder out = new StringBuilder(text.length());
        text.codePoints().forEach(c -> appendPrintable(out, c));
        return out.toString();
    }

    private static void appendPrintable(StringBuilder out, int c) {
        switch (c) {
            case '\n' -> out.append("\\n");
            case '\r' -> out.append("\\r");
            case '\t' -> out.append("\\t");
            default -> {
                if (!isHarmful(c)) {
                    out.appendCodePoint(c);
                } else if (c < 0x100) {
                    out.append(String.format(Locale.ROOT, "\\x%02x", c));
                } else {
                    out.append(String.format(Locale.ROOT, "\\u%04x", c));
                }
            }
        }
    }

    private static boolean isHarmful(int c) {
        int type = Character.getType(c);
        return type == Character.CONTROL || type == Character.FORMAT || type == Character.SURROGATE
                || type == Character.LINE_SEPARATOR || type == Character.PARAGRAPH_SEPARATOR;
    }

    /** The path that a text of bytes, one character for each, names, as Java spells it. */
    static String toPathText(String bytes) {
        try {
            byte[] raw = bytes.getBytes(StandardCharsets.ISO_8859_1);
            return StandardCharsets.UTF_8.newDecoder().decode(ByteBuffer.wrap(raw)).toString();
        } catch (CharacterCodingException e) {
            return bytes;
        }
    }
}
