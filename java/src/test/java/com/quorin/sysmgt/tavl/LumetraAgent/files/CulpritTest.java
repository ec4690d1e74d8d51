package com.quorin.sysmgt.tavl.LumetraAgent.files;

import static org.junit.jupiter.api.Assertions.assertEquals;

import java.util.List;
import org.junit.jupiter.api.Test;

class CulpritTest {

    @Test
    void entriesAreReadInTheirOrder() {
        assertEquals(List.of(new Culprit("java", 1234, 210), new Culprit("sshd", 901, 3)),
                Culprit.parse(" java(1234)210 sshd(901)3"));
        assertEquals(List.of(new Culprit("java", 1, 2)), Culprit.parse("java(1)2"));
    }

    @Test
    void aNameMayHoldAnythingButABlankAndAClosingParenthesis() {
        assertEquals(List.of(new Culprit("(sd-pam", 7, 5), new Culprit("(((", 8, 6), new Culprit("", 9, 7),
                        new Culprit("a\nb\u001b\u65e5", 10, 8), new Culprit("x(1", 11, 9)),
                Culprit.parse(" (sd-pam(7)5 ((((8)6 (9)7 a\nb\u001b\u65e5(10)8 x(1(11)9"));
    }

    @Test
    void aNegativeFigureIsAFigure() {
        assertEquals(List.of(new Culprit("kthreadd", 2, -1)), Culprit.parse(" kthreadd(2)-1"));
    }

    @Test
    void whatIsNoEntryIsPassedOver() {
        for (String text : new String[] {"", " ", "words only", "a()1", "a(1)", "a(1)x", "a(1)2x", "(null)",
            "a(99999999999999999999)1", "a(1)99999999999999999999"}) {
            assertEquals(List.of(), Culprit.parse(text), text);
        }
        assertEquals(List.of(), Culprit.parse(null));
        assertEquals(List.of(new Culprit("b", 2, 3)), Culprit.parse("rubbish (1) b(2)3 c(4"));
    }

    @Test
    void aTextWithoutEndIsReadInReasonableTime() {
        assertEquals(List.of(), Culprit.parse("(".repeat(5000)));
        assertEquals(List.of(), Culprit.parse("a(1".repeat(2000)));
    }

    @Test
    void inWordsItHasNoControlCharacters() {
        assertEquals("a\\nb (pid 3) 4", new Culprit("a\nb", 3, 4).inWords());
    }
}
