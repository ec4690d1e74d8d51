package com.quorin.sysmgt.tavl.LumetraAgent;

import java.nio.ByteBuffer;
import java.nio.CharBuffer;
import java.nio.charset.CharsetDecoder;
import java.nio.charset.CoderResult;
import java.nio.charset.StandardCharsets;
import java.util.Arrays;
import java.util.List;
import java.util.stream.IntStream;

/** The text of a file that is checked, with the findings in it. */
final class CheckedText {

    private static final String BYTE_ORDER_MARK = "\u00ef\u00bb\u00bf";

    private static final int BLOCK = 8192;

    private final String file;
    private final String text;
    private final List<Finding> findings;
    private int[] lineStarts;

    /**
     * Holds a text.
     *
     * @param file     the file's name, readable
     * @param text     its content, one character for each byte
     * @param findings where findings are added
     */
    CheckedText(String file, String text, List<Finding> findings) {
        this.file = file;
        this.text = text;
        this.findings = findings;
    }

    /**
     * The content.
     *
     * @return one character for each byte
     */
    String text() {
        return text;
    }

    /**
     * Adds a finding at a place.
     *
     * @param offset  the place
     * @param kind    what it is
     * @param found   what was found, readable
     * @param details what else its message tells, readable
     */
    void add(int offset, FindingKind kind, String found, String... details) {
        int line = line(offset);
        int column = 1 + (int) IntStream.range(lineStarts[line - 1], offset)
                .filter(i -> (text.charAt(i) & 0xc0) != 0x80).count();
        findings.add(new Finding(kind, file, line, column, found, List.of(details)));
    }

    /**
     * Adds a finding about the file as a whole.
     *
     * @param kind    what it is
     * @param found   what was found, readable
     * @param details what else its message tells, readable
     */
    void addWhole(FindingKind kind, String found, String... details) {
        findings.add(new Finding(kind, file, 0, 0, found, List.of(details)));
    }

    /**
     * The line of a place.
     *
     * @param offset the place
     * @return the line, from 1 on
     */
    int line(int offset) {
        if (lineStarts == null) {
            lineStarts = starts();
        }
        int found = Arrays.binarySearch(lineStarts, offset);
        return found >= 0 ? found + 1 : -found - 1;
    }

    private int[] starts() {
        int[] starts = new int[1 + (int) text.chars().filter(c -> c == '\n').count()];
        int feed = -1;
        for (int i = 1; i < starts.length; i++) {
            feed = text.indexOf('\n', feed + 1);
            starts[i] = feed + 1;
        }
        return starts;
    }

    /** Looks for what no text should hold: a byte order mark, zero bytes, bytes that are no UTF-8. */
    void checkBytes() {
        if (text.startsWith(BYTE_ORDER_MARK)) {
            add(0, FindingKind.BYTE_ORDER_MARK, Finding.quoted(BYTE_ORDER_MARK));
        }
        int nul = text.indexOf('\0');
        if (nul >= 0) {
            add(nul, FindingKind.NUL_BYTE, Long.toString(text.chars().filter(c -> c == 0).count()));
        }
        int foreign = foreignByte();
        if (foreign >= 0) {
            add(foreign, FindingKind.NOT_UTF8, Finding.quoted(text.substring(foreign, foreign + 1)));
        }
    }

    /** The place of the first byte that is no UTF-8; -1 when there is none. */
    private int foreignByte() {
        CharsetDecoder decoder = StandardCharsets.UTF_8.newDecoder();
        CharBuffer out = CharBuffer.allocate(BLOCK);
        int place = 0;
        CoderResult result = CoderResult.UNDERFLOW;
        while (place < text.length() && !result.isError()) {
            int end = Math.min(text.length(), place + BLOCK);
            byte[] block = text.substring(place, end).getBytes(StandardCharsets.ISO_8859_1);
            ByteBuffer in = ByteBuffer.wrap(block);
            decoder.reset();
            // a character that the block cuts in two begins the next one
            result = decoder.decode(in, out.clear(), end == text.length());
            place += in.position();
        }
        return result.isError() ? place : -1;
    }
}
