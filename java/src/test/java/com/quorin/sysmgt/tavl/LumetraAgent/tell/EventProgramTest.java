package com.quorin.sysmgt.tavl.LumetraAgent.tell;

import static java.util.stream.Collectors.joining;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorin.sysmgt.tavl.LumetraAgent.events.Event;
import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.PosixFilePermissions;
import java.time.Duration;
import java.time.Instant;
import java.util.List;
import java.util.concurrent.CopyOnWriteArrayList;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.function.BooleanSupplier;
import java.util.stream.IntStream;
import java.util.stream.Stream;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Of real programs. */
class EventProgramTest {

    private static final Duration LONG = Duration.ofHours(1);
    private static final EventProgram.Patience PATIENT = new EventProgram.Patience(LONG, LONG, LONG, LONG);

    /** Waits for no program, and for no dead one. */
    private static final EventProgram.Patience HASTY =
            new EventProgram.Patience(Duration.ofMillis(1), LONG, Duration.ofMillis(1), LONG);

    /** Variables that every program has, or that the shell of a script makes itself. */
    private static final List<String> OF_THE_SHELL = List.of("PATH", "LC_ALL", "PWD", "OLDPWD", "_", "SHLVL");

    @TempDir
    private Path directory;

    private final ByteArrayOutputStream printed = new ByteArrayOutputStream();
    private EventProgram program;

    @AfterEach
    void end() {
        if (program != null) {
            program.close();
        }
    }

    private EventProgram program(String script, EventProgram.Patience patience, EventProgram.Starter starter)
            throws IOException {
        Path file = directory.resolve("program");
        Files.writeString(file, "#!/bin/sh\ncd '" + directory + "' || exit 9\n" + script + "\n");
        Files.setPosixFilePermissions(file, PosixFilePermissions.fromString("rwxr-xr-x"));
        program = EventProgram.of(file, news -> new NewsLine(news, "box", ""),
                new PrintStream(printed, true, StandardCharsets.UTF_8), patience, starter);
        return program;
    }

    private EventProgram program(String script) throws IOException {
        return program(script, PATIENT, ProcessBuilder::start);
    }

    private static News news(String message) {
        return News.of(new Event.Failure(Event.Moment.of(Instant.EPOCH), message), null);
    }

    private void tell(String... messages) {
        for (String message : messages) {
            program.accept(news(message));
        }
    }

    private String printed() {
        return printed.toString(StandardCharsets.UTF_8).replace(directory.toString(), "DIR");
    }

    private String content(String file) {
        try {
            return Files.readString(directory.resolve(file));
        } catch (IOException e) {
            return "";
        }
    }

    private void release(String file) throws IOException {
        Files.writeString(directory.resolve(file), "");
    }

    private static void await(BooleanSupplier condition) {
        while (!condition.getAsBoolean()) {
            Thread.onSpinWait();
            pause();
        }
    }

    private static void pause() {
        try {
            Thread.sleep(5);
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }

    /** Until a file is there, or the test has taken all of them away. */
    private static String until(String file) {
        return "until [ -e " + file + " ] || [ ! -e program ]; do sleep 0.01; done";
    }

    @Test
    void itReadsTheLineAndHasTheVariablesAndNothingElse() throws IOException {
        program("cat >input; env >environment; pwd -P >folder; ls -l /proc/self/fd >descriptors; echo done >done")
                .accept(news("$(touch evil) 'x'"));
        await(() -> content("done").equals("done\n"));
        assertTrue(content("input").startsWith("{\"time\":"), content("input"));
        assertTrue(content("input").contains("\"message\":\"$(touch evil) 'x'\""), content("input"));
        assertTrue(content("input").endsWith("}\n"));
        assertTrue(content("environment").contains("LUMETRA_TEXT=box: $(touch evil) 'x'\n"), content("environment"));
        assertEquals(List.of(), content("environment").lines().map(line -> line.split("=")[0])
                .filter(name -> !name.startsWith("LUMETRA_") && !OF_THE_SHELL.contains(name)).toList());
        assertFalse(Files.exists(directory.resolve("evil")));
        // the listing has one more descriptor: that of the folder which it lists
        assertEquals(4, content("descriptors").lines().filter(line -> line.contains("->")).count(),
                content("descriptors"));
        assertEquals("", printed());
    }

    @Test
    void itWorksInTheRoot() throws IOException {
        Files.createSymbolicLink(directory.resolve("pwd"), Path.of("/bin/pwd"));
        program = EventProgram.of(directory.resolve("pwd"), news -> new NewsLine(news, "", ""),
                new PrintStream(printed, true, StandardCharsets.UTF_8), PATIENT, ProcessBuilder::start);
        tell("one");
        await(() -> printed().equals("on-event: /\n"));
    }

    @Test
    void oneRunsAtATimeInTheOrderOfTheEvents() throws IOException {
        program("[ -e running ] && echo overlap >>order; : >running; echo \"$LUMETRA_MESSAGE\" >>order; " + until("go")
                + "; rm running");
        tell("1", "2", "3");
        await(() -> !content("order").isEmpty());
        release("go");
        await(() -> content("order").equals("1\n2\n3\n"));
    }

    @Test
    void whatItSaysIsShownWithoutControlCharactersAndAStatusIsTold() throws IOException {
        program("echo 'a line'; echo; printf 'esc \\033[2J\\n' >&2; printf 'no end \\377'; exit 3");
        tell("one");
        await(() -> printed().contains("status"));
        assertEquals("on-event: a line\non-event: esc \\x1b[2J\non-event: no end \\xff\n"
                + "DIR/program has ended with status 3, told of: one\n", printed());
    }

    @Test
    void ofVeryMuchTheBeginningIsShownInWholeLines() throws IOException {
        program("i=0; while [ $i -lt 20000 ]; do echo \"line $i\"; i=$((i+1)); done; exit 7");
        tell("one");
        await(() -> printed().contains("status 7"));
        assertTrue(printed().length() < 4 * ProgramRun.MOST_OUTPUT, printed());
        List<String> lines = printed().lines().toList();
        assertEquals("on-event: (and more)", lines.get(lines.size() - 2));
        assertEquals(IntStream.range(0, lines.size() - 2).mapToObj(i -> "on-event: line " + i).toList(),
                lines.subList(0, lines.size() - 2));
        assertTrue(lines.size() > 500, printed());
    }

    @Test
    void whoTakesTooLongIsEndedWithWhatItStarted() throws IOException {
        String[] files = {"child", "grandchild", "own"};
        program("sleep 100000 & echo $! >child; (sleep 100000 & echo $! >grandchild; wait) & "
                + "echo said; echo $$ >own; wait",
                new EventProgram.Patience(Duration.ofSeconds(1), LONG, LONG, LONG), described -> {
                    Process started = described.start();
                    await(() -> Stream.of(files).allMatch(file -> content(file).endsWith("\n")));
                    return started; // its time begins here
                });
        tell("one");
        await(() -> printed().contains("on-event: said"));
        assertTrue(printed().startsWith("DIR/program has not ended within 1 s and is ended, with what it started, "
                + "in the middle of: one\n"), printed());
        for (String file : files) {
            long pid = Long.parseLong(content(file).strip());
            await(() -> ProcessHandle.of(pid).filter(ProcessHandle::isAlive).isEmpty() || isZombie(pid));
            Files.delete(directory.resolve(file)); // the next run's is waited for
        }
        tell("two");
        await(() -> printed().contains("in the middle of: two"));
    }

    /** A program of which a test says what cannot be done with it. */
    private static class Hindered extends Process {
        private final Process real;

        Hindered(Process real) {
            this.real = real;
        }

        @Override
        public OutputStream getOutputStream() {
            return real.getOutputStream();
        }

        @Override
        public InputStream getInputStream() {
            return real.getInputStream();
        }

        @Override
        public InputStream getErrorStream() {
            return real.getErrorStream();
        }

        @Override
        public int waitFor() throws InterruptedException {
            return real.waitFor();
        }

        @Override
        public boolean waitFor(long time, TimeUnit unit) throws InterruptedException {
            return real.waitFor(time, unit);
        }

        @Override
        public int exitValue() {
            return real.exitValue();
        }

        @Override
        public void destroy() {
            real.destroy();
        }

        @Override
        public Process destroyForcibly() {
            return real.destroyForcibly();
        }

        @Override
        public Stream<ProcessHandle> descendants() {
            return real.descendants();
        }
    }

    @Test
    void whoTakesTooLongIsEndedAlsoWhereItsOwnProgramsCannotBeLookedFor() throws IOException {
        program("exec sleep 600",
                new EventProgram.Patience(Duration.ofMillis(1), LONG, LONG, LONG),
                described -> new Hindered(described.start()) {
                    @Override
                    public Stream<ProcessHandle> descendants() {
                        throw new RuntimeException("Too many open files");
                    }
                });
        tell("one", "two");
        await(() -> printed().lines().count() == 4);
        assertEquals("DIR/program has not ended within 0 s and is ended, with what it started, in the middle of: one\n"
                + "DIR/program or what it started may go on, as what it started cannot be looked for: "
                + "Too many open files\n", printed().lines().limit(2).map(line -> line + "\n").collect(joining()));
    }

    @Test
    void aProgramThatCannotBeKilledHoldsUpNoOther() throws IOException {
        List<Process> started = new CopyOnWriteArrayList<>();
        program("exec sleep 600", HASTY, described -> {
            started.add(described.start());
            return new Hindered(started.get(started.size() - 1)) {
                @Override
                public Process destroyForcibly() {
                    return this;
                }
            };
        });
        tell("one", "two");
        await(() -> printed().lines().count() == 4);
        assertEquals("DIR/program or what it started may go on, as it is not dead 0 s later",
                printed().lines().toList().get(1));
        started.forEach(Process::destroyForcibly);
    }

    @Test
    void aFailureThatNobodyExpectedCostsOnePieceOfNews() throws IOException {
        List<Process> started = new CopyOnWriteArrayList<>();
        AtomicInteger starts = new AtomicInteger();
        program("echo \"$LUMETRA_MESSAGE\" >>order; exec sleep 600", PATIENT, described -> {
            switch (starts.incrementAndGet()) {
                case 1 -> throw new IllegalStateException("one failed");
                case 2 -> throw new StackOverflowError("two failed");
                case 3 -> {
                    started.add(described.start());
                    return new Hindered(started.get(0)) {
                        private boolean hasFailed;

                        @Override
                        public boolean waitFor(long time, TimeUnit unit) throws InterruptedException {
                            if (!hasFailed) {
                                hasFailed = true;
                                throw new OutOfMemoryError("three failed");
                            }
                            return super.waitFor(time, unit);
                        }
                    };
                }
                default -> {
                    started.add(described.start());
                    return started.get(1);
                }
            }
        });
        tell("1", "2", "3", "4");
        await(() -> started.size() == 2 && content("order").endsWith("4\n")); // it may write before its start returns
        started.get(1).destroyForcibly();
        await(() -> !started.get(0).isAlive());
        assertEquals("Not told to DIR/program, as of java.lang.IllegalStateException: one failed: 1\n"
                + "Not told to DIR/program, as of java.lang.StackOverflowError: two failed: 2\n"
                + "DIR/program cannot be attended to and is ended, in the middle of: 3: "
                + "java.lang.OutOfMemoryError: three failed\n",
                printed().lines().limit(3).map(line -> line + "\n").collect(joining()));
    }

    /** Ended, and not yet fetched by whoever inherited it. */
    private static boolean isZombie(long pid) {
        try {
            return Files.readString(Path.of("/proc/" + pid + "/stat")).contains(") Z ");
        } catch (IOException e) {
            return true;
        }
    }

    @Test
    void whoDoesNotReadAndWhatItLeavesBehindHoldNobodyUp() throws IOException {
        program("echo \"$LUMETRA_MESSAGE\" | cut -c1-9 >>order; (" + until("end") + ") &");
        tell("x".repeat(300_000), "y".repeat(300_000), "z");
        await(() -> content("order").lines().count() == 3);
        release("end");
        assertEquals("xxxxxxxxx\nyyyyyyyyy\nz\n", content("order"));
    }

    @Test
    void aFullQueueLosesTheOldestAndSaysSo() throws IOException {
        program("echo \"$LUMETRA_MESSAGE\" >>order; " + until("go"));
        tell("running");
        await(() -> content("order").equals("running\n"));
        for (int i = 0; i < EventProgram.MOST_WAITING + 3; i++) {
            tell("event " + i);
        }
        assertEquals("Not told to DIR/program, as too many wait: event 0\n"
                + "Not told to DIR/program, as too many wait: event 1\n"
                + "Not told to DIR/program, as too many wait: event 2\n", printed());
        release("go");
        await(() -> content("order").lines().count() == EventProgram.MOST_WAITING + 1);
        assertTrue(content("order").startsWith("running\nevent 3\nevent 4\n"));
    }

    @Test
    void whatCannotBeStartedForNowIsTriedAgainAndKeepsItsPlace() throws IOException {
        AtomicInteger starts = new AtomicInteger();
        EventProgram.Patience eager = new EventProgram.Patience(LONG, Duration.ofMillis(1), LONG, LONG);
        program("echo \"$LUMETRA_MESSAGE\" >>order", eager, described -> {
            switch (starts.incrementAndGet()) {
                case 1, 2 -> throw new IOException("Cannot run \"x\": error=11, Resource temporarily unavailable");
                case 3 -> throw new IOException("Cannot run \"x\": error=24, Too many open files");
                case 4 -> throw new OutOfMemoryError("unable to create native thread");
                case 5 -> throw new IOException("Failed to exec spawn helper: pid: 7, exit value: 1");
                default -> {
                    return described.start();
                }
            }
        });
        tell("1", "2");
        await(() -> content("order").equals("1\n2\n"));
        assertEquals(7, starts.get());
        assertEquals(1, printed().lines().count(), printed());
        String expected = "DIR/program cannot be started for now, and is tried again every 0 s: ";
        assertTrue(printed().startsWith(expected), printed());
    }

    @Test
    void whatCanNeverBeStartedIsToldAndLost() throws IOException {
        program("");
        Files.writeString(directory.resolve("program"), "#!/nonexistent/interpreter\n");
        tell("one");
        await(() -> !printed().isEmpty());
        assertTrue(printed().startsWith("Not told to DIR/program, as it cannot be started: "), printed());
        assertTrue(printed().endsWith(": one\n"), printed());
    }

    @Test
    void theEndGivesWhatWaitsItsTime() throws IOException {
        program("echo \"$LUMETRA_MESSAGE\" >>order");
        tell("1", "2", "3");
        program.close();
        assertEquals("1\n2\n3\n", content("order"));
        assertEquals("", printed());
    }

    @Test
    void theEndTriesOnceMoreWhatCouldNotBeStarted() throws IOException {
        AtomicInteger starts = new AtomicInteger();
        program("echo \"$LUMETRA_MESSAGE\" >>order", PATIENT, described -> {
            if (starts.incrementAndGet() == 1) {
                throw new IOException("error=11, no");
            }
            return described.start();
        });
        tell("one");
        await(() -> printed().contains("cannot be started for now"));
        program.close();
        assertEquals("one\n", content("order"));
    }

    @Test
    void anEndInTheMiddleOfAStartThatFailsTriesOnceMore() throws IOException, InterruptedException {
        AtomicInteger starts = new AtomicInteger();
        Thread closer = new Thread(() -> program.close());
        program("echo \"$LUMETRA_MESSAGE\" >>order", PATIENT, described -> {
            if (starts.incrementAndGet() == 1) {
                closer.start();
                await(() -> closer.getState() == Thread.State.TIMED_WAITING);
                throw new IOException("error=11, no");
            }
            return described.start();
        });
        tell("one");
        await(() -> starts.get() > 0);
        closer.join();
        assertEquals("one\n", content("order"));
    }

    @Test
    void whatTheEndHasNoTimeForIsTold() throws IOException {
        program("echo $$ >own; exec sleep 100000", new EventProgram.Patience(LONG, LONG, LONG, Duration.ofMillis(500)),
                ProcessBuilder::start);
        tell("one", "two");
        await(() -> content("own").endsWith("\n"));
        program.close();
        assertTrue(printed().contains("Not told to DIR/program, as the agent ends: two\n"), printed());
        await(() -> printed().contains("DIR/program is ended with the agent, in the middle of: one\n"));
        long pid = Long.parseLong(content("own").strip());
        await(() -> ProcessHandle.of(pid).filter(ProcessHandle::isAlive).isEmpty());
    }

    @Test
    void itsThreadsAndTheRoomOfAStartAreThereBeforeAnyEventAndGoneAfterTheEnd() throws IOException {
        program("");
        await(() -> threads() == 6);
        program.close();
        await(() -> threads() == 0);
    }

    private static long threads() {
        return Thread.getAllStackTraces().keySet().stream().map(Thread::getName)
                .filter(name -> name.startsWith("lumetra-tell") || name.startsWith("lumetra-spare-")).count();
    }
}
