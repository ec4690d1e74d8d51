package com.quorin.sysmgt.tavl.LumetraAgent.check;

import com.quorin.sysmgt.tavl.LumetraAgent.CheckFeed;
import com.quorin.sysmgt.tavl.LumetraAgent.NativeLibrary;
import com.quorin.sysmgt.tavl.LumetraAgent.text.FileText;
import com.quorin.sysmgt.tavl.LumetraAgent.text.LibraryBytes;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.Optional;
import java.util.OptionalLong;

/** What the library's own readers make of a configuration and of declarations. Any thread. */
public final class LibraryCheck {

    /** Every element of a list has a place. */
    private static final int LEAST = 2 * Integer.BYTES;

    /** What the library makes of a configuration. */
    public record Configuration(List<LibraryFinding> findings, boolean accepted, ConfigurationItems items) {}

    /**
     * What the library makes of declarations.
     *
     * @param rewritten          whether nothing in them keeps the agent from replacing them
     * @param comment            where the first comment stands; nowhere without one
     * @param windows            what follows for all windows
     * @param inputs             those that the agent reads whole, in their order
     */
    public record Declarations(List<LibraryFinding> findings, boolean accepted, boolean rewritten, Place comment,
            Windows windows, List<DeclaredInput> inputs) {}

    /**
     * What a configuration means for the windows of declarations.
     *
     * @param samplesForForecast so many samples does a forecast need
     * @param period             in force, milliseconds
     * @param automaticHours     length of the automatic window
     * @param automaticSamples   that it holds; empty when no ring can hold them
     */
    public record Windows(int samplesForForecast, int period, double automaticHours,
            OptionalLong automaticSamples) {}

    private LibraryCheck() {}

    /**
     * Loads the library.
     *
     * @throws NativeLibrary.Unavailable when it cannot be loaded or is of another version
     */
    public static void load() throws NativeLibrary.Unavailable {
        NativeLibrary.load();
        Optional<String> problem = CheckFeed.problem();
        if (problem.isPresent()) {
            throw new NativeLibrary.Unavailable(problem.get(), null);
        }
    }

    public static Configuration configurationOf(byte[] text) {
        LibraryBytes bytes = begin(CheckFeed.configuration(text));
        Configuration read = new Configuration(findings(bytes), bytes.flag("whether it is accepted"),
                new ConfigurationItems(bytes.list(LEAST, "the names", () -> text(bytes)),
                        bytes.list(LEAST, "the numbers", () -> number(bytes))));
        bytes.end();
        return read;
    }

    /**
     * What it makes of declarations beside a configuration of this period and these hours.
     *
     * @param period milliseconds; -1 asks for the automatic one
     */
    public static Declarations declarationsOf(byte[] text, int period, int maxForecastHours) {
        LibraryBytes bytes = begin(CheckFeed.declarations(text, period, maxForecastHours));
        Declarations read = new Declarations(findings(bytes), bytes.flag("whether they are accepted"),
                bytes.flag("whether they are rewritten"), place(bytes), windows(bytes),
                bytes.list(LEAST, "the inputs", () -> input(bytes)));
        bytes.end();
        return read;
    }

    /** What it makes of skip rules on this machine as it is now. */
    public static List<LibraryFinding> skipRulesOf(byte[] text) {
        LibraryBytes bytes = begin(CheckFeed.skipRules(text));
        List<LibraryFinding> findings = findings(bytes);
        bytes.end();
        return findings;
    }

    /**
     * What others could turn against the agent of a home.
     *
     * @param user the number of its user; -1 for that of this process
     */
    public static List<Finding> placesOf(Path home, Path configuration, long user) {
        LibraryBytes bytes = begin(CheckFeed.places(FileText.bytes(home.resolve("bin")), FileText.bytes(configuration),
                user));
        List<Finding> places = findings(bytes).stream().map(place -> place.worded(Words.ofBytes(place.text())))
                .toList();
        bytes.end();
        return places;
    }

    /** The same of the user who owns the home. */
    public static List<Finding> placesOf(Path home, Path configuration) throws IOException {
        return placesOf(home, configuration, ((Number) Files.getAttribute(home, "unix:uid")).longValue());
    }

    private static LibraryBytes begin(byte[] answer) {
        LibraryBytes bytes = new LibraryBytes(answer, "the library's answer");
        bytes.version(CheckFeed.VERSION);
        return bytes;
    }

    private static List<LibraryFinding> findings(LibraryBytes bytes) {
        return bytes.list(LEAST, "the findings", () -> new LibraryFinding(bytes.text("a kind"), place(bytes),
                bytes.text("what was found"), bytes.text("a keyword"), bytes.text("what was read"),
                bytes.number("an item"), bytes.longNumber("a number")));
    }

    private static Windows windows(LibraryBytes bytes) {
        return new Windows(bytes.number("the samples of a forecast"), bytes.number("the period"),
                bytes.real("the automatic window"), samples(bytes));
    }

    private static OptionalLong samples(LibraryBytes bytes) {
        long samples = bytes.longNumber("samples");
        return samples < 0 ? OptionalLong.empty() : OptionalLong.of(samples);
    }

    private static DeclaredInput input(LibraryBytes bytes) {
        return new DeclaredInput(text(bytes), text(bytes), text(bytes), text(bytes), real(bytes), number(bytes),
                real(bytes), sized(bytes), bytes.text("a file"));
    }

    private static DeclaredInput.Sized sized(LibraryBytes bytes) {
        DeclaredInput.Fate[] fates = DeclaredInput.Fate.values();
        return new DeclaredInput.Sized(fates[bytes.choice(0, fates.length - 1, "a window's fate")], samples(bytes));
    }

    private static Place place(LibraryBytes bytes) {
        return new Place(bytes.number("a line"), bytes.number("a column"));
    }

    private static Place.Of<String> text(LibraryBytes bytes) {
        return new Place.Of<>(bytes.text("a text"), place(bytes));
    }

    private static Place.Of<Integer> number(LibraryBytes bytes) {
        return new Place.Of<>(bytes.number("a number"), place(bytes));
    }

    private static Place.Of<Double> real(LibraryBytes bytes) {
        return new Place.Of<>(bytes.real("a number"), place(bytes));
    }
}
