package com.quorin.sysmgt.tavl.LumetraAgent.resource;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.ArrayList;
import java.util.List;
import java.util.Optional;
import org.junit.jupiter.api.Test;

class LeftOutSummaryTest {

    private final List<Snapshot.LeftOut> leftOut = new ArrayList<>();

    private void add(LeftOutKind kind, String rule) {
        leftOut.add(Snapshot.LeftOut.of(new RunState.LeftOut("what", "why", kind, rule)));
    }

    @Test
    void withoutAnythingThereIsNothingToSay() {
        assertEquals(Optional.empty(), LeftOutSummary.of(leftOut));
    }

    @Test
    void theRulesAreCountedTheMostCommonFirst() {
        add(LeftOutKind.REPEAT, "");
        add(LeftOutKind.NATURE, "squashfs");
        add(LeftOutKind.NATURE, "squashfs");
        add(LeftOutKind.PATTERN, "mount /a\u001b*");
        add(LeftOutKind.TYPE, "fstype tmpfs");
        assertEquals(Optional.of("The agent leaves out 5 disks (squashfs, full by its nature: 2; "
                + "another mount of what is watched: 1; rule mount /a\\x1b*: 1; rule fstype tmpfs: 1)."),
                LeftOutSummary.of(leftOut));
    }

    @Test
    void whatIsNoDiskIsAThing() {
        add(LeftOutKind.OTHER, "");
        assertEquals(Optional.of("The agent leaves out 1 thing (other: 1)."), LeftOutSummary.of(leftOut));
        leftOut.add(new Snapshot.LeftOut("what", "why", null, null));
        assertEquals(Optional.of("The agent leaves out 2 things (other: 2)."), LeftOutSummary.of(leftOut));
    }

    @Test
    void manyRulesAreNotAllNamed() {
        for (int i = 0; i < 6; i++) {
            add(LeftOutKind.TYPE, "fstype t" + i);
        }
        assertTrue(LeftOutSummary.of(leftOut).orElseThrow().endsWith("; rule fstype t4: 1; 1 more rule)."));
        add(LeftOutKind.TYPE, "fstype t6");
        assertTrue(LeftOutSummary.of(leftOut).orElseThrow().endsWith("; rule fstype t4: 1; 2 more rules)."));
    }
}
