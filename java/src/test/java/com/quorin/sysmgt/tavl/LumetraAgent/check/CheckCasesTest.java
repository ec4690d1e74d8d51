package com.quorin.sysmgt.tavl.LumetraAgent.check;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorin.sysmgt.tavl.LumetraAgent.NativeLibrary;
import java.io.IOException;
import java.io.InputStream;
import java.io.RandomAccessFile;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.util.Comparator;
import java.util.List;
import java.util.Optional;
import java.util.stream.Collectors;
import java.util.stream.Stream;
import org.junit.jupiter.api.Assumptions;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.EnumSource;

/**
 * Every kind of finding has files that provoke it, in the resources below "check": ID.ini is a configuration,
 * ID.txt declarations, ID.home changes to the home. What is missing comes from the base; ID.out holds all
 * that the check says.
 */
class CheckCasesTest {

    @TempDir
    private Path temporary;

    @BeforeAll
    static void loadTheLibrary() throws NativeLibrary.Unavailable {
        LibraryCheck.load();
    }

    private static Optional<byte[]> resource(String name) throws IOException {
        try (InputStream in = CheckCasesTest.class.getResourceAsStream("/check/" + name)) {
            return in == null ? Optional.empty() : Optional.of(in.readAllBytes());
        }
    }

    private static boolean isThere(String name) {
        return CheckCasesTest.class.getResource("/check/" + name) != null;
    }

    private static void put(String id, String ending, Path target) throws IOException {
        Optional<byte[]> own = resource(id + ending);
        Files.write(target, own.isPresent() ? own.get() : resource("base" + ending).orElseThrow());
    }

    private Path home(String id) throws IOException, InterruptedException {
        Path home = temporary.resolve("home");
        for (String name : List.of("bin", "log", "tempdata", "data", "config")) {
            Files.createDirectories(home.resolve(name));
        }
        put(id, ".ini", home.resolve("config/AutoConfig.ini"));
        put(id, ".txt", home.resolve("config/resources.txt"));
        String steps = new String(resource(id + ".home").orElse(new byte[0]), StandardCharsets.UTF_8);
        for (String step : steps.split("\n")) {
            take(step.split(" "), home);
        }
        return home;
    }

    private static void take(String[] step, Path home) throws IOException, InterruptedException {
        Path path = step.length < 2 ? home : home.resolve(step[1]).normalize();
        switch (step[0]) {
            case "remove" -> remove(path);
            case "file" -> Files.createFile(path);
            case "pipe" -> {
                remove(path);
                assertEquals(0, new ProcessBuilder("mkfifo", path.toString()).start().waitFor());
            }
            case "line" -> Files.writeString(path, String.join(" ", List.of(step).subList(2, step.length)) + "\n",
                    StandardOpenOption.CREATE, StandardOpenOption.APPEND);
            case "mode" -> Files.setAttribute(path, "unix:mode", Integer.parseInt(step[2], 8));
            case "owner" -> {
                Assumptions.assumeTrue(Files.getAttribute(home, "unix:uid").equals(0), "giving files away needs root");
                Files.setAttribute(path, "unix:uid", Integer.parseInt(step[2]));
            }
            case "size" -> {
                try (RandomAccessFile file = new RandomAccessFile(path.toFile(), "rw")) {
                    file.setLength(Long.parseLong(step[2]));
                }
            }
            default -> assertEquals("", step[0]);
        }
    }

    private static void remove(Path path) throws IOException {
        if (Files.exists(path)) {
            try (Stream<Path> all = Files.walk(path)) {
                for (Path each : all.sorted(Comparator.reverseOrder()).toList()) {
                    Files.delete(each);
                }
            }
        }
    }

    private static String said(Path home) {
        List<Finding> findings = AgentCheck.of(home, home.resolve("config/AutoConfig.ini"));
        return findings.stream().map(finding -> finding.text().replace(home.toString(), "HOME") + "\n")
                .collect(Collectors.joining());
    }

    @ParameterizedTest
    @EnumSource(FindingKind.class)
    void everyKindOfFindingHasFilesThatProvokeIt(FindingKind kind) throws Exception {
        String id = kind.id();
        assertTrue(isThere(id + ".ini") || isThere(id + ".txt") || isThere(id + ".home"), id);
        String expected = new String(resource(id + ".out").orElseThrow(), StandardCharsets.UTF_8);
        assertTrue(expected.contains(": " + kind.severity() + ": ") && expected.contains("[" + id + "]"), id);
        assertEquals(expected, said(home(id)));
    }

    @Test
    void theBaseProvokesNothing() throws Exception {
        assertEquals("", said(home("base")));
    }

    @Test
    void anAutomaticPeriodAndAFewGoodWindowsProvokeNothingButThatTheyAreNotKept() throws Exception {
        Path home = home("base");
        Path config = home.resolve("config/AutoConfig.ini");
        Files.writeString(config, Files.readString(config).replace("10000", "-1"));
        Path declarations = home.resolve("config/resources.txt");
        Files.writeString(declarations, Files.readString(declarations).replace("-1.", "3.2"));
        assertEquals(List.of("window-not-kept", "window-not-kept", "window-not-kept"), ids(home));
        // 3.1 of 4.8 hours are fewer than 200 of 300 samples
        Files.writeString(declarations, Files.readString(declarations).replaceFirst("3\\.2", "-1")
                .replace("3.2", "3.1"));
        assertEquals(List.of("window-too-short", "window-too-short"), ids(home));
    }

    @Test
    void aWindowIsNotJudgedWhereNothingIsForecast() throws Exception {
        Path home = home("window-too-short");
        Path declarations = home.resolve("config/resources.txt");
        Files.writeString(declarations,
                Files.readString(declarations).replace("AnalyticalMethod 1", "AnalyticalMethod 0"));
        assertEquals(List.of("window-not-kept"), ids(home));
    }

    private static List<String> ids(Path home) {
        return AgentCheck.of(home, home.resolve("config/AutoConfig.ini")).stream().map(Finding::id).toList();
    }

    @Test
    void exactlyTwoHundredSamplesAreEnough() throws Exception {
        Path home = home("base");
        Path config = home.resolve("config/AutoConfig.ini");
        // a tenth of 50 hours holds 200 samples of 90 seconds
        Files.writeString(config, Files.readString(config).replace("10000", "90000").replace("48", "50"));
        assertEquals(List.of(), ids(home));
        Files.writeString(config, Files.readString(config).replace("90000", "91000"));
        assertEquals(List.of("automatic-window-too-short"), ids(home));
    }

    @Test
    void anArgumentMayFillItsField() throws Exception {
        Path home = home("base");
        Path declarations = home.resolve("config/resources.txt");
        Files.writeString(declarations, Files.readString(declarations).replace("(none)",
                "(" + "m".repeat(127) + ")"));
        assertEquals(List.of(), ids(home));
        Files.writeString(declarations, Files.readString(declarations).replaceFirst("m\\)", "mm)"));
        assertEquals(List.of("argument-too-long"), ids(home));
    }

    @Test
    void theColumnCountsCharactersAndNotBytes() throws Exception {
        Path home = home("base");
        Path config = home.resolve("config/AutoConfig.ini");
        Files.writeString(config, Files.readString(config).replace("\n", " ")
                .replace("Scratch", "Schr\u00e4g").replace("50 0 0", "0 0 0"));
        Finding finding = AgentCheck.of(home, config).get(0);
        assertEquals("archive-limit-empty", finding.id());
        assertEquals(1, finding.line());
        assertEquals(Files.readString(config).indexOf(" 0 0 0") + 2, finding.column());
    }

    @Test
    void ofAFileThatIsReadInPartNothingIsSaidToGoWithItsRewriting() throws Exception {
        Path home = home("comment-not-kept");
        assertEquals(List.of("comment-not-kept"), ids(home));
        Path declarations = home.resolve("config/resources.txt");
        try (RandomAccessFile file = new RandomAccessFile(declarations.toFile(), "rw")) {
            file.setLength(CheckHome.MOST_BYTES + 1L);
        }
        assertEquals(List.of("file-too-long", "nul-byte"), ids(home));
    }

    @Test
    void theFilesInUseAreNotDeletedWhateverTheirNames() throws Exception {
        Path home = home("base");
        Path config = home.resolve("config/AutoConfig.ini");
        Path moved = home.resolve("data/AutoConfig.ini");
        Files.writeString(moved, Files.readString(config).replace("LumetraArchive.txt", "a.gnp"));
        Files.writeString(home.resolve("data/a.gnp"), "");
        Files.createDirectory(home.resolve("data/directory.ini"));
        assertEquals(List.of(), AgentCheck.of(home, moved));
        assertEquals(List.of("deletion-at-start"), ids(home));
    }

    @Test
    void anEmptyFileAndNamesThatAreRootsAreJudgedToo() throws Exception {
        Path home = home("base");
        Path config = home.resolve("config/AutoConfig.ini");
        Files.writeString(config, "/ / / / ../config/resources.txt 10000 0 48 50");
        assertEquals(List.of("same-file", "output-not-a-file", "output-not-a-file"), ids(home).stream()
                .filter(id -> !id.startsWith("d")).sorted(Comparator.reverseOrder()).toList());
        Files.writeString(config, "");
        assertEquals(List.of("item-missing"), ids(home));
    }

    @Test
    void aDataDirectoryThatTheAgentMakesIsNotMissed() throws Exception {
        Path home = home("base");
        remove(home.resolve("data"));
        assertEquals(List.of(), ids(home));
        Path config = home.resolve("config/AutoConfig.ini");
        Files.writeString(config,
                Files.readString(config).replace("LumetraArchive", "deeper/LumetraArchive"));
        assertEquals(List.of("directory-missing"), ids(home));
        Files.writeString(config, Files.readString(config).replace("deeper/", "")
                .replace("../data/\n", "../data\n").replace("data/ScratchPad", "log/ScratchPad"));
        assertEquals(List.of("home-without-separator"), ids(home));
    }
}
