package com.quorin.sysmgt.tavl.LumetraAgent;

import java.io.IOException;
import java.nio.file.AccessDeniedException;
import java.nio.file.AtomicMoveNotSupportedException;
import java.nio.file.Files;
import java.nio.file.InvalidPathException;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.nio.file.StandardOpenOption;
import java.time.ZoneId;
import java.util.ArrayList;
import java.util.List;
import java.util.Locale;
import java.util.concurrent.Callable;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Model.CommandSpec;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;
import picocli.CommandLine.Parameters;
import picocli.CommandLine.Spec;

/** Draws charts of a running agent's resources into files. */
@Command(name = "plot", mixinStandardHelpOptions = true, versionProvider = Lumetra.Version.class,
        description = "Draws samples, forecast, limit and notification level of resources of a running "
                + "agent, a file for each, by gnuplot (package gnuplot-nox).",
        footerHeading = "%nExit codes:%n",
        footer = {"  0  all files were written; standard output names them",
            "  1  one at least could not be written, or no agent answers",
            "  2  the command line is wrong%n"})
final class PlotCommand implements Callable<Integer> {

    private static final List<String> FORMATS = List.of("png", "svg");
    private static final int LONGEST_NAME = 120;
    private static final int SHOWN_CHOICES = 8;
    private static final long SECOND = 1_000_000_000L;

    @Mixin
    private AgentAddress address = new AgentAddress();

    @Option(names = "--format", paramLabel = "FORMAT", defaultValue = "png",
            description = "png or svg. Default: ${DEFAULT-VALUE}.")
    private String format;

    @Option(names = "--output", paramLabel = "DIR", defaultValue = ".",
            description = "The directory for the files, which must exist. Default: this one.")
    private String output;

    @Parameters(paramLabel = "RESOURCE", arity = "0..*",
            description = "A resource's number, or a part of its name or instance. "
                    + "Default: all that have samples.")
    private List<String> wanted = new ArrayList<>();

    @Spec
    private CommandSpec spec;

    private final Terminal terminal = Terminal.ofThisProcess();
    private AgentClient client;
    private Path directory;

    /** Creates the command with its default options. */
    PlotCommand() {
        // picocli fills in the options
    }

    /**
     * Draws all charts that are wanted.
     *
     * @return the exit code
     */
    @Override
    public Integer call() {
        client = new AgentClient(address.uri(spec));
        checkOptions();
        try {
            Snapshot snapshot = client.overview().snapshot();
            List<Snapshot.Resource> chosen = choose(snapshot.resources());
            return chosen.isEmpty() ? Lumetra.FAILED : drawAll(chosen);
        } catch (AgentClient.Unavailable e) {
            return fail(e.getMessage());
        }
    }

    private void checkOptions() {
        if (!FORMATS.contains(format)) {
            throw new ParameterException(spec.commandLine(),
                    "Invalid value for option '--format': expected png or svg, got \"" + format + "\"");
        }
        try {
            directory = Path.of(output);
        } catch (InvalidPathException e) {
            directory = null;
        }
        if (directory == null || !Files.isDirectory(directory)) {
            throw new ParameterException(spec.commandLine(),
                    "Invalid value for option '--output': expected a directory, got \"" + output + "\"");
        }
        if (wanted.contains("")) {
            throw new ParameterException(spec.commandLine(),
                    "Invalid RESOURCE: expected a number or a part of a name, got nothing");
        }
    }

    private static int fail(String message) {
        System.err.println("lumetra plot: " + Words.printable(message));
        return Lumetra.FAILED;
    }

    /** What the words on the command line mean; empty after a message when one means nothing. */
    private List<Snapshot.Resource> choose(List<Snapshot.Resource> all) {
        if (wanted.isEmpty()) {
            List<Snapshot.Resource> some = all.stream().filter(r -> r.value() != null).toList();
            if (some.isEmpty()) {
                fail("the agent has no samples yet");
            }
            return some;
        }
        List<Snapshot.Resource> chosen = new ArrayList<>();
        for (String word : wanted) {
            List<Snapshot.Resource> found = matching(all, word);
            if (found.isEmpty()) {
                fail("no resource has the number or the text \"" + word + "\"; there are " + choices(all));
                return List.of();
            }
            found.stream().filter(r -> !chosen.contains(r)).forEach(chosen::add);
        }
        return chosen;
    }

    private static List<Snapshot.Resource> matching(List<Snapshot.Resource> all, String word) {
        List<Snapshot.Resource> numbered =
                all.stream().filter(r -> Integer.toString(r.id()).equals(word)).toList();
        if (!numbered.isEmpty()) {
            return numbered;
        }
        String part = word.toLowerCase(Locale.ROOT);
        return all.stream().filter(r -> label(r).toLowerCase(Locale.ROOT).contains(part)).toList();
    }

    private static String label(Snapshot.Resource resource) {
        return (resource.resource() + " " + resource.instance()).strip();
    }

    private static String choices(List<Snapshot.Resource> all) {
        if (all.isEmpty()) {
            return "none";
        }
        String names = String.join(", ",
                all.stream().limit(SHOWN_CHOICES).map(r -> r.id() + " (" + label(r) + ")").toList());
        return all.size() > SHOWN_CHOICES ? names + " and " + (all.size() - SHOWN_CHOICES) + " more" : names;
    }

    private int drawAll(List<Snapshot.Resource> chosen) {
        int code = Lumetra.DONE;
        long begin = System.nanoTime();
        for (int i = 0; i < chosen.size(); i++) {
            progress(begin, i, chosen.size());
            try {
                draw(chosen.get(i));
            } catch (Gnuplot.Failed | AgentClient.Unavailable | IOException e) {
                code = fail(label(chosen.get(i)) + ": " + reason(e));
                if (endsAll(e)) {
                    break;
                }
            }
        }
        clearProgress();
        return code;
    }

    /** Whether no other chart can be drawn either. */
    private static boolean endsAll(Exception e) {
        return e instanceof Gnuplot.Failed gnuplot && gnuplot.isMissing()
                || e instanceof AgentClient.Unavailable agent && agent.isUnreachable();
    }

    private static String reason(Exception e) {
        return e instanceof AccessDeniedException denied
                ? denied.getFile() + ": permission denied" : e.getMessage();
    }

    private void progress(long begin, int done, int all) {
        if (System.nanoTime() - begin > SECOND && terminal.showsErrors()) {
            System.err.print("\r" + done + " of " + all + " drawn ");
        }
    }

    private void clearProgress() {
        if (terminal.showsErrors()) {
            System.err.print(Terminal.CLEARED_LINE);
        }
    }

    private void draw(Snapshot.Resource resource)
            throws Gnuplot.Failed, AgentClient.Unavailable, IOException {
        TrendView trend = client.trend(resource.id());
        if (trend.samples().times().length == 0) {
            throw new IOException("there are no samples yet");
        }
        String script = PlotScript.of(resource, trend, format, ZoneId.systemDefault());
        Path file = directory.resolve(fileName(resource, format));
        write(file, Gnuplot.draw(script, format));
        System.out.println(Words.printable(file.toString()));
    }

    /**
     * The name of a resource's file: harmless whatever the resource is called.
     *
     * @param resource the resource
     * @param format   the ending
     * @return the name
     */
    static String fileName(Snapshot.Resource resource, String format) {
        String cleaned = label(resource).replaceAll("[^A-Za-z0-9._-]", "_");
        String name = cleaned.substring(0, Math.min(LONGEST_NAME, cleaned.length()));
        return resource.id() + "-" + name + "." + format;
    }

    /** Whole or not at all: under another name first. */
    private static void write(Path file, byte[] bytes) throws IOException {
        Path next = file.resolveSibling(
                "." + file.getFileName() + "." + ProcessHandle.current().pid() + ".tmp");
        try {
            Files.write(next, bytes, StandardOpenOption.CREATE_NEW, StandardOpenOption.WRITE);
            try {
                Files.move(next, file, StandardCopyOption.ATOMIC_MOVE);
            } catch (AtomicMoveNotSupportedException e) {
                Files.move(next, file, StandardCopyOption.REPLACE_EXISTING);
            }
        } finally {
            Files.deleteIfExists(next);
        }
    }
}
