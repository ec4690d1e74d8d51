package com.quorin.sysmgt.tavl.LumetraAgent.client;

import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.TrendView;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Program;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.io.IOException;
import java.nio.file.AccessDeniedException;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;
import java.time.ZoneId;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.concurrent.Callable;
import picocli.CommandLine.ArgGroup;
import picocli.CommandLine.Command;
import picocli.CommandLine.ITypeConverter;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;
import picocli.CommandLine.TypeConversionException;

/** Draws charts of a running agent's resources into files. */
@Command(name = "plot", mixinStandardHelpOptions = true, versionProvider = Program.Version.class,
        description = "Draws samples, forecast, limit and notification level of resources of a running "
                + "agent, a file for each or one for all, by gnuplot (package gnuplot-nox).",
        footerHeading = "%nExit codes:%n",
        footer = {"  0  all files were written; standard output names them",
            "  1  one at least could not be written, or no agent answers",
            "  2  the command line is wrong%n"})
public final class PlotCommand implements Callable<Integer> {

    private static final int LONGEST_NAME = 120;
    private static final int SHOWN_CHOICES = 8;
    private static final long SECOND = 1_000_000_000L;

    /** Pictures of a greater height are more than cairo draws. */
    private static final int MOST_IN_PICTURE = 100;

    /** The kinds of picture. */
    enum Format {
        /** Pixels. */
        PNG,
        /** Curves. */
        SVG;

        @Override
        public String toString() {
            return name().toLowerCase(Locale.ROOT);
        }
    }

    /** A kind of picture by its name. */
    static final class FormatName implements ITypeConverter<Format> {

        @Override
        public Format convert(String text) {
            return Arrays.stream(Format.values()).filter(format -> format.toString().equals(text)).findAny()
                    .orElseThrow(() -> new TypeConversionException("expected png or svg, got \"" + text + "\""));
        }
    }

    /** What names a resource, or several; nothing would name them all. */
    static final class Word implements ITypeConverter<String> {

        @Override
        public String convert(String text) {
            if (text.isEmpty()) {
                throw new TypeConversionException("expected a number or a part of a name, got nothing");
            }
            return text;
        }
    }

    /** A file for all charts, by the end of its name. */
    static final class ReportName implements ITypeConverter<Path> {

        @Override
        public Path convert(String text) {
            if (!text.endsWith(".pdf") && !text.endsWith(".png")) {
                throw new TypeConversionException("expected a name that ends with .pdf or .png, got \"" + text + "\"");
            }
            return new PathName().convert(text);
        }
    }

    /** Either a file for each, or one for all. */
    private static final class Target {

        @Option(names = "--report", paramLabel = "FILE", converter = ReportName.class,
                description = "One file for all charts: FILE.pdf, a page for each, or FILE.png.")
        private Path report;

        @ArgGroup(exclusive = false)
        private Single single = new Single();
    }

    private static final class Single {

        @Option(names = "--format", paramLabel = "FORMAT", defaultValue = "png", converter = FormatName.class,
                description = "png or svg. Default: ${DEFAULT-VALUE}.")
        private Format format;

        @Option(names = "--output", paramLabel = "DIR", defaultValue = ".", converter = ExistingDirectory.class,
                description = "The directory for the files, which must exist. Default: this one.")
        private Path directory;
    }

    @ArgGroup
    private Target target = new Target();

    @Mixin
    private AgentAddress address = new AgentAddress();

    @Parameters(paramLabel = "RESOURCE", arity = "0..*", converter = Word.class,
            description = "A resource's number, or a part of its name or instance. "
                    + "Default: all that have samples.")
    private List<String> wanted = new ArrayList<>();

    private final Terminal terminal = Terminal.ofThisProcess();
    private AgentClient client;

    @Override
    public Integer call() {
        client = new AgentClient(address.uri());
        try {
            Snapshot snapshot = client.overview().snapshot();
            List<Snapshot.Resource> chosen = choose(snapshot.resources());
            if (chosen.isEmpty()) {
                return Program.FAILED;
            }
            return target.report == null ? drawAll(chosen) : drawReport(chosen);
        } catch (Failed e) {
            return fail(e.getMessage());
        }
    }

    private static int fail(String message) {
        System.err.println("lumetra plot: " + Words.printable(message));
        return Program.FAILED;
    }

    /** What the words on the command line mean; empty after a message when one means nothing. */
    private List<Snapshot.Resource> choose(List<Snapshot.Resource> all) {
        if (wanted.isEmpty()) {
            List<Snapshot.Resource> some = all.stream().filter(r -> r.reading().value() != null).toList();
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
        return (resource.identity().resource() + " " + resource.identity().instance()).strip();
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
        int code = Program.DONE;
        long begin = System.nanoTime();
        for (int i = 0; i < chosen.size(); i++) {
            progress(begin, i, chosen.size());
            try {
                draw(chosen.get(i));
            } catch (Failed | IOException e) {
                code = fail(label(chosen.get(i)) + ": " + reason(e));
                if (e instanceof Failed failed && failed.endsAll()) {
                    break;
                }
            }
        }
        clearProgress();
        return code;
    }

    private int drawReport(List<Snapshot.Resource> chosen) {
        Path file = target.report;
        String kind = file.toString().endsWith(".pdf") ? "pdf" : "png";
        if (kind.equals("png") && chosen.size() > MOST_IN_PICTURE) {
            return fail("a picture has room for " + MOST_IN_PICTURE + " charts, these are " + chosen.size()
                    + "; name some, or draw a PDF");
        }
        int code = Program.DONE;
        Map<Snapshot.Resource, TrendView> charts = new LinkedHashMap<>();
        for (Snapshot.Resource resource : chosen) {
            try {
                charts.put(resource, trend(resource));
            } catch (Failed | IOException e) {
                code = fail(label(resource) + ": " + reason(e));
            }
        }
        try {
            if (!charts.isEmpty()) {
                Gnuplot.drawTo(file, PlotScript.report(charts, kind, ZoneId.systemDefault()), kind);
                System.out.println(Words.printable(file.toString()));
            }
        } catch (Failed | IOException e) {
            code = fail(reason(e));
        }
        return code;
    }

    private static String reason(Exception e) {
        if (e instanceof NoSuchFileException missing) {
            return Path.of(missing.getFile()).getParent() + ": no such directory";
        }
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

    private void draw(Snapshot.Resource resource) throws Failed, IOException {
        TrendView trend = trend(resource);
        String kind = target.single.format.toString();
        String script = PlotScript.of(resource, trend, kind, ZoneId.systemDefault());
        Path file = target.single.directory.resolve(fileName(resource, kind));
        Gnuplot.drawTo(file, script, kind);
        System.out.println(Words.printable(file.toString()));
    }

    private TrendView trend(Snapshot.Resource resource) throws Failed, IOException {
        TrendView trend = client.trend(resource.id());
        if (trend.samples().times().length == 0) {
            throw new IOException("there are no samples yet");
        }
        return trend;
    }

    /** The name of a resource's file: harmless whatever the resource is called. */
    static String fileName(Snapshot.Resource resource, String format) {
        String cleaned = label(resource).replaceAll("[^A-Za-z0-9._-]", "_");
        String name = cleaned.substring(0, Math.min(LONGEST_NAME, cleaned.length()));
        return resource.id() + "-" + name + "." + format;
    }
}
