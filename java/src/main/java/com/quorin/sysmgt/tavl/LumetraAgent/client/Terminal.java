package com.quorin.sysmgt.tavl.LumetraAgent.client;

import java.io.Console;
import java.io.IOException;
import java.lang.reflect.Method;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Map;
import java.util.OptionalInt;
import picocli.CommandLine.Help;
import picocli.CommandLine.Help.Ansi;
import picocli.CommandLine.Help.ColorScheme;

/** What standard output and standard error are connected to. */
public final class Terminal {

    /** Takes back what was written into the line so far. */
    public static final String CLEARED_LINE = "\r\u001b[K";

    private static final int LEAST_COLUMNS = 20;
    private static final int MOST_COLUMNS = 1000;
    private static final int USUAL_COLUMNS = 80;

    private final boolean interactive;
    private final Map<String, String> environment;

    Terminal(boolean interactive, Map<String, String> environment) {
        this.interactive = interactive;
        this.environment = environment;
    }

    /** What this process is connected to: a terminal, or none. */
    public static Terminal ofThisProcess() {
        return new Terminal(isConsoleTerminal(), System.getenv());
    }

    /** From version 22 on, Java has a console without a terminal too, and a method that tells. */
    private static boolean isConsoleTerminal() {
        Console console = System.console();
        if (console == null) {
            return false;
        }
        try {
            Method tells = Console.class.getMethod("isTerminal");
            return Boolean.TRUE.equals(tells.invoke(console));
        } catch (ReflectiveOperationException e) {
            return true;
        }
    }

    /** Whether a person is watching standard output: not where it is a file or a pipe. */
    boolean isInteractive() {
        return interactive;
    }

    /** Whether a person is watching standard error too. */
    public boolean showsErrors() {
        try {
            Path file = Files.readSymbolicLink(Path.of("/proc/self/fd/2"));
            return interactive && (file.startsWith("/dev/pts") || file.toString().startsWith("/dev/tty"));
        } catch (IOException e) {
            return false;
        }
    }

    /** Colours on a terminal that knows them, unless NO_COLOR is set; otherwise none. */
    public ColorScheme colours() {
        String kind = environment.getOrDefault("TERM", "dumb");
        boolean wanted = environment.getOrDefault("NO_COLOR", "").isEmpty();
        return Help.defaultColorScheme(interactive && !kind.equals("dumb") && wanted ? Ansi.ON : Ansi.OFF);
    }

    /** How many characters fit into a line; empty where lines may be of any length. */
    OptionalInt columns() {
        if (!interactive) {
            return OptionalInt.empty();
        }
        int columns = number("COLUMNS").orElse(USUAL_COLUMNS);
        return OptionalInt.of(Math.max(LEAST_COLUMNS, Math.min(MOST_COLUMNS, columns)));
    }

    /** How many lines are seen at once; empty where that is not known. */
    OptionalInt rows() {
        return interactive ? number("LINES") : OptionalInt.empty();
    }

    private OptionalInt number(String variable) {
        String text = environment.getOrDefault(variable, "");
        return text.matches("[1-9]\\d{0,3}") ? OptionalInt.of(Integer.parseInt(text)) : OptionalInt.empty();
    }
}
