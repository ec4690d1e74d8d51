package com.quorin.sysmgt.tavl.LumetraAgent;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.PrintWriter;
import java.io.StringWriter;
import org.junit.jupiter.api.Test;

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
        assertEquals("lumetra: a command is missing: run, status, plot or check", lines[0]);
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
}
