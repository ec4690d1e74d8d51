package com.quorin.sysmgt.tavl.LumetraAgent.tell;

import com.quorin.sysmgt.tavl.LumetraAgent.http.SpareThreads;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.io.File;
import java.io.IOException;
import java.io.PrintStream;
import java.nio.file.Path;
import java.time.Duration;
import java.util.ArrayDeque;
import java.util.Deque;
import java.util.Map;
import java.util.concurrent.SynchronousQueue;
import java.util.function.BooleanSupplier;
import java.util.function.Consumer;
import java.util.function.Function;
import java.util.function.Supplier;
import java.util.regex.Pattern;

/**
 * Starts a program for each piece of news, one after the other, and shows what it says. Whoever brings news never
 * waits: the news does, in a queue of bounded length.
 *
 * <p>Its two threads, and room for the two that a start takes, are there from the beginning: somebody should be told
 * of a machine that runs out of threads, too.
 */
final class EventProgram implements Consumer<News>, AutoCloseable {

    /** So many wait; the oldest makes room for one more. */
    static final int MOST_WAITING = 100;

    /**
     * The program itself, the thread with which Java waits for its end, and two more, as the agent may start a listing
     * at the same moment: without its thread, Java would leave the program behind.
     */
    private static final int THREADS_OF_A_START = 4;

    /** What a start lacked that another time may have: processes, memory, descriptors, for itself or Java's helper. */
    private static final Pattern PASSING = Pattern.compile("error=(11|12|23|24),|spawn helper");

    /**
     * How long things may take.
     *
     * @param run   a run of the program
     * @param retry until a start that was not possible is tried again
     * @param kill  until a program that was killed is dead
     * @param end   what waits, once the agent ends
     */
    record Patience(Duration run, Duration retry, Duration kill, Duration end) {

        static final Patience SHIPPED = new Patience(
                Duration.ofSeconds(30), Duration.ofSeconds(10), Duration.ofSeconds(5), Duration.ofSeconds(5));
    }

    /** Starts what is described. */
    interface Starter {
        Process start(ProcessBuilder described) throws IOException;
    }

    private final Path program;
    private final Function<? super News, NewsLine> lines;
    private final PrintStream out;
    private final Patience patience;
    private final Starter starter;
    private final Thread worker = new Thread(this::work, "lumetra-tell");
    private final Thread writer = new Thread(this::write, "lumetra-tell-in");
    private final SynchronousQueue<ProgramRun.Input> inputs = new SynchronousQueue<>();
    private final Deque<News> waiting = new ArrayDeque<>();
    private boolean isWorking;
    private boolean isClosing;
    private boolean wasClosing; // when the news that is worked at was taken up
    private boolean isHindered;
    private SpareThreads room;

    private EventProgram(Path program, Function<? super News, NewsLine> lines, PrintStream out, Patience patience,
            Starter starter) {
        this.program = program;
        this.lines = lines;
        this.out = out;
        this.patience = patience;
        this.starter = starter;
        room = SpareThreads.hold(THREADS_OF_A_START);
        worker.setDaemon(true);
        writer.setDaemon(true);
    }

    /**
     * Gets ready to start a program.
     *
     * @param lines what the program is handed of news
     * @param out   is told what the program says, and what did not work; must never block
     * @throws OutOfMemoryError when there are no threads to be had
     */
    static EventProgram of(Path program, Function<? super News, NewsLine> lines, PrintStream out, Patience patience,
            Starter starter) {
        EventProgram made = new EventProgram(program, lines, out, patience, starter);
        made.writer.start();
        made.worker.start();
        return made;
    }

    @Override
    public synchronized void accept(News news) {
        waiting.addLast(news);
        if (waiting.size() > MOST_WAITING) {
            lose(waiting.removeFirst(), "too many wait");
        }
        notifyAll();
    }

    /** Gives what waits a last chance, for a bounded time, and says what is not told. */
    @Override
    public void close() {
        long end = System.nanoTime() + patience.end.toNanos();
        synchronized (this) {
            isClosing = true;
            notifyAll();
            try {
                await(() -> !isWorking && waiting.isEmpty(), end);
            } catch (InterruptedException e) {
                Thread.currentThread().interrupt();
            }
        }
        loseAll();
        worker.interrupt();
        writer.interrupt();
        try {
            worker.join(patience.end.toMillis());
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }

    private void work() {
        try {
            while (true) {
                News news = next();
                try {
                    if (!tell(news)) {
                        putBack(news);
                    }
                } catch (RuntimeException | Error e) { // costs this news only: those that follow are to be told
                    lose(news, e);
                }
            }
        } catch (InterruptedException e) {
            // the end
        } finally {
            leaveRoom();
            loseAll();
        }
    }

    private synchronized News next() throws InterruptedException {
        isWorking = false;
        notifyAll();
        while (waiting.isEmpty()) {
            wait();
        }
        isWorking = true;
        wasClosing = isClosing;
        return waiting.removeFirst();
    }

    /** It is tried again after a pause, or at once when the end has come; unless it has become too old meanwhile. */
    private synchronized void putBack(News news) throws InterruptedException {
        waiting.addFirst(news);
        if (waiting.size() > MOST_WAITING) {
            lose(waiting.removeFirst(), "too many wait");
        }
        isWorking = false;
        await(() -> isClosing != wasClosing, System.nanoTime() + patience.retry.toNanos());
    }

    /** Waits for a condition that changes under this lock, at most until then. */
    private synchronized void await(BooleanSupplier condition, long end) throws InterruptedException {
        for (long left = end - System.nanoTime(); left > 0 && !condition.getAsBoolean();
                left = end - System.nanoTime()) {
            wait(left / 1_000_000 + 1);
        }
    }

    /** False when the program could not be started for now. */
    private boolean tell(News news) throws InterruptedException {
        ProgramRun run;
        byte[] input;
        try {
            NewsLine line = lines.apply(news);
            input = line.json();
            run = new ProgramRun(start(line.environment()));
        } catch (OutOfMemoryError e) {
            return hinder(e.getMessage());
        } catch (IOException e) {
            String why = String.valueOf(e.getMessage());
            if (PASSING.matcher(why).find()) {
                return hinder(why);
            }
            lose(news, "it cannot be started: " + Words.printable(why));
            return true;
        }
        isHindered = false;
        attend(run, input, news);
        keepRoom();
        return true;
    }

    /** A start that finds room for the program but none for Java's thread would leave the program behind. */
    private Process start(Map<String, String> environment) throws IOException {
        if (room == null) {
            room = SpareThreads.hold(THREADS_OF_A_START);
        }
        ProcessBuilder described = new ProcessBuilder(program.toString()).directory(new File("/"))
                .redirectErrorStream(true);
        described.environment().clear();
        described.environment().putAll(environment);
        leaveRoom();
        return starter.start(described);
    }

    private void leaveRoom() {
        if (room != null) {
            room.release();
            room = null;
        }
    }

    private void keepRoom() {
        try {
            room = SpareThreads.hold(THREADS_OF_A_START);
        } catch (OutOfMemoryError e) {
            // asked for again before the next start
        }
    }

    private boolean hinder(String why) {
        if (!isHindered) {
            isHindered = say(() -> name() + " cannot be started for now, and is tried again every "
                    + Words.ofDuration(patience.retry) + ": " + Words.printable(why));
        }
        return false;
    }

    private void attend(ProgramRun run, byte[] input, News news) throws InterruptedException {
        try {
            boolean hasEnded = run.await(input, inputs::offer, patience.run);
            if (!hasEnded) {
                say(() -> name() + " has not ended within " + Words.ofDuration(patience.run)
                        + " and is ended, with what it started, in the middle of: " + news.sentence());
                kill(run);
            }
            run.said().forEach(line -> out.println("on-event: " + line));
            if (run.saidMore()) {
                out.println("on-event: (and more)");
            }
            if (hasEnded && run.exitStatus() != 0) {
                out.println(name() + " has ended with status " + run.exitStatus() + ", told of: " + news.sentence());
            }
        } catch (InterruptedException e) {
            say(() -> name() + " is ended with the agent, in the middle of: " + news.sentence());
            kill(run);
            throw e;
        } catch (RuntimeException | Error e) {
            kill(run);
            say(() -> name() + " cannot be attended to and is ended, in the middle of: " + news.sentence() + ": "
                    + Words.printable(e.toString()));
        }
    }

    private void kill(ProgramRun run) throws InterruptedException {
        run.kill(patience.kill).ifPresent(problem ->
                say(() -> name() + " or what it started may go on, as " + Words.printable(problem)));
    }

    private void write() {
        try {
            while (true) {
                inputs.take().write();
            }
        } catch (InterruptedException e) {
            // the end
        }
    }

    private synchronized void loseAll() {
        waiting.forEach(news -> lose(news, "the agent ends"));
        waiting.clear();
    }

    private void lose(News news, String why) {
        say(() -> "Not told to " + name() + ", as " + why + ": " + news.sentence());
    }

    private void lose(News news, Throwable why) {
        try {
            lose(news, "of " + Words.printable(why.toString()));
        } catch (OutOfMemoryError e) {
            // no memory for words either
        }
    }

    /** False when there is no memory for words. */
    private boolean say(Supplier<String> words) {
        try {
            out.println(words.get());
            return true;
        } catch (OutOfMemoryError e) {
            return false;
        }
    }

    private String name() {
        return Words.printable(program.toString());
    }
}
