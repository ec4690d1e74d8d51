package com.quorin.sysmgt.tavl.LumetraAgent;

import java.util.Locale;
import java.util.Optional;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/** Walks over a text exactly as the agent does, and knows where each part stands. */
final class CheckScanner {

    private static final Pattern WHOLE = Pattern.compile("[+-]?[0-9]+");
    private static final Pattern REAL = Pattern.compile("(?i)[+-]?(?:inf(?:inity)?|nan(?:\\([0-9a-z_]*\\))?"
            + "|0x(?:[0-9a-f]+\\.?[0-9a-f]*|\\.[0-9a-f]+)(?:p[+-]?[0-9]+)?"
            + "|(?:[0-9]+\\.?[0-9]*|\\.[0-9]+)(?:e[+-]?[0-9]+)?)");

    /** The agent copies this much of the text to read a number from. */
    private static final int LONGEST_NUMBER = 512;

    /** What is longer is no keyword and no path; its beginning tells as much as all of it. */
    private static final int LONGEST_WORD = 65536;

    private final String text;
    private int position;

    /**
     * A part of the text.
     *
     * @param text  how it is spelled
     * @param start where it stands
     */
    record Part(String text, int start) {}

    /**
     * Starts at the beginning.
     *
     * @param text one character for each byte
     */
    CheckScanner(String text) {
        this.text = text;
    }

    /**
     * Where the next character stands.
     *
     * @return the place
     */
    int position() {
        return position;
    }

    /**
     * Goes on elsewhere.
     *
     * @param place the place
     */
    void moveTo(int place) {
        position = place;
    }

    /**
     * Whether nothing is left.
     *
     * @return true behind the last character
     */
    boolean atEnd() {
        return position >= text.length();
    }

    /** Moves to the next character that is no white space. */
    void skipWhiteSpace() {
        while (position < text.length() && TextScanner.isWhiteSpace(text.charAt(position))) {
            position++;
        }
    }

    /**
     * The next word.
     *
     * @return the word; empty at the end
     */
    Optional<Part> word() {
        skipWhiteSpace();
        int start = position;
        while (position < text.length() && !TextScanner.isWhiteSpace(text.charAt(position))) {
            position++;
        }
        int end = Math.min(position, start + LONGEST_WORD);
        return start == position ? Optional.empty()
                : Optional.of(new Part(text.substring(start, end), start));
    }

    /**
     * The rest of a word that was read in part, or the next word, without passing it.
     *
     * @return the text, empty where white space or the end comes
     */
    String rest() {
        int end = position;
        while (end < text.length() && !TextScanner.isWhiteSpace(text.charAt(end))) {
            end++;
        }
        return text.substring(position, Math.min(end, position + LONGEST_WORD));
    }

    /**
     * The next whole number, of any size.
     *
     * @return the number; empty, and the word not passed, when something else stands there
     */
    Optional<Part> wholeNumber() {
        skipWhiteSpace();
        return match(WHOLE, text.length());
    }

    /**
     * The next floating-point number, as the C library spells it.
     *
     * @return the number; empty, and the word not passed, when something else stands there
     */
    Optional<Part> realNumber() {
        skipWhiteSpace();
        return match(REAL, Math.min(text.length(), position + LONGEST_NUMBER));
    }

    private Optional<Part> match(Pattern pattern, int end) {
        Matcher matcher = pattern.matcher(text).region(position, end);
        if (!matcher.lookingAt()) {
            return Optional.empty();
        }
        position = matcher.end();
        return Optional.of(new Part(matcher.group(), matcher.start()));
    }

    /**
     * The value of a floating-point number.
     *
     * @param number its text, as {@link #realNumber} gives it
     * @return the value
     */
    static double toReal(String number) {
        String plain = number.toLowerCase(Locale.ROOT);
        if (plain.startsWith("0x") || plain.startsWith("0x", 1)) {
            return Double.parseDouble(plain.contains("p") ? plain : plain + "p0");
        }
        return TextScanner.toNumber(number);
    }

    /**
     * The value of a whole number.
     *
     * @param number its text, as {@link #wholeNumber} gives it
     * @return the value, or the nearest end of the range of 32 bits
     */
    static int toWhole(String number) {
        return (int) Double.parseDouble(number);
    }

    /**
     * Whether a whole number is beyond 32 bits.
     *
     * @param number its text, as {@link #wholeNumber} gives it
     * @return true when it is taken for another
     */
    static boolean isOutOfRange(String number) {
        return Double.parseDouble(number) != toWhole(number);
    }
}
