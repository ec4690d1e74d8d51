package com.quorin.sysmgt.tavl.LumetraAgent;

import static org.junit.jupiter.api.Assertions.assertEquals;

import java.util.List;
import org.junit.jupiter.api.Test;

class JsonObjectTest {

    private static String quoted(String text) {
        String object = new JsonObject().text("t", text).toString();
        return object.substring("{\"t\":".length(), object.length() - 1);
    }

    @Test
    void membersKeepTheirOrder() {
        assertEquals("{\"a\":\"x\",\"b\":1.5,\"c\":-7,\"d\":[{\"e\":2},{}]}",
                new JsonObject().text("a", "x").number("b", 1.5).whole("c", -7)
                        .objects("d", List.of(new JsonObject().whole("e", 2), new JsonObject())).toString());
        assertEquals("{}", new JsonObject().toString());
        assertEquals("{\"d\":[]}", new JsonObject().objects("d", List.of()).toString());
    }

    @Test
    void whatJsonCannotSpellBecomesNull() {
        for (double value : new double[] {Double.NaN, Double.POSITIVE_INFINITY, Double.NEGATIVE_INFINITY}) {
            assertEquals("{\"n\":null}", new JsonObject().number("n", value).toString());
        }
        assertEquals("null", quoted(null));
        assertEquals("{\"n\":1.0E300}", new JsonObject().number("n", 1e300).toString());
    }

    @Test
    void textIsQuotedSoThatItStaysOnItsLine() {
        assertEquals("\"a\\\"b\\\\c\\n\\r\\t\"", quoted("a\"b\\c\n\r\t"));
        assertEquals("\"\\u0000\\u001b\\u007f\\u009b\\u2028\"", quoted("\u0000\u001b\u007f\u009b\u2028"));
        assertEquals("\"Größe 日本 \uD83D\uDE00\"", quoted("Größe 日本 \uD83D\uDE00"));
    }

    @Test
    void halfACharacterIsEscaped() {
        assertEquals("\"\\ud800x\\udc00\"", quoted("\ud800x\udc00"));
    }
}
