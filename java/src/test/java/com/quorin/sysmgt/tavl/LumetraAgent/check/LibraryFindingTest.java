package com.quorin.sysmgt.tavl.LumetraAgent.check;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import org.junit.jupiter.api.Test;

/** What the files of CheckCasesTest do not show. */
class LibraryFindingTest {

    private static Finding worded(String kind, String text, int item, long number) {
        return new LibraryFinding(kind, new Place(3, 4), text, "NameIs", "", item, number).worded("file");
    }

    @Test
    void aFindingHasItsPlaceAndItsFile() {
        Finding finding = worded("keyword-missing", "", 0, 0);
        assertEquals("file", finding.file());
        assertEquals(3, finding.line());
        assertEquals(4, finding.column());
        assertEquals("", finding.found());
        assertTrue(finding.text().startsWith("file:3: error: there is no NameIs behind"), finding.text());
    }

    @Test
    void textIsQuotedAndKeywordsAndBytesAreNot() {
        assertEquals("\"w\\xff\"", worded("word-ignored", "w\u00ff", 0, 0).found());
        assertEquals("\\xff", worded("byte-255", "\u00ff", 0, 0).found());
        assertEquals("BeginResourceInput", worded("input-skipped", "BeginResourceInput", 0, 0).found());
        assertEquals("/*", worded("comment-not-closed", "/*", 0, 0).found());
        assertEquals("7", worded("nul-byte", "", 0, 7).found());
        assertEquals("the end", worded("value-malformed", "", 0, 0).found());
        assertEquals("\"x\"", worded("value-malformed", "x", 0, 0).found());
    }

    @Test
    void theItemsThatBecomeZeroAreNamed() {
        assertTrue(worded("number-malformed", "x", 11, 0).message().contains(": item 11 becomes 0;"));
        assertTrue(worded("number-malformed", "x", 10, 0).message().contains(": items 10 to 11 become 0;"));
        assertTrue(worded("number-with-rest", "9x", 10, 9).message().contains(" as 9, and item 11 becomes 0;"));
    }

    @Test
    void aNumberOutOfRangeIsThatOfAnItemOrOfAKeyword() {
        assertTrue(worded("number-out-of-range", "9", 0, 5).message().startsWith("NameIs is 9: it is taken for 5"));
        assertTrue(worded("number-out-of-range", "9", 6, 5).message().startsWith("item 6, the period, is 9: "));
    }

    @Test
    void whatIsIgnoredBehindTheDeclarationsIsToldByItsLine() {
        for (String kind : new String[] {"object-file", "declarations-end-early", "comment-between-inputs"}) {
            assertTrue(worded(kind, "x", 0, 0).message().contains("no input follows it"), kind);
            assertTrue(worded(kind, "x", 0, 8).message().contains("the inputs from line 8 on are ignored"), kind);
        }
    }

    @Test
    void aKindThatNobodyKnowsIsAnErrorOfTheProgram() {
        assertThrows(IllegalArgumentException.class, () -> worded("unheard-of", "", 0, 0));
    }
}
