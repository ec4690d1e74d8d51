package com.quorin.sysmgt.tavl.LumetraAgent;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.Optional;
import org.junit.jupiter.api.Test;

class CheckScannerTest {

    private static String real(String text) {
        CheckScanner scanner = new CheckScanner(text);
        return scanner.realNumber().map(n -> CheckScanner.toReal(n.text())).orElse(null) + " "
                + scanner.rest();
    }

    private static String whole(String text) {
        CheckScanner scanner = new CheckScanner(text);
        return scanner.wholeNumber().map(n -> CheckScanner.toWhole(n.text())).orElse(null) + " "
                + scanner.rest();
    }

    @Test
    void realNumbersAreThoseOfTheCLibrary() {
        assertEquals("-1.0 ", real(" -1."));
        assertEquals("0.5 h", real("+.5h"));
        assertEquals("2.0 e", real("2e"));
        assertEquals("2.0 e+", real("2e+"));
        assertEquals("20.0 ", real("2e+1"));
        assertEquals("Infinity ", real("1e999"));
        assertEquals("-Infinity i", real("-INFi"));
        assertEquals("Infinity ", real("Infinity"));
        assertEquals("NaN ", real("-nan(0x_1)"));
        assertEquals("-8.0 ", real("-0x8"));
        assertEquals("NaN (x", real("NaN(x"));
        assertEquals("8.0 ", real("0x1p3"));
        assertEquals("31.0 ", real("0X1f"));
        assertEquals("0.5 ", real("0x.8"));
        assertEquals("0.0 x", real("0x"));
        assertEquals("1.0 ,5", real("1,5"));
        assertEquals("1.0 d", real("1d"));
        for (String none : new String[] {".", "-", "+-1", "e5", "x", "/*", ""}) {
            assertEquals("null " + none, real(none));
        }
    }

    @Test
    void aNumberEndsWhereTheAgentStopsCopyingIt() {
        assertEquals("0.0 1", real("0".repeat(512) + "1"));
    }

    @Test
    void wholeNumbersAreCutToThirtyTwoBits() {
        assertEquals("-12 x", whole("\n -12x"));
        assertEquals("5 .5", whole("+5.5"));
        assertEquals("2147483647 ", whole("2147483648"));
        assertEquals("-2147483648 ", whole("-" + "9".repeat(400)));
        for (String none : new String[] {"-", "+-1", "--1", "x1", ""}) {
            assertEquals("null " + none, whole(none));
        }
        assertTrue(CheckScanner.isOutOfRange("2147483648"));
        assertTrue(!CheckScanner.isOutOfRange("-2147483648"));
    }

    @Test
    void wordsStandBetweenTheSixWhiteSpacesOfC() {
        CheckScanner scanner = new CheckScanner("\u000b\fa\u001cb\u00a0\r\nc\0");
        assertEquals(Optional.of(new CheckScanner.Part("a\u001cb\u00a0", 2)), scanner.word());
        assertEquals(Optional.of(new CheckScanner.Part("c\0", 8)), scanner.word());
        assertTrue(scanner.word().isEmpty());
        assertTrue(scanner.atEnd());
    }
}
