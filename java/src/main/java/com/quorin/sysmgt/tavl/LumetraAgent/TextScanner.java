package com.quorin.sysmgt.tavl.LumetraAgent;

import java.util.Locale;

/** Reads the parts of the agent's own text files the way the agent does. */
final class TextScanner {

    private TextScanner() {}

    /**
     * A number as the agent or its user writes it: "12.50", "-1.", "nan", "inf".
     *
     * @return its value, 0 for a text that is no number
     */
    static double toNumber(String token) {
        String word = token.toLowerCase(Locale.ROOT);
        boolean negative = word.startsWith("-");
        String plain = negative || word.startsWith("+") ? word.substring(1) : word;
        if (plain.startsWith("nan")) {
            return Double.NaN;
        }
        if (plain.startsWith("inf")) {
            return negative ? Double.NEGATIVE_INFINITY : Double.POSITIVE_INFINITY;
        }
        try {
            return Double.parseDouble(token);
        } catch (NumberFormatException e) {
            return 0.0;
        }
    }

    /** Whether a character separates tokens: the blank, the tab and everything that ends a line. */
    static boolean isWhiteSpace(char c) {
        return c == ' ' || (c >= '\t' && c <= '\r');
    }
}
