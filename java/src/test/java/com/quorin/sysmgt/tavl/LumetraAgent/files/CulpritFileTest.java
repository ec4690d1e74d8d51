package com.quorin.sysmgt.tavl.LumetraAgent.files;

import static org.junit.jupiter.api.Assertions.assertEquals;

import com.quorin.sysmgt.tavl.LumetraAgent.LoadedLibrary;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.CounterTable;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.FileTime;
import java.util.List;
import org.junit.jupiter.api.Assumptions;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class CulpritFileTest {

    @TempDir
    Path home;

    @BeforeAll
    static void loadTheLibrary() {
        LoadedLibrary.load(); // which knows the reports
    }

    private Path write(String name, String text) throws IOException {
        Path file = home.resolve(name + ".cul");
        Files.write(file, text.getBytes(StandardCharsets.ISO_8859_1));
        Files.setLastModifiedTime(file, FileTime.fromMillis(1700000000_500L));
        return file;
    }

    private CulpritReport read(String name) {
        CounterTable.Report about = CounterTable.current().reportOn(name)
                .orElse(new CounterTable.Report(null, null, null));
        return CulpritFile.read(7, name, home + "/", about.measure(), about.words());
    }

    @Test
    void theThreeReportsAreReadAsTheAgentWritesThem() throws IOException {
        write("PercentFileDescriptorsUsed",
                "Top Consumers of FDs:\n\t(java) \tPID 12 \t#FDs 210\n\t(sh) \tPID 9 \t#FDs 5\n");
        write("PercentSwapSpaceUsed",
                "Top Consumers of Memory (Resident Set Size):\n\t(java) \tPID 12 \tRSS 800 MB\n");
        write("PercentProcessesUsed", "Top Consumers of Child Processes:\n\t(init) \tPID 1 \tChildren 44\n");
        assertEquals(new CulpritReport(7, "descriptors", "descriptors", 1700000000L,
                List.of(new Culprit("java", 12, 210), new Culprit("sh", 9, 5))),
                read("PercentFileDescriptorsUsed"));
        assertEquals(new CulpritReport(7, "residentMegabytes", "MB resident", 1700000000L,
                List.of(new Culprit("java", 12, 800))), read("PercentSwapSpaceUsed"));
        assertEquals(new CulpritReport(7, "childProcesses", "child processes", 1700000000L,
                List.of(new Culprit("init", 1, 44))), read("PercentProcessesUsed"));
    }

    @Test
    void otherResourcesHaveNoReport() throws IOException {
        write("Disk space", "Top\n\t(java) \tPID 12 \tRSS 8 MB\n");
        assertEquals(new CulpritReport(7, null, null, null, List.of()), read("Disk space"));
        assertEquals(new CulpritReport(7, null, null, null, List.of()), read("../x"));
    }

    @Test
    void aReportThatIsNotThereIsEmpty() throws IOException {
        CulpritReport empty = new CulpritReport(7, "descriptors", "descriptors", null, List.of());
        assertEquals(empty, read("PercentFileDescriptorsUsed"));
        Files.createDirectory(home.resolve("PercentFileDescriptorsUsed.cul"));
        assertEquals(empty, read("PercentFileDescriptorsUsed"));
    }

    @Test
    void aPipeInItsPlaceIsNotWaitedFor() throws IOException, InterruptedException {
        Path pipe = home.resolve("PercentSwapSpaceUsed.cul");
        Assumptions.assumeTrue(new ProcessBuilder("mkfifo", pipe.toString()).start().waitFor() == 0);
        assertEquals(List.of(), read("PercentSwapSpaceUsed").processes());
    }

    @Test
    void hostileNamesAndForeignLinesDoNoHarm() {
        assertEquals(List.of(new Culprit("a) \\tPID 1 \\t#FDs 2", 3, 4), new Culprit("\\x1b[2J\\xff", 5, 6),
                new Culprit("", 7, 8), new Culprit("<b>é", 9, 10)),
                CulpritFile.parse("Top\n\t(a) \tPID 1 \t#FDs 2) \tPID 3 \t#FDs 4\n"
                        + "rubbish\n\t(x) \tPID y \t#FDs 1\n"
                        + "\t(\u001b[2J\u00ff) \tPID 5 \t#FDs 6\n\t() \tPID 7 \tChildren 8\n"
                        + "\t(z) \tPID 99999999999999999999 \t#FDs 1\n"
                        + "\t(<b>\u00c3\u00a9) \tPID 9 \tRSS 10 MB"));
    }

    @Test
    void aHugeFileIsReadInPart() throws IOException {
        write("PercentSwapSpaceUsed", "\t(a) \tPID 1 \tRSS 2 MB\n".repeat(100_000));
        int count = read("PercentSwapSpaceUsed").processes().size();
        assertEquals(64 * 1024 / 22, count);
    }
}
