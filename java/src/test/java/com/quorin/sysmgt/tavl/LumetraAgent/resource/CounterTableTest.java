package com.quorin.sysmgt.tavl.LumetraAgent.resource;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorin.sysmgt.tavl.LumetraAgent.LoadedLibrary;
import com.quorin.sysmgt.tavl.LumetraAgent.client.StatusTable;
import com.quorin.sysmgt.tavl.LumetraAgent.files.CulpritFile;
import com.quorin.sysmgt.tavl.LumetraAgent.files.CulpritReport;
import com.quorin.sysmgt.tavl.LumetraAgent.watch.FakeView;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Optional;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** A counter that the library does not have goes through every place that tells of counters. */
class CounterTableTest {

    private static final String LICENCES = "PercentLicencesUsed";

    @TempDir
    private Path directory;

    @BeforeEach
    void addOne() {
        LoadedLibrary.load();
        CounterTable.use(null);
        CounterTable library = CounterTable.current();
        List<CounterTable.Counter> counters = new ArrayList<>(library.counters());
        counters.add(new CounterTable.Counter(LICENCES, "", "Licences", "seats", 0, true,
                "seats that are paid for", "none is paid for", true));
        List<CounterTable.Report> reports = new ArrayList<>(library.reports());
        reports.add(new CounterTable.Report(LICENCES, "seats", "seats taken"));
        CounterTable.use(new CounterTable(counters, reports));
    }

    @AfterEach
    void takeItAway() {
        CounterTable.use(null);
    }

    private static GivenResource licences() {
        GivenResource licences = GivenResource.single(7, LICENCES);
        licences.measured = 40;
        return licences;
    }

    @Test
    void itsCapacityHasItsUnitAndItsNothingIsAbsence() {
        GivenResource licences = licences();
        assertEquals(Optional.of("40 seats"), ResourceFacts.of(licences.made()).amount());
        licences.measured = 0;
        ResourceFacts none = ResourceFacts.of(licences.made());
        assertEquals(ResourceFacts.Kind.NONE_THERE, none.kind());
        assertEquals("none is paid for", none.remark());
    }

    @Test
    void itsWordsTravelToThePage() {
        Snapshot.Identity shown = ResourceNames.of(licences().made().identity()).shown();
        assertEquals("Licences", shown.counterWords());
        assertTrue(new String(FakeView.json(shown), StandardCharsets.UTF_8)
                .contains("\"counterWords\":\"Licences\""));
    }

    @Test
    void itsUsersAreNamedWithItsMeasure() throws Exception {
        Files.writeString(directory.resolve(LICENCES + ".cul"), "Top\n\t(a) \tPID 1 \t#FDs 2\n");
        CounterTable.Report about = CounterTable.current().reportOn(LICENCES).get();
        CulpritReport report = CulpritFile.read(7, LICENCES, directory + "/", about.measure(), about.words());
        assertEquals("seats", report.measure());
        assertEquals(Optional.of("Largest users of x: a (pid 1) 2 seats taken"), StatusTable.largestUsers("x", report));
    }

    @Test
    void theCheckKnowsItAndNamesItAmongTheOthers() {
        CounterTable table = CounterTable.current();
        assertTrue(table.knows(LICENCES));
        assertEquals("PercentProcessesUsed, PercentSwapSpaceUsed, PercentFileDescriptorsUsed, LogicalDisk or "
                + LICENCES, table.objects());
        assertEquals("PercentFreeSpaceUsed or PercentFreeInodesUsed", table.countersOf(Counters.DISK));
    }
}
