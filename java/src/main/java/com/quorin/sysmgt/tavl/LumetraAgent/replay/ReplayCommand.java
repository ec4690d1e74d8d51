package com.quorin.sysmgt.tavl.LumetraAgent.replay;

import com.quorin.sysmgt.tavl.LumetraAgent.NativeLibrary;
import com.quorin.sysmgt.tavl.LumetraAgent.ReplayFeed;
import com.quorin.sysmgt.tavl.LumetraAgent.check.HomeFiles;
import com.quorin.sysmgt.tavl.LumetraAgent.check.LibraryCheck;
import com.quorin.sysmgt.tavl.LumetraAgent.client.Failed;
import com.quorin.sysmgt.tavl.LumetraAgent.client.ExistingDirectory;
import com.quorin.sysmgt.tavl.LumetraAgent.client.Gnuplot;
import com.quorin.sysmgt.tavl.LumetraAgent.client.PathName;
import com.quorin.sysmgt.tavl.LumetraAgent.client.Terminal;
import com.quorin.sysmgt.tavl.LumetraAgent.client.WholeNumber;
import com.quorin.sysmgt.tavl.LumetraAgent.score.ScoreFile;
import com.quorin.sysmgt.tavl.LumetraAgent.text.FileText;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Program;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.io.IOException;
import java.io.PrintStream;
import java.nio.file.Path;
import java.time.Duration;
import java.time.ZoneId;
import java.util.ArrayList;
import java.util.List;
import java.util.Optional;
import java.util.concurrent.Callable;
import java.util.concurrent.CountDownLatch;
import picocli.CommandLine.Command;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;

/** Runs the agent's prediction over recorded history and says how right it would have been. */
@Command(name = "replay", mixinStandardHelpOptions = true, versionProvider = Program.Version.class,
        description = "Runs the agent's own prediction over recorded archives, by the archive's clock, and says "
                + "what it "
                + "would have announced, when, and how right it was. It changes nothing.",
        footerHeading = "%nExit codes:%n",
        footer = {"  0  all was replayed",
            "  1  it did not work, or a file could not be read; standard error says why",
            "  2  the command line is wrong",
            "  3  all was replayed but damaged lines%n"})
public final class ReplayCommand implements Callable<Integer> {

    private static final int DAMAGED = 3;

    /** A farthest forecast. */
    static final class Hours extends WholeNumber {

        Hours() {
            super("hours from 1 to 100000", 1, 100_000);
        }
    }

    /** Which cycles are taken. */
    static final class Nth extends WholeNumber {

        Nth() {
            super("a number from 1 to 100000", 1, 100_000);
        }
    }

    @Parameters(paramLabel = "ARCHIVE", arity = "0..*",
            description = "Archives, oldest first. Default: that of the home.")
    private List<Path> archives = new ArrayList<>();

    @Option(names = "--home", paramLabel = "DIR", defaultValue = "${sys:lumetra.home:-..}",
            converter = PathName.class,
            description = "The home that the archives were recorded in. Default: that of lumetra run.")
    private Path home;

    @Option(names = "--config", paramLabel = "FILE", converter = PathName.class,
            description = "The configuration file. Default: config/AutoConfig.ini of the home.")
    private Path config;

    @Option(names = "--horizon", paramLabel = "HOURS", converter = Hours.class,
            description = "The farthest forecast, and with it every automatic window, in the configuration's place.")
    private Integer horizon;

    @Option(names = "--every", paramLabel = "N", defaultValue = "1", converter = Nth.class,
            description = "Take only each N-th cycle: what a longer period would see.")
    private int every;

    @Option(names = "--against",
            description = "Judge other rules over the same history: lines over 6 h, two points, 90 %%.")
    private boolean against;

    @Option(names = "--sweep", description = "Score forecast hours and periods side by side.")
    private boolean sweep;

    @Option(names = "--json", description = "Print the result as JSON.")
    private boolean json;

    @Option(names = "--plot", paramLabel = "DIR", converter = ExistingDirectory.class,
            description = "Draw a picture of each resource into this directory.")
    private Path plot;

    private final PrintStream out = System.out;
    private final Terminal terminal = Terminal.ofThisProcess();
    private final CountDownLatch finished = new CountDownLatch(1);
    private volatile boolean interrupted;

    @Override
    public Integer call() {
        Runtime.getRuntime().addShutdownHook(new Thread(this::interrupt, "lumetra-interrupt"));
        try {
            return replay();
        } catch (NativeLibrary.Unavailable | HomeFiles.Unusable e) {
            return fail(e.getMessage());
        } finally {
            finished.countDown();
        }
    }

    /** Ctrl-C: what is known so far is printed before the process ends. */
    private void interrupt() {
        interrupted = true;
        try {
            finished.await();
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }

    private static int fail(String message) {
        System.err.println("lumetra replay: " + Words.printable(message));
        return Program.FAILED;
    }

    private int replay() throws NativeLibrary.Unavailable, HomeFiles.Unusable {
        LibraryCheck.load();
        Optional<String> problem = ReplayFeed.problem();
        if (problem.isPresent()) {
            return fail(problem.get());
        }
        Replay.Request request = request();
        if (sweep) {
            List<ReplayResult> results = new ArrayList<>();
            for (Replay.Settings settings : Sweep.around(request.settings(), samplesForForecast(request))) {
                if (!interrupted) {
                    results.add(run(request.with(settings), null));
                }
            }
            print(json ? List.of(ReplayJson.ofSweep(results)) : ReplayTable.sweep(results));
            return code(results);
        }
        ReplayPlot pictures = plot == null ? null : new ReplayPlot();
        ReplayResult result = run(request, pictures);
        int rules = against ? ReplayResult.RULES.size() : 1;
        print(json ? List.of(ReplayJson.of(result, rules))
                : new ReplayTable(result, ZoneId.systemDefault()).lines(rules));
        if (pictures != null && !draw(pictures, result)) {
            return Program.FAILED;
        }
        return code(List.of(result));
    }

    private static int samplesForForecast(Replay.Request request) {
        Replay.Settings settings = request.settings();
        return LibraryCheck.declarationsOf(request.declarations(), settings.periodMillis(),
                settings.maxForecastHours()).windows().samplesForForecast();
    }

    private Replay.Request request() throws HomeFiles.Unusable {
        int user = HomeFiles.userOf(home);
        Path configuration = config;
        if (configuration == null) {
            configuration = home.resolve("config").resolve("AutoConfig.ini");
            HomeFiles.needGiven(configuration, "the configuration", user);
        }
        HomeFiles files = HomeFiles.of(home, configuration);
        if (archives.isEmpty()) {
            HomeFiles.needOwn(files.archive(), "the archive", user);
        }
        for (Path archive : archives) { // whatever somebody names may be anybody's
            HomeFiles.need(archive, "the archive");
        }
        List<Path> read = archives.isEmpty() ? List.of(files.archive()) : archives;
        Path score = home.resolve("log").resolve(ScoreFile.NAME);
        List<ScoreFile.Start> starts = new ScoreFile(score).read().starts();
        int most = horizon == null ? files.maxForecastHours() : horizon;
        return new Replay.Request(read.stream().map(FileText::bytes).toList(),
                HomeFiles.readGiven(files.declarations(), "the declarations", user),
                HomeFiles.readOwn(files.scratchPad(), "the scratch pad", user),
                new Replay.Settings(files.periodMillis(), Math.min(files.minForecastHours(), most), most, every),
                starts, against, plot != null);
    }

    private ReplayResult run(Replay.Request request, ReplayPlot pictures) {
        ReplayResult.Collector collector = new ReplayResult.Collector();
        long begin = System.nanoTime();
        try (Replay replay = new Replay(request)) {
            Replay.Step step;
            do {
                step = replay.step();
                collector.take(step);
                if (pictures != null) {
                    pictures.take(step.samples());
                }
                progress(step.progress(), System.nanoTime() - begin);
            } while (!step.progress().isOver() && !interrupted);
            clearProgress();
            return collector.result(request.settings(), replay.summary());
        }
    }

    private void progress(Replay.Progress progress, long nanos) {
        if (!terminal.showsErrors() || progress.bytes() == 0 || progress.bytesRead() == 0) {
            return;
        }
        double done = Math.min(1.0, progress.bytesRead() / (double) progress.bytes());
        Duration left = Duration.ofNanos((long) (nanos * (1 - done) / done));
        System.err.print(Terminal.CLEARED_LINE + Math.round(100 * done) + " % replayed, "
                + Words.ofDuration(left) + " left ");
    }

    private void clearProgress() {
        if (terminal.showsErrors()) {
            System.err.print(Terminal.CLEARED_LINE);
        }
    }

    private void print(List<String> lines) {
        lines.forEach(out::println);
        out.flush();
    }

    private boolean draw(ReplayPlot pictures, ReplayResult result) {
        for (Replay.Tally resource : result.summary().resources()) {
            Path file = plot.resolve("replay-" + resource.id() + ".png");
            try {
                Gnuplot.drawTo(file, pictures.script(result, resource, ZoneId.systemDefault()), "png");
            } catch (Failed | IOException e) {
                fail(file + ": " + e.getMessage());
                return false;
            }
            (json ? System.err : out).println(Words.printable(file.toString()));
        }
        return true;
    }

    private static int code(List<ReplayResult> results) {
        if (results.stream().flatMap(r -> r.damages().stream()).anyMatch(d -> d.line() == 0)) {
            return Program.FAILED;
        }
        return results.stream().anyMatch(r -> r.progress().damagedLines() > 0) ? DAMAGED : Program.DONE;
    }
}
