package com.quorin.sysmgt.tavl.LumetraAgent;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorin.sysmgt.tavl.LumetraAgent.check.DeclaredInput;
import com.quorin.sysmgt.tavl.LumetraAgent.check.LibraryCheck;
import com.quorin.sysmgt.tavl.LumetraAgent.check.LibraryFinding;
import com.quorin.sysmgt.tavl.LumetraAgent.check.Place;
import com.quorin.sysmgt.tavl.LumetraAgent.text.LibraryBytes;
import java.nio.charset.StandardCharsets;
import java.util.List;
import java.util.OptionalLong;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.Test;

class CheckFeedTest {

    @BeforeAll
    static void loadTheLibrary() throws NativeLibrary.Unavailable {
        LibraryCheck.load();
    }

    private static byte[] bytes(String text) {
        return text.getBytes(StandardCharsets.ISO_8859_1);
    }

    @Test
    void aConfigurationComesWithItsItemsAndPlaces() {
        LibraryCheck.Configuration read = LibraryCheck.configurationOf(bytes("d/ \u00ff p l r\n60000 x"));
        assertEquals(List.of("not-utf8", "number-malformed"),
                read.findings().stream().map(LibraryFinding::kind).toList());
        assertTrue(read.accepted());
        assertEquals("\u00ff", read.items().name(2));
        assertEquals(new Place(1, 4), read.items().place(2));
        assertEquals(60000, read.items().number(6));
        assertEquals(new Place(2, 1), read.items().place(6));
        assertEquals(0, read.items().number(7));
        assertTrue(read.items().isRead(6) && !read.items().isRead(7));
    }

    @Test
    void declarationsComeWithTheirInputsAndPlaces() {
        LibraryCheck.Declarations read = LibraryCheck.declarationsOf(bytes("BeginResourceDeclaration /* c */ "
                + "FindObject (LogicalDisk) FindInstance (*) FindCounter (c)\nWindowSize 1.5 NameIs (n) "
                + "AnalyticalMethod 2 UpperLimitAbs 0.25 UpperLimitCalc 0 LowerLimitAbs 0 LowerLimitCalc 0 "
                + "CulpritMarker () EndResourceInput EndResourceDeclaration"), 60000, 48);
        assertEquals(List.of(), read.findings());
        assertTrue(read.accepted() && read.rewritten());
        assertEquals(new Place(1, 26), read.comment());
        assertEquals(new LibraryCheck.Windows(200, 60000, 4.8, OptionalLong.of(288)), read.windows());
        DeclaredInput input = read.inputs().get(0);
        assertTrue(input.isDisk());
        assertEquals("*", input.instance().value());
        assertEquals("c", input.counter().value());
        assertEquals(new Place.Of<>(1.5, new Place(2, 12)), input.window());
        assertEquals("n", input.name().value());
        assertEquals(2, input.method().value());
        assertEquals(0.25, input.upperLimit().value());
        assertEquals(new DeclaredInput.Sized(DeclaredInput.Fate.OWN, OptionalLong.of(90)), input.sized());
        assertEquals("nBMPRD.gnp", input.trendFile());
        assertEquals(new Place(1, 34), input.place());
    }

    @Test
    void noTextIsTheCallersMistake() {
        assertThrows(NullPointerException.class, () -> CheckFeed.configuration(null));
        assertThrows(NullPointerException.class, () -> CheckFeed.declarations(null, -1, 48));
    }

    @Test
    void bytesThatAreNotWhatIsExpectedAreAnErrorOfTheProgram() {
        byte[] good = {1, 0, 0, 0, 'a', 1};
        LibraryBytes whole = new LibraryBytes(good, "x");
        assertEquals("a", whole.text("y"));
        assertThrows(IllegalStateException.class, whole::end);
        assertTrue(whole.flag("y"));
        whole.end();
        assertThrows(IllegalStateException.class, () -> whole.flag("y"));
        assertThrows(IllegalStateException.class, () -> new LibraryBytes(new byte[7], "x").longNumber("y"));
        for (byte[] length : new byte[][] {{2, 0, 0, 0, 'a'}, {-1, -1, -1, -1}, {1, 0, 0}}) {
            assertThrows(IllegalStateException.class, () -> new LibraryBytes(length, "x").text("y"));
            assertThrows(IllegalStateException.class, () -> new LibraryBytes(length, "x").list(1, "y", () -> 0));
        }
    }
}
