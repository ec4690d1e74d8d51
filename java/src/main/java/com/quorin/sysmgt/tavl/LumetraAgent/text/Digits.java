package com.quorin.sysmgt.tavl.LumetraAgent.text;

/**
 * Numbers as text, as {@link Double#toString} has them. That searches for the shortest digits, which is most of what a
 * long answer costs; numbers that were rounded to four decimals have theirs at once.
 */
public final class Digits {

    private static final int DECIMALS = 10_000;
    private static final double LEAST = 1e-3;
    private static final double MOST = 1e7;

    private Digits() {}

    /** The text of any number. */
    public static String of(double value) {
        StringBuilder text = new StringBuilder(16);
        append(text, value);
        return text.toString();
    }

    /** Writes the text of any number behind what is there. */
    public static void append(StringBuilder text, double value) {
        double size = Math.abs(value);
        long parts = (long) (size * DECIMALS + 0.5);
        if (size >= LEAST && size < MOST && (double) parts / DECIMALS == size) {
            append(text, value < 0, parts);
        } else {
            text.append(value);
        }
    }

    private static void append(StringBuilder text, boolean isNegative, long parts) {
        if (isNegative) {
            text.append('-');
        }
        text.append(parts / DECIMALS).append('.');
        int left = (int) (parts % DECIMALS);
        int scale = DECIMALS / 10;
        do {
            text.append((char) ('0' + left / scale));
            left %= scale;
            scale /= 10;
        } while (left > 0);
    }
}
