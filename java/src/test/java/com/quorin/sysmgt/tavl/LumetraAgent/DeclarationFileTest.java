package com.quorin.sysmgt.tavl.LumetraAgent;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.List;
import org.junit.jupiter.api.Test;

class DeclarationFileTest {

    private static final String START =
            "/** Updated on Sat Nov 21 10:00:00 2026\n **/\nBeginResourceDeclaration\n\n";
    private static final double UNLIMITED = 9223372036854775808.0;
    private static final String END = "EndResourceDeclaration\n";

    private static String input(String object, String name, String window) {
        return "BeginResourceInput\n\tFindObject (" + object + ")\n\tFindInstance (_Total)\n\tFindCounter ("
                + object + ")\n\tWindowSize " + window + "\n\tNameIs (" + name + ")\n\tAnalyticalMethod 1\n"
                + "\tUpperLimitAbs 50.500000\n\tUpperLimitCalc 9223372036854775808.000000\n"
                + "\tLowerLimitAbs 0.000000\n\tLowerLimitCalc 0.000000\n\tCulpritMarker (none)\n"
                + "EndResourceInput\n\n";
    }

    private static List<String> names(String text) {
        return DeclarationFile.parse(text).stream().map(DeclaredResource::name).toList();
    }

    @Test
    void aWrittenFileIsReadCompletely() {
        String text = START + input("Swap", "a name", "-1.") + input("Tasks", "b", "2.5") + END;
        assertEquals(List.of(
                new DeclaredResource("Swap", "_Total", "Swap", -1.0, "a name", 1, 50.5, UNLIMITED),
                new DeclaredResource("Tasks", "_Total", "Tasks", 2.5, "b", 1, 50.5, UNLIMITED)),
                DeclarationFile.parse(text));
    }

    @Test
    void aCommentWithinAnInputIsSkippedWithTheKeywordsInIt() {
        String text = START + input("Swap", "a", "-1.").replace("\tNameIs", "/* NameIs (no) */ NameIs") + END;
        assertEquals(List.of("a"), names(text));
    }

    @Test
    void aCommentMarkAgainstAWordIsNoComment() {
        String input = input("Swap", "a", "-1.").replace("\tNameIs", "/*x NameIs (found) x*/ NameIs");
        String text = START + input + END;
        assertEquals(List.of("found"), names(text));
    }

    @Test
    void aCommentBetweenInputsEndsTheDeclaration() {
        String text = START + input("Swap", "a", "-1.") + "/* more */\n" + input("Tasks", "b", "-1.") + END;
        assertEquals(List.of("a"), names(text));
    }

    @Test
    void aFileObjectEndsTheDeclaration() {
        String text = START + input("Swap", "a", "-1.") + input("File", "b", "-1.")
                + input("Tasks", "c", "-1.") + END;
        assertEquals(List.of("a"), names(text));
    }

    @Test
    void aMalformedNumberReadsAsZero() {
        DeclaredResource r = DeclarationFile.parse(START + input("Swap", "a", "many") + END).get(0);
        assertEquals(0.0, r.windowHours());
        assertEquals(50.5, r.upperLimitAbs());
    }

    @Test
    void aFileThatIsCutAnywhereYieldsOnlyCompleteInputs() {
        String text = START + input("Swap", "a", "-1.") + input("Tasks", "b", "-1.") + END;
        List<DeclaredResource> all = DeclarationFile.parse(text);
        for (int cut = 0; cut < text.length(); cut++) {
            List<DeclaredResource> some = DeclarationFile.parse(text.substring(0, cut));
            assertEquals(all.subList(0, some.size()), some, "cut at " + cut);
        }
    }

    @Test
    void foreignTextHoldsNoDeclaration() {
        assertTrue(DeclarationFile.parse("").isEmpty());
        assertTrue(DeclarationFile.parse("BeginResourceDeclaration").isEmpty());
        assertTrue(DeclarationFile.parse("BeginResourceDeclaration FindObject (never closed").isEmpty());
        assertTrue(DeclarationFile.parse("/* BeginResourceDeclaration FindObject (a)").isEmpty());
    }
}
