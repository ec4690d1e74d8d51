package com.quorin.sysmgt.tavl.LumetraAgent.check;

import com.quorin.sysmgt.tavl.LumetraAgent.CheckFeed;
import com.quorin.sysmgt.tavl.LumetraAgent.NativeLibrary;
import com.quorin.sysmgt.tavl.LumetraAgent.text.LibraryBytes;
import java.util.List;
import java.util.Optional;

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
     * @param samplesForForecast so many samples does a forecast need
     * @param inputs             those that the agent reads whole, in their order
     */
    public record Declarations(List<LibraryFinding> findings, boolean accepted, boolean rewritten, Place comment,
            int samplesForForecast, List<DeclaredInput> inputs) {}

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

    public static Declarations declarationsOf(byte[] text) {
        LibraryBytes bytes = begin(CheckFeed.declarations(text));
        Declarations read = new Declarations(findings(bytes), bytes.flag("whether they are accepted"),
                bytes.flag("whether they are rewritten"), place(bytes), bytes.number("the samples of a forecast"),
                bytes.list(LEAST, "the inputs", () -> input(bytes)));
        bytes.end();
        return read;
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

    private static DeclaredInput input(LibraryBytes bytes) {
        return new DeclaredInput(text(bytes), text(bytes), text(bytes), text(bytes), real(bytes),
                number(bytes), real(bytes));
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
