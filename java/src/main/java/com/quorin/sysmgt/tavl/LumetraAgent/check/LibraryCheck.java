package com.quorin.sysmgt.tavl.LumetraAgent.check;

import com.quorin.sysmgt.tavl.LumetraAgent.CheckFeed;
import com.quorin.sysmgt.tavl.LumetraAgent.NativeLibrary;
import com.quorin.sysmgt.tavl.LumetraAgent.text.LibraryBytes;
import java.util.List;
import java.util.Optional;

/** What the library's own readers make of a configuration and of declarations. Any thread. */
public final class LibraryCheck {

    private LibraryCheck() {}

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
        Configuration read = new Configuration(bytes.list(() -> finding(bytes)), bytes.flag(),
                new ConfigurationItems(bytes.list(() -> text(bytes)), bytes.list(() -> number(bytes))));
        bytes.end();
        return read;
    }

    public static Declarations declarationsOf(byte[] text) {
        LibraryBytes bytes = begin(CheckFeed.declarations(text));
        Declarations read = new Declarations(bytes.list(() -> finding(bytes)), bytes.flag(), bytes.flag(),
                place(bytes), bytes.number(), bytes.list(() -> input(bytes)));
        bytes.end();
        return read;
    }

    private static LibraryBytes begin(byte[] answer) {
        LibraryBytes bytes = new LibraryBytes(answer);
        int version = bytes.number();
        if (version != CheckFeed.VERSION) {
            throw new IllegalStateException("the library answers in version " + version + ", not " + CheckFeed.VERSION);
        }
        return bytes;
    }

    private static LibraryFinding finding(LibraryBytes bytes) {
        return new LibraryFinding(bytes.text(), place(bytes), bytes.text(), bytes.text(), bytes.text(),
                bytes.number(), bytes.longNumber());
    }

    private static DeclaredInput input(LibraryBytes bytes) {
        return new DeclaredInput(text(bytes), text(bytes), text(bytes), text(bytes), real(bytes),
                number(bytes), real(bytes));
    }

    private static Place place(LibraryBytes bytes) {
        return new Place(bytes.number(), bytes.number());
    }

    private static Place.Of<String> text(LibraryBytes bytes) {
        return new Place.Of<>(bytes.text(), place(bytes));
    }

    private static Place.Of<Integer> number(LibraryBytes bytes) {
        return new Place.Of<>(bytes.number(), place(bytes));
    }

    private static Place.Of<Double> real(LibraryBytes bytes) {
        return new Place.Of<>(bytes.real(), place(bytes));
    }
}
