package com.quorin.sysmgt.tavl.LumetraAgent.text;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.io.InputStream;
import java.nio.charset.StandardCharsets;
import java.time.Duration;
import org.junit.jupiter.api.Test;

class WordsTest {

    private static String words(long seconds) {
        return Words.ofDuration(Duration.ofSeconds(seconds));
    }

    /** The page's words are held against the same file. */
    @Test
    void durationsAreRoundedToWhatMattersAtTheirSize() throws IOException {
        try (InputStream shared = WordsTest.class.getResourceAsStream("/durations.txt")) {
            String[] lines = new String(shared.readAllBytes(), StandardCharsets.UTF_8).split("\n");
            assertTrue(lines.length > 10);
            for (String line : lines) {
                String[] parts = line.split("\t");
                assertEquals(parts[1], words(Long.parseLong(parts[0])), parts[0]);
            }
        }
    }

    @Test
    void sizesHaveTheLargestUnitThatLeavesAtLeastOne() {
        assertEquals("0 bytes", Words.ofBytes(0.0));
        assertEquals("1023 bytes", Words.ofBytes(1023.0));
        assertEquals("1.0 KiB", Words.ofBytes(1024.0));
        assertEquals("5.0 GiB", Words.ofBytes(5.0 * 1024 * 1024 * 1024));
        assertEquals("16.0 EiB", Words.ofBytes(Math.pow(2, 64)));
    }

    @Test
    void controlCharactersAreShownAsEscapes() {
        assertEquals("a\\nb\\r\\t\\x1b[2J\\x7f", Words.printable("a\nb\r\t\u001b[2J\u007f"));
        assertEquals("\\u202egpj.exe", Words.printable("\u202egpj.exe"));
        assertEquals("\\ud800", Words.printable("\ud800"));
        assertEquals("", Words.printable(null));
    }

    @Test
    void bytesThatAreValidTextAreDecoded() {
        byte[] utf8 = "/mnt/Größe 日本".getBytes(StandardCharsets.UTF_8);
        String bytes = new String(utf8, StandardCharsets.ISO_8859_1);
        assertEquals("/mnt/Größe 日本", Words.ofBytes(bytes));
        assertEquals("", Words.ofBytes(""));
    }

    @Test
    void bytesThatAreNoTextAreShownAsEscapes() {
        assertEquals("/mnt/\\xffx\\xc3", Words.ofBytes("/mnt/\u00ffx\u00c3"));
        assertEquals("\\x1b\\x9b", Words.ofBytes("\u001b\u009b"));
        String control = new String("\u009b".getBytes(StandardCharsets.UTF_8), StandardCharsets.ISO_8859_1);
        assertEquals("\\x9b", Words.ofBytes(control));
    }

    @Test
    void textFromTheLibraryHasOneReplacementForEachForeignByte() {
        assertEquals("a\u00e9\ud83d\ude00\n", Words.asFromLibrary("a\u00c3\u00a9\u00f0\u009f\u0098\u0080\n"));
        assertEquals("\ufffdx", Words.asFromLibrary("\u00ffx"));
        assertEquals("\ufffd\ufffd\ufffdx", Words.asFromLibrary("\u00f0\u009f\u0098x"));
        assertEquals("\ufffd\ufffd\ufffd", Words.asFromLibrary("\u00ed\u00a0\u0080"));
        assertEquals("x\ufffd", Words.asFromLibrary("x\u00c3"));
        assertEquals("", Words.asFromLibrary(""));
    }
}
