package com.quorin.sysmgt.tavl.LumetraAgent.host;

import com.quorin.sysmgt.tavl.LumetraAgent.CheckFeed;
import com.quorin.sysmgt.tavl.LumetraAgent.ExecPrediction;
import com.quorin.sysmgt.tavl.LumetraAgent.HostFeed;
import com.quorin.sysmgt.tavl.LumetraAgent.LumetraSubagent;
import com.quorin.sysmgt.tavl.LumetraAgent.NativeLibrary;
import com.quorin.sysmgt.tavl.LumetraAgent.check.Finding;
import com.quorin.sysmgt.tavl.LumetraAgent.check.HomeFiles;
import com.quorin.sysmgt.tavl.LumetraAgent.check.LibraryCheck;
import com.quorin.sysmgt.tavl.LumetraAgent.client.PathName;
import com.quorin.sysmgt.tavl.LumetraAgent.client.WholeNumber;
import com.quorin.sysmgt.tavl.LumetraAgent.events.AgentEvents;
import com.quorin.sysmgt.tavl.LumetraAgent.events.Event;
import com.quorin.sysmgt.tavl.LumetraAgent.events.EventHistory;
import com.quorin.sysmgt.tavl.LumetraAgent.files.EventFile;
import com.quorin.sysmgt.tavl.LumetraAgent.http.Rehearsal;
import com.quorin.sysmgt.tavl.LumetraAgent.http.SpareThreads;
import com.quorin.sysmgt.tavl.LumetraAgent.http.WebServer;
import com.quorin.sysmgt.tavl.LumetraAgent.replay.EarlierScore;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Feed;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.LibraryFeed;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Publication;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.ResourceNames;
import com.quorin.sysmgt.tavl.LumetraAgent.score.ScoreBook;
import com.quorin.sysmgt.tavl.LumetraAgent.score.ScoreFile;
import com.quorin.sysmgt.tavl.LumetraAgent.tell.Telling;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Complaint;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Program;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import com.quorin.sysmgt.tavl.LumetraAgent.watch.AgentWatch;
import com.quorin.sysmgt.tavl.LumetraAgent.watch.FeedFollower;
import java.io.FileDescriptor;
import java.io.FileOutputStream;
import java.io.IOException;
import java.io.PrintStream;
import java.nio.charset.Charset;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.Optional;
import java.util.OptionalLong;
import java.util.concurrent.Callable;
import java.util.concurrent.atomic.AtomicBoolean;
import java.util.function.Consumer;
import java.util.stream.Collectors;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Model.CommandSpec;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;
import picocli.CommandLine.Spec;

/**
 * Runs the agent: starts it and the page, shows what it sees, and ends it in order on Ctrl-C, on SIGTERM or
 * after a given time.
 *
 * <p>Its working directory must be the directory "bin" of the agent's home, because the native library finds
 * its log and its work files from there; {@code run-agent} sees to that.
 */
@Command(name = "run", mixinStandardHelpOptions = true, versionProvider = Program.Version.class,
        description = "Samples this machine's process slots, swap space, file descriptors and file systems, "
                + "and tells when one of them will run out, here and on a page for the browser.",
        footerHeading = "%nExit codes:%n",
        footer = {"  0  the agent ended as asked (Ctrl-C, SIGTERM, --for)",
            "  1  the agent could not start, or ended by itself",
            "  2  the command line is wrong",
            "  3  packages are missing and cannot be installed (run-agent)",
            "  4  the build failed (run-agent)",
            "  5  another agent works in this home, or its lock may not be opened",
            "  6  threads or memory are too short for the agent%n"})
final class RunCommand implements Callable<Integer> {
    /** The agent ended because it was asked to. */
    static final int ENDED_AS_ASKED = Program.DONE;

    private static final Path SCORE = Path.of("../log", ScoreFile.NAME);
    private static final Path EVENTS = Path.of("..", "log", "events.jsonl");

    /** Each look costs a fifth of a millisecond of a processor's time. */
    private static final Duration LOOK_EVERY = Duration.ofSeconds(2);

    private static final long THIS_USER = -1;

    private static final Duration REMIND_EVERY = Duration.ofSeconds(30);
    private static final Duration REOPEN_EVERY = Duration.ofSeconds(10);
    private static final Duration LAST_WORDS = Duration.ofSeconds(2);

    /** A signal to end takes three: Java's own, the one that stops the agent, and the end of Java's logging. */
    private static final int THREADS_OF_A_SIGNAL = 3;

    /** The agent's listing of disks is a shell and its command, which count among a user's threads. */
    private static final int THREADS_OF_A_LISTING = 2;

    /** How long a run lasts. */
    static final class Seconds extends WholeNumber {
        Seconds() {
            super("at least 1 second and at most " + Integer.MAX_VALUE, 1, Integer.MAX_VALUE);
        }
    }

    @Option(names = "--home", paramLabel = "DIR", defaultValue = "..", converter = PathName.class,
            description = "The agent's home; the program runs in its directory bin. "
                    + "Default: the directory above.")
    private Path home;

    @Option(names = "--config", paramLabel = "FILE", defaultValue = "../config/AutoConfig.ini",
            converter = PathName.class,
            description = "The configuration file. Default: config/AutoConfig.ini of the home.")
    private Path config;

    @Option(names = "--for", paramLabel = "SECONDS", converter = Seconds.class,
            description = "End by itself after this many seconds.")
    private Integer seconds;

    @Option(names = "--fresh", description = "Begin with empty histories. Without it the agent goes on with what the "
            + "archive has of earlier runs, and forecasts in its first cycle if that is enough.")
    private boolean fresh;

    @Mixin
    private DiskOptions disks = new DiskOptions();

    @Mixin
    private PageOptions page = new PageOptions();

    @Mixin
    private TellOptions tell = new TellOptions();

    @Spec
    private CommandSpec spec;

    private final AtomicBoolean left = new AtomicBoolean();
    /** What is printed waits here; null before the run prints. */
    OutputQueue output;
    Duration lastWords = LAST_WORDS;
    private PrintStream out;
    private HomeLock lock;
    private long reopenFrom = System.nanoTime();
    private final Complaint complaint = new Complaint("The agent's work cannot be shown for now");
    private WebServer server;
    private boolean hasRehearsed;
    private AgentWatch view;
    private EventHistory events;
    private FeedFollower follower;
    private ScoreBook score;
    private final OpenEpisodes episodes = new OpenEpisodes();
    private Optional<Telling> telling = Optional.empty();
    private volatile AgentRun run;
    private AgentMonitor monitor;
    private ReadingProgress reading;
    private Integer exitCode;
    private volatile int hostCode;

    /** Takes note that the command has returned, before the process ends with its code. */
    void leaveWith(int code) {
        hostCode = code;
        // a host that failed leaves an agent behind, which is stopped in order like on a signal
        left.set(run == null || run.hasEnded());
        drain(); // why it failed was printed after it had returned
    }

    @Override
    public Integer call() {
        checkOptions();
        try {
            NativeLibrary.load();
        } catch (NativeLibrary.Unavailable e) {
            System.err.println(Words.printable(e.getMessage()));
            return Program.FAILED;
        }
        disks.checkRules(spec.commandLine());
        try {
            return host();
        } catch (Error e) {
            return giveUp(e);
        } finally {
            drain();
        }
    }

    /**
     * Whatever the agent needs for its work is started before it, so that it works from then on; what comes
     * later finds room. Where that cannot be had, no agent is better than one that nobody can stop.
     */
    private int host() {
        print();
        lock = HomeLock.take(HomeLock.FILE);
        if (lock.isTaken()) {
            System.err.println("Another agent works in the home " + Words.printable(homeText())
                    + "; a home is for one agent.");
            return Program.HOME_TAKEN;
        }
        if (lock.isDenied()) {
            System.err.println("The home " + Words.printable(homeText()) + " cannot be locked: this user may not open "
                    + "its bin/" + HomeLock.FILE + ", which another user's agent holds or has left. Once no agent "
                    + "works there, delete that file.");
            return Program.HOME_TAKEN;
        }
        lock.problem().ifPresent(problem -> out.println(
                "The home cannot be locked against a second agent: " + Words.printable(problem)));
        AgentEvents.recordTo(new EventFile(EVENTS, EventFile.TEN_MEGABYTES));
        run = new AgentRun(nativeAgent());
        run.prepare();
        Optional<String> problem = HostFeed.problem();
        if (problem.isEmpty()) {
            HostFeed.resume(!fresh);
            ServiceManager.of(System.getenv(), ProcessHandle.current().pid())
                    .flatMap(manager -> manager.introduce(HostFeed::tellService)).ifPresent(out::println);
            disks.set(home, out);
            follow();
            warnOfPlaces();
        }
        SpareThreads spare = SpareThreads.hold(THREADS_OF_A_SIGNAL + THREADS_OF_A_LISTING);
        announce();
        problem.ifPresent(p -> out.println("There is no page and no report on the agent's work"
                + (tell.isWanted() ? ", and nobody is told of events: " : ": ") + p + "."));
        if (view != null) {
            openPage();
        }
        spare.release();
        Runtime.getRuntime().addShutdownHook(new Thread(this::stopOnSignal, "lumetra-stop"));
        run.start();
        rehearse();
        watch();
        return leave();
    }

    /** From here on nothing that is printed can wait for somebody to read it. */
    private void print() {
        output = OutputQueue.start();
        Charset charset = Charset.forName(
                System.getProperty("stdout.encoding", System.getProperty("native.encoding")));
        System.setOut(output.to(new FileOutputStream(FileDescriptor.out), charset));
        System.setErr(output.to(new FileOutputStream(FileDescriptor.err), charset));
        out = System.out;
        AgentEvents.showOn(out);
    }

    /** Without threads or memory there is no agent: the process ends, whatever else it has started. */
    private int giveUp(Error reason) {
        int code = reason instanceof OutOfMemoryError ? Program.TOO_LITTLE : Program.FAILED;
        try {
            String why = Words.printable(reason.toString());
            System.err.println("The agent cannot go on: " + why);
            drain();
        } finally {
            Runtime.getRuntime().halt(code);
        }
        return code;
    }

    private void drain() {
        if (output != null) {
            output.drain(lastWords);
        }
    }

    private void announce() {
        out.println("Lumetra Agent " + Program.Version.text() + ", home " + Words.printable(homeText())
                + ", configuration " + Words.printable(config.toString())
                + (seconds == null ? ". Ctrl-C stops it." : ", for " + seconds + " s."));
    }

    /** From here on everything that is shown comes from what the library publishes. */
    private void follow() {
        Feed feed = new LibraryFeed();
        monitor = new AgentMonitor(out, System.nanoTime());
        reading = new ReadingProgress(out, LibraryFeed::reading);
        score = new ScoreBook(new ScoreFile(SCORE), out::println);
        AgentEvents.askForBackground(this::background);
        if (score.isNew()) {
            Thread thread = new Thread(this::scoreThePast, "lumetra-score");
            thread.setDaemon(true);
            thread.setPriority(Thread.MIN_PRIORITY);
            thread.start();
        }
        telling = tell.start(page::url, this::scoreOf, out);
        List<Consumer<? super Publication>> readers = new ArrayList<>();
        readers.add(episodes);
        readers.add(this::keepScore);
        telling.ifPresent(told -> {
            AgentEvents.tellTo(told::take);
            readers.add(told::take);
        });
        if (page.isWanted()) {
            events = EventHistory.of(EVENTS);
            view = new AgentWatch(homeText(), Program.Version.text(), () -> !run.hasEnded(), feed, events, score,
                    AgentWatch.Timing.real());
            readers.add(view);
        }
        readers.add(monitor); // the last: a cycle that it counts was handed to the page before
        follower = new FeedFollower(feed, readers);
        follower.start();
    }

    /** What others could turn against the agent keeps it from nothing, but is told. */
    private void warnOfPlaces() {
        List<Finding> places =
                CheckFeed.problem().isEmpty() ? LibraryCheck.placesOf(home, config, THIS_USER) : List.of();
        places.forEach(place -> out.println(place.what() + "."));
        if (view != null && !places.isEmpty()) {
            view.warn(places.get(0).what() + (places.size() == 1 ? "." : ", and so with " + (places.size() - 1)
                    + " more; lumetra check tells of each."));
        }
    }

    private void keepScore(Publication publication) {
        publication.state().ifPresent(state -> {
            score.take(state.ended());
            if (publication.cycles() > 0) {
                score.takeCycle(new ScoreFile.Start(state.cycle().time(), !fresh), state.cycle().clockSteps());
                score.forgetLongGone(() -> state.resources().stream()
                        .map(resource -> ResourceNames.of(resource.identity()).key()).collect(Collectors.toSet()));
            }
        });
    }

    /** What the archive tells of the time before score was kept; without it there is less to tell. */
    private void scoreThePast() {
        try {
            long from = EarlierScore.of(home, config, System.currentTimeMillis() / 1000, score::add);
            if (from != 0) {
                score.scoredFrom(from);
            }
        } catch (HomeFiles.Unusable | IOException e) {
            // the agent says more of it
        } catch (RuntimeException | Error e) {
            complaint.tell(e);
        }
    }

    private Event.Background background(String name, String instance) {
        return new Event.Background(trackRecord(name, instance, true), episodes.since(name, instance));
    }

    /** Of what is announced no longer. */
    private String scoreOf(String name, String instance) {
        return trackRecord(name, instance, false);
    }

    private String trackRecord(String name, String instance, boolean isOpen) {
        long now = System.currentTimeMillis() / 1000;
        return score.of(name, instance).words(score.since(now), now, isOpen);
    }

    /** The agent does its work with the page or without. */
    private void openPage() {
        try {
            page.open(view, out).ifPresent(opened -> {
                server = opened;
                AgentEvents.tellTo(events);
            });
        } catch (OutOfMemoryError e) {
            out.println("The page is not available: " + Words.printable(String.valueOf(e.getMessage())));
        }
    }

    /** At once, and once more when there is something to show. */
    private void rehearse() {
        try {
            if (server != null) {
                Rehearsal.of(server.address(), AgentRoutes.examples(view));
            }
        } catch (RuntimeException | Error e) {
            complaint.tell(e);
        }
    }

    /** A page that has lost a thread to a shortage of memory may answer no more. */
    private void reopenPage(long now) {
        reopenFrom = now + REOPEN_EVERY.toNanos();
        server.close();
        page.open(view, out).ifPresent(opened -> server = opened);
    }

    private void closePage() {
        if (server != null) {
            server.close();
        }
    }

    private AgentRun.Agent nativeAgent() {
        return new AgentRun.Agent() {
            private final LumetraSubagent subagent = new LumetraSubagent();

            @Override
            public int run() {
                return new ExecPrediction().research_main(new AgentEvents(), 2, "run-agent", config.toString());
            }

            @Override
            public int pleaseStop() {
                return subagent.javaThreadSyncPleaseStop();
            }
        };
    }

    private void checkOptions() {
        tell.problem().ifPresent(problem -> {
            throw new ParameterException(spec.commandLine(), problem);
        });
        disks.check(spec.commandLine());
        try {
            Path bin = home.resolve("bin");
            if (!Files.isDirectory(bin) || !Files.isSameFile(bin, Path.of(""))) {
                throw new ParameterException(spec.commandLine(), "The working directory must be " + bin
                        + "; start the agent with lumetra run");
            }
        } catch (IOException e) {
            throw new ParameterException(spec.commandLine(),
                    "Cannot use the home " + home + " with the configuration " + config
                            + ": " + e.getMessage());
        }
    }

    private String homeText() {
        return home.toAbsolutePath().normalize().toString();
    }

    /** Shows what the agent does until it ends or its time is over. */
    private void watch() {
        long deadline = System.nanoTime()
                + (seconds == null ? Long.MAX_VALUE / 2 : Duration.ofSeconds(seconds).toNanos());
        boolean over = false;
        while (!over) {
            try {
                Duration left = Duration.ofNanos(Math.max(0, deadline - System.nanoTime()));
                over = run.awaitEnd(left.compareTo(LOOK_EVERY) < 0 ? left : LOOK_EVERY);
                if (!over) {
                    look(deadline);
                }
            } catch (RuntimeException | Error e) {
                complaint.tell(e); // what is shown may fail, and even the waiting; the agent works on
                pause();
            }
        }
    }

    /** Waits without taking memory. */
    private static void pause() {
        try {
            Thread.sleep(LOOK_EVERY.toMillis());
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }

    private void look(long deadline) {
        long now = System.nanoTime();
        if (now - deadline >= 0) {
            stop();
        } else if (!run.isStopping()) {
            if (monitor != null) {
                reading.look(now);
                if (!hasRehearsed && monitor.cycles() > 0) {
                    hasRehearsed = true;
                    rehearse();
                }
                monitor.look(now);
            }
            if (server != null && server.isBroken() && now - reopenFrom >= 0) {
                reopenPage(now);
            }
        }
    }

    private void stop() {
        String period = Optional.ofNullable(monitor).flatMap(AgentMonitor::pause)
                .map(pause -> " of " + Words.ofDuration(pause)).orElse("");
        out.println("Stopping: waiting for the agent to finish, at most one cycle and one period" + period + ".");
        run.stop(() -> out.println("Still waiting for the agent to finish its cycle."), REMIND_EVERY);
    }

    /**
     * Says how the run ended, once, and returns the exit code; the stopping thread and the main one both come
     * here.
     */
    private synchronized int leave() {
        if (exitCode != null) {
            return exitCode;
        }
        closePage();
        if (follower != null) {
            follower.close();
        }
        OptionalLong cycles = monitor == null ? OptionalLong.empty() : OptionalLong.of(monitor.cycles());
        telling.ifPresent(Telling::close);
        int code = exitCode(run, cycles, AgentEvents.fatalCount());
        String after = cycles.isEmpty() ? ""
                : " after " + (cycles.getAsLong() == 1 ? "1 cycle" : cycles.getAsLong() + " cycles");
        if (code == ENDED_AS_ASKED) {
            out.println("The agent has stopped" + after + ".");
        } else {
            String log = homeText() + "/log/LumetraAgent.log";
            String why = run.failure().map(Throwable::toString).orElse(log + " says more");
            System.err.println("The agent ended by itself" + after + ": " + Words.printable(why) + ".");
        }
        exitCode = code;
        return code;
    }

    /**
     * The exit code of a run that is over: 0 for an end that was asked for, 1 for any other, also for one in the
     * middle of a failing start.
     *
     * @param cycles how many cycles it completed; empty when nobody could tell
     * @param fatals how many failures it told
     */
    static int exitCode(AgentRun run, OptionalLong cycles, long fatals) {
        boolean neverStarted = cycles.orElse(1) == 0 && fatals > 0;
        return run.endedAsAsked() && !neverStarted ? ENDED_AS_ASKED : Program.FAILED;
    }

    /**
     * Runs when the process is told to end. A Java process would then report the signal as its exit code, so
     * the code is set here, after the agent has ended.
     */
    private void stopOnSignal() {
        if (left.get()) {
            return; // the end of main, not a signal
        }
        if (!run.isStopping()) {
            stop();
        }
        run.awaitEnd(Duration.ofDays(365));
        int code = Math.max(leave(), hostCode);
        drain();
        Runtime.getRuntime().halt(code);
    }
}
