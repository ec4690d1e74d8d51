package com.quorin.sysmgt.tavl.LumetraAgent;

import java.util.Locale;
import java.util.Optional;

/**
 * Walks over text the way the agent reads its own files: tokens between white space, arguments between
 * parentheses, numbers that may be malformed.
 */
final class TextScanner {

    private final String text;
    private int position;

    /**
     * Starts at the beginning of a text.
     *
     * @param text the text, one character per byte
     */
    TextScanner(String text) {
        this.text = text;
    }

    /**
     * The next token, that is the characters up to the next white space.
     *
     * @return the token; empty at the end of the text
     */
    Optional<String> token() {
        skipWhiteSpace();
        int start = position;
        while (position < text.length() && !isWhiteSpace(text.charAt(position))) {
            position++;
        }
        return start == position ? Optional.empty() : Optional.of(text.substring(start, position));
    }

    /**
     * The argument between the next "(" and the ")" after it, exactly as it stands there.
     *
     * @return the argument; empty, and the text used up, when a parenthesis is missing
     */
    Optional<String> argument() {
        int open = text.indexOf('(', position);
        int close = open < 0 ? -1 : text.indexOf(')', open + 1);
        if (close < 0) {
            position = text.length();
            return Optional.empty();
        }
        position = close + 1;
        return Optional.of(text.substring(open + 1, close));
    }

    /**
     * The whole number that the next characters spell. What follows its digits stays to be read; characters
     * that spell no number are not passed over.
     *
     * @return the number, brought into the range of 32 bits; empty when there is none
     */
    Optional<Integer> wholeNumber() {
        skipWhiteSpace();
        int end = position;
        if (end < text.length() && (text.charAt(end) == '-' || text.charAt(end) == '+')) {
            end++;
        }
        int digits = end;
        while (end < text.length() && text.charAt(end) >= '0' && text.charAt(end) <= '9') {
            end++;
        }
        if (end == digits) {
            return Optional.empty();
        }
        double value = Double.parseDouble(text.substring(position, end));
        position = end;
        return Optional.of((int) value);
    }

    /**
     * The next token as a number.
     *
     * @return the number, 0 for a token that is none
     */
    double number() {
        return token().map(TextScanner::toNumber).orElse(0.0);
    }

    /**
     * A number as the agent or its user writes it: "12.50", "-1.", "nan", "inf".
     *
     * @param token the text
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

    private void skipWhiteSpace() {
        while (position < text.length() && isWhiteSpace(text.charAt(position))) {
            position++;
        }
    }

    /**
     * Whether a character separates tokens.
     *
     * @param c the character
     * @return true for the blank, the tab and everything that ends a line
     */
    static boolean isWhiteSpace(char c) {
        return c == ' ' || (c >= '\t' && c <= '\r');
    }
}
