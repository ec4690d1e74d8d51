package com.quorin.sysmgt.tavl.LumetraAgent.host;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.PrintWriter;
import java.io.StringWriter;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;

class LumetraTest {

    private final StringWriter out = new StringWriter();
    private final StringWriter err = new StringWriter();

    private int execute(String... args) {
        return Lumetra.commandLine().setOut(new PrintWriter(out, true)).setErr(new PrintWriter(err, true))
                .execute(args);
    }

    @Test
    void helpNamesTheCommands() {
        assertEquals(0, execute("--help"));
        for (String part : new String[] {"run ", "status ", "plot ", "Exit codes:", "  2  the command"}) {
            assertTrue(out.toString().contains(part), part);
        }
    }

    @Test
    void everyCommandHasHelpAVersionAndExitCodes() {
        for (String command : new String[] {"run", "status", "plot", "check"}) {
            assertEquals(0, execute(command, "--help"));
            assertTrue(out.toString().contains("Usage: lumetra " + command), command);
            assertTrue(out.toString().contains("Exit codes:"), command);
            out.getBuffer().setLength(0);
            assertEquals(0, execute(command, "--version"));
            assertTrue(out.toString().startsWith("Lumetra Agent "), command);
            out.getBuffer().setLength(0);
        }
    }

    @Test
    void mistakesAreOneLineAndAHint() {
        assertEquals(2, execute());
        assertEquals(2, execute("dance"));
        assertEquals(2, execute("status", "--url", "http://a/", "--port", "1"));
        assertEquals(2, execute("status", "--watch", "0"));
        assertEquals(2, execute("status", "--watch", "soon"));
        assertEquals(2, execute("plot", "--format", "gif"));
        assertEquals(2, execute("plot", "--output", "/nonexistent"));
        assertEquals(2, execute("plot", ""));
        String[] lines = err.toString().split("\n");
        assertEquals(16, lines.length, err.toString());
        assertEquals("lumetra: a command is missing: run, status, plot, check, doctor or replay", lines[0]);
        assertEquals("Try lumetra --help", lines[1]);
        assertEquals("Try lumetra status --help", lines[5]);
        assertTrue(lines[10].startsWith(
                "lumetra plot: Invalid value for option '--format': expected png or svg"));
    }

    @Test
    void anAddressMustBeOneOfAPage() {
        for (String url : new String[] {"", "localhost:8642", "ftp://a/", "http://", "http://a/?x",
            "http://a/#x", "http://user@a/", "http:///x", "http://a b/", "file:///etc/passwd", "\u001b[2J"}) {
            err.getBuffer().setLength(0);
            assertEquals(2, execute("status", "--url", url), url);
            assertTrue(err.toString().contains("expected http://HOST:PORT/"), err.toString());
            assertTrue(err.toString().indexOf('\u001b') < 0);
        }
        for (String port : new String[] {"0", "65536", "-1", "x"}) {
            assertEquals(2, execute("status", "--port", port), port);
        }
    }

    @ParameterizedTest
    @CsvSource(delimiter = '|', value = {
        "status --port x | '--port': expected a port from 1 to 65535, got x",
        "status --port 65536 | '--port': expected a port from 1 to 65535, got 65536",
        "status --port= | '--port': expected a port from 1 to 65535, got nothing",
        "status --url http://a:65536/ | '--url': expected http://HOST:PORT/, got \"http://a:65536/\"",
        "status --watch=soon | '--watch': expected 1 to 3600 seconds, got soon",
        "status --watch=3601 | '--watch': expected 1 to 3600 seconds, got 3601",
        "run --for 0 | '--for': expected at least 1 second and at most 2147483647, got 0",
        "run --for soon | '--for': expected at least 1 second and at most 2147483647, got soon",
        "run --home= | '--home': expected a path: the name is empty",
        "run --config=a\\0b | '--config': expected a path: Nul character not allowed: a\\x00b",
        "run --listen= | '--listen': expected an IP address or a name of this machine",
        "run --port http | '--port': expected a port from 0 to 65535, got http",
        "plot --format PNG | '--format': expected png or svg, got \"PNG\"",
        "plot --output /nonexistent | '--output': expected a directory, got \"/nonexistent\"",
        "plot --output=a\\0b | '--output': expected a directory, got \"a\\x00b\"",
        "check --home= | '--home': expected a path: the name is empty",
        "check --config= | '--config': expected a path: the name is empty",
        "check --config=a\\0b | '--config': expected a path: Nul character not allowed: a\\x00b"})
    void whatAnOptionExpectsIsTold(String line, String expected) {
        String[] words = line.replace("\\0", "\0").split(" ");
        assertEquals(2, execute(words), line);
        assertEquals("lumetra " + words[0] + ": Invalid value for option " + expected,
                err.toString().lines().findFirst().orElse(""));
    }
}
