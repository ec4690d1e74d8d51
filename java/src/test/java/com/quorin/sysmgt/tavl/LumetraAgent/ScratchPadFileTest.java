package com.quorin.sysmgt.tavl.LumetraAgent;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.Map;
import java.util.Set;
import org.junit.jupiter.api.Test;

class ScratchPadFileTest {

    private static final Set<Integer> SOME = Set.of(1, 2, 3);

    private static String record(
            int type, int rid, String object, String instance, String counter, String id) {
        return "\nEvent: ResourceDefinition - Informational \n" + type + "   " + rid + "   (" + object
                + ")   (" + instance + ")   (" + counter + ")   " + id + "   \n";
    }

    @Test
    void theWantedRecordsAreFound() {
        String text = record(1, 1, "Swap", "_Total", "Swap", "-2")
                + record(2, 2, "LogicalDisk", "*", "S", "-1")
                + record(2, 3, "LogicalDisk", "/dev/vda /", "S", "-2") + record(1, 4, "x", "y", "z", "-2");
        assertEquals(Map.of(1, new KnownResource(1, 1, "Swap", "_Total", "Swap", "-2"),
                3, new KnownResource(2, 3, "LogicalDisk", "/dev/vda /", "S", "-2")),
                ScratchPadFile.parse(text, Set.of(1, 3)));
    }

    @Test
    void anInstanceMayHoldParenthesesBlanksAndLineBreaks() {
        String instance = "/dev/sdb1 /mnt/my (old)   disk) (\nx";
        String text = record(2, 1, "LogicalDisk", instance, "S", "-2") + record(1, 2, "b", "", "b", "-2");
        Map<Integer, KnownResource> found = ScratchPadFile.parse(text, SOME);
        assertEquals(instance, found.get(1).instance());
        assertEquals("", found.get(2).instance());
    }

    @Test
    void aFileThatIsCutAnywhereYieldsOnlyCompleteRecords() {
        String text = record(1, 1, "a", "b", "c", "-2") + record(2, 2, "LogicalDisk", "d /e", "f", "12345");
        Map<Integer, KnownResource> all = ScratchPadFile.parse(text, SOME);
        for (int cut = 0; cut < text.length(); cut++) {
            ScratchPadFile.parse(text.substring(0, cut), SOME)
                    .forEach((rid, found) -> assertEquals(all.get(rid), found));
        }
    }

    @Test
    void aTornRecordInTheMiddleDoesNotHideTheNext() {
        String torn = record(1, 1, "a", "b", "c", "-2").substring(0, 60);
        Map<Integer, KnownResource> found =
                ScratchPadFile.parse(torn + record(1, 2, "a", "b", "c", "-2"), SOME);
        assertEquals(Set.of(2), found.keySet());
    }

    @Test
    void ofTwoRecordsWithOneNumberTheNewestCounts() {
        String text = record(1, 1, "old", "b", "c", "-2") + record(1, 1, "new", "b", "c", "-2");
        assertEquals("new", ScratchPadFile.parse(text, SOME).get(1).object());
    }

    @Test
    void headersAloneAndForeignTextHoldNoRecord() {
        assertTrue(ScratchPadFile.parse("", SOME).isEmpty());
        assertTrue(ScratchPadFile.parse("\nEvent: ResourceDefinition - Informational \n", SOME).isEmpty());
        assertTrue(ScratchPadFile.parse(record(3, 1, "a", "b", "c", "-2"), SOME).isEmpty());
        assertTrue(ScratchPadFile.parse("((((1 1 (a)", SOME).isEmpty());
    }

    @Test
    void someOfAHundredThousandRecordsAreFound() {
        StringBuilder text = new StringBuilder();
        for (int i = 1; i <= 100_000; i++) {
            text.append(record(2, i, "LogicalDisk", "/dev/mapper/volume" + i + " /mnt/" + i, "S", "-2"));
        }
        assertEquals(3, ScratchPadFile.parse(text.toString(), SOME).size());
    }
}
