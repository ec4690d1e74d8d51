package com.quorin.sysmgt.tavl.LumetraAgent.host;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorin.sysmgt.tavl.LumetraAgent.NativeLibrary;
import java.io.ByteArrayOutputStream;
import java.io.OutputStream;
import java.io.PrintStream;
import java.io.PrintWriter;
import java.io.StringWriter;
import java.nio.charset.StandardCharsets;
import java.time.Duration;
import org.junit.jupiter.api.Test;
import picocli.CommandLine;

class RunCommandTest {

    private final StringWriter out = new StringWriter();
    private final StringWriter err = new StringWriter();

    private int execute(String... args) {
        String[] all = new String[args.length + 1];
        all[0] = "run";
        System.arraycopy(args, 0, all, 1, args.length);
        CommandLine line = Lumetra.commandLine();
        return line.setOut(new PrintWriter(out, true)).setErr(new PrintWriter(err, true)).execute(all);
    }

    @Test
    void helpNamesTheOptionsAndTheExitCodes() {
        assertEquals(0, execute("--help"));
        for (String part : new String[] {"--home", "--config", "--for", "--port",
            "--listen", "--allow-host", "--fresh", "--on-event", "--remind", "--skip-fstype", "--skip-mount",
            "--all-disks", "  0  the agent ended as asked"}) {
            assertTrue(out.toString().contains(part), part);
        }
    }

    @Test
    void theVersionIsTold() {
        assertEquals(0, execute("--version"));
        assertTrue(out.toString().startsWith("Lumetra Agent "));
    }

    @Test
    void aWrongCommandLineHasACodeOfItsOwn() {
        assertEquals(2, execute("--unknown"));
        assertEquals(2, execute("--for"));
        assertEquals(2, execute("--for", "soon"));
        assertEquals(2, execute("--for", "99999999999999999999"));
        assertEquals(2, execute("--home", "a\u0000b"));
        assertTrue(err.toString().startsWith("lumetra run: "));
        assertTrue(err.toString().contains("Try lumetra run --help"));
    }

    @Test
    void aTimeBelowOneSecondIsRefused() {
        assertEquals(2, execute("--for", "0"));
        assertEquals(2, execute("--for", "-5"));
        assertTrue(err.toString().contains("at least 1 second"));
    }

    @Test
    void aPortIsANumberOfAPort() {
        for (String port : new String[] {"-1", "65536", "http", "", "99999999999"}) {
            assertEquals(2, execute("--port", port), port);
        }
        assertTrue(err.toString().contains("expected a port from 0 to 65535, got 65536"));
    }

    @Test
    void anAddressAndAllowedNamesAreNeverEmptyOrPartsOfAUrl() {
        assertEquals(2, execute("--listen", ""));
        for (String name : new String[] {"", "a:80", "http://a", "a b", "-a", "a/", "*", "a\u001b"}) {
            assertEquals(2, execute("--allow-host", name), name);
        }
        assertTrue(err.toString().contains("expected the name of a machine, without port, got \"a:80\""));
        assertTrue(err.toString().lines().noneMatch(line -> line.contains("\u001b")));
    }

    @Test
    void theProgramForEventsIsNamedFromTheRootAndCanBeExecuted() {
        for (String program : new String[] {"", "true", "bin/sh", "/nonexistent", "/etc/passwd", "/tmp"}) {
            assertEquals(2, execute("--on-event", program), program);
        }
        String expected = "expected the absolute path of a file that this user can execute, got ";
        assertTrue(err.toString().contains(expected + "bin/sh"), err.toString());
        assertTrue(err.toString().contains(expected + "/etc/passwd"), err.toString());
        assertTrue(err.toString().contains("expected a path: the name is empty"), err.toString());
    }

    @Test
    void aReminderIsOfAProgramAndAfterHours() {
        assertEquals(2, execute("--remind", "6"));
        assertTrue(err.toString().contains("--remind needs --on-event"), err.toString());
        for (String hours : new String[] {"0", "-1", "8761", "6h", ""}) {
            assertEquals(2, execute("--on-event", "/bin/sh", "--remind", hours), hours);
        }
        assertTrue(err.toString().contains("expected hours from 1 to 8760, got 6h"), err.toString());
    }

    @Test
    void allDisksAndRulesOnSomeContradictEachOther() {
        for (String rule : new String[] {"--skip-fstype=tmpfs", "--skip-mount=/snap/*"}) {
            assertEquals(2, execute("--all-disks", rule));
        }
        assertEquals(2, err.toString().lines().filter(line -> line.equals("lumetra run: "
                + "--all-disks leaves no disk out, so it goes without --skip-fstype and --skip-mount")).count(),
                err.toString());
    }

    @Test
    void anotherWorkingDirectoryIsRefused() {
        assertEquals(2, execute("--home", "/nonexistent"));
        assertTrue(err.toString().contains("start the agent with lumetra run"));
    }

    @Test
    void aLibraryThatIsNotThereIsNamed() {
        String before = System.getProperty(NativeLibrary.PATH_PROPERTY);
        System.setProperty(NativeLibrary.PATH_PROPERTY, "/nonexistent/libObrinagent.so");
        try {
            String message = assertThrows(NativeLibrary.Unavailable.class, NativeLibrary::load).getMessage();
            assertTrue(message.contains("/nonexistent/libObrinagent.so"), message);
        } finally {
            restore(before);
        }
    }

    @Test
    void aLibraryThatNobodyNamedIsLookedForInTheLibraryPath() {
        String before = System.getProperty(NativeLibrary.PATH_PROPERTY);
        System.clearProperty(NativeLibrary.PATH_PROPERTY);
        try {
            String message = assertThrows(NativeLibrary.Unavailable.class, NativeLibrary::load).getMessage();
            assertTrue(message.contains("-D" + NativeLibrary.PATH_PROPERTY + "="), message);
        } finally {
            restore(before);
        }
    }

    @Test
    void whatIsPrintedOfAFailureIsOutBeforeTheProcessEnds() {
        ByteArrayOutputStream written = new ByteArrayOutputStream();
        Thread ending = Thread.currentThread();
        RunCommand command = new RunCommand();
        command.output = OutputQueue.start();
        command.lastWords = Duration.ofDays(1);
        PrintStream queued = command.output.to(new OutputStream() {
            @Override
            public void write(int b) {
                while (ending.getState() == Thread.State.RUNNABLE) {
                    Thread.onSpinWait();
                }
                written.write(b);
            }
        }, StandardCharsets.UTF_8);
        queued.println("why");
        command.leaveWith(1);
        assertEquals("why\n", written.toString(StandardCharsets.UTF_8));
    }

    private static void restore(String value) {
        if (value != null) {
            System.setProperty(NativeLibrary.PATH_PROPERTY, value);
        }
    }
}
