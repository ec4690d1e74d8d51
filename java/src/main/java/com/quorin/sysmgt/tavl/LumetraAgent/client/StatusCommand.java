package com.quorin.sysmgt.tavl.LumetraAgent.client;

import com.fasterxml.jackson.core.SerializableString;
import com.fasterxml.jackson.core.io.CharacterEscapes;
import com.fasterxml.jackson.core.json.JsonWriteFeature;
import com.fasterxml.jackson.databind.JsonNode;
import com.fasterxml.jackson.databind.ObjectMapper;
import com.fasterxml.jackson.databind.ObjectWriter;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Program;
import java.io.IOException;
import java.io.PrintStream;
import java.net.URI;
import java.time.LocalTime;
import java.time.temporal.ChronoUnit;
import java.util.ArrayList;
import java.util.List;
import java.util.Optional;
import java.util.concurrent.Callable;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;

/** Shows the state of all resources of a running agent. */
@Command(name = "status", mixinStandardHelpOptions = true, versionProvider = Program.Version.class,
        description = "Shows the state of all resources of a running agent, the most urgent first.",
        footerHeading = "%nExit codes:%n",
        footer = {"  0  the state was shown (for --watch: until Ctrl-C)",
            "  1  no agent answers, or something else than an agent does",
            "  2  the command line is wrong%n"})
public final class StatusCommand implements Callable<Integer> {

    /** The lines at the end that tell of the agent. */
    private static final int AGENT_LINES = 2;
    private static final String HOME = "\u001b[H";
    private static final String CLEAR_LINE = "\u001b[K";
    private static final String CLEAR_BELOW = "\u001b[J";
    private static final String CLEAR_ALL = "\u001b[2J";

    /** The time from one look to the next. */
    static final class Pause extends WholeNumber {
        Pause() {
            super("1 to 3600 seconds", 1, 3600);
        }
    }

    /** The escapes of JSON, and one more for the character DEL. */
    private static final class DeleteEscaped extends CharacterEscapes {
        private static final long serialVersionUID = 1L;

        @Override
        public int[] getEscapeCodesForAscii() {
            int[] codes = standardAsciiEscapesForJSON();
            codes[0x7f] = ESCAPE_STANDARD;
            return codes;
        }

        @Override
        public SerializableString getEscapeSequence(int character) {
            return null;
        }
    }

    @Mixin
    private AgentAddress address = new AgentAddress();

    @Option(names = "--json", description = "Print the answer of /api/v1/resources, indented.")
    private boolean json;

    @Option(names = "--skipped", description = "List what the agent leaves out, with the reason, in the place of "
            + "the resources. With --json, that part of the answer.")
    private boolean skipped;

    @Option(names = "--watch", paramLabel = "SECONDS", arity = "0..1", fallbackValue = "2",
            converter = Pause.class,
            description = "Show the state again and again until Ctrl-C, every 2 seconds "
                    + "unless said otherwise.")
    private Integer watch;

    private final Terminal terminal = Terminal.ofThisProcess();
    private final PrintStream out = System.out;
    private URI page;
    private AgentClient client;

    @Override
    public Integer call() {
        page = address.uri();
        client = new AgentClient(page);
        try {
            List<String> lines = lines();
            return watch == null ? print(lines) : watch(lines);
        } catch (Failed e) {
            System.err.println("lumetra status: " + e.getMessage());
            return Program.FAILED;
        }
    }

    private List<String> lines() throws Failed {
        AgentClient.Overview overview = client.overview();
        if (json) {
            return List.of(indented(skipped ? overview.json().path("leftOut") : overview.json()));
        }
        if (skipped) {
            return StatusTable.skipped(overview.snapshot().leftOut());
        }
        List<String> lines = new StatusTable(terminal).lines(overview.snapshot(), page, overview.now());
        largestUsers(overview.snapshot()).ifPresent(line -> lines.add(lines.size() - AGENT_LINES, line));
        return lines;
    }

    /**
     * Who eats the most urgent of the resources whose processes the agent names. Without that answer the table
     * is still worth its lines.
     */
    private Optional<String> largestUsers(Snapshot snapshot) {
        for (Snapshot.Resource resource : snapshot.resources()) {
            if (resource.identity().mountpoint() == null && resource.state() != null && resource.state().isUrgent()) {
                try {
                    return StatusTable.largestUsers(
                            resource.identity().resource(), client.culprits(resource.id()));
                } catch (Failed e) {
                    return Optional.empty();
                }
            }
        }
        return Optional.empty();
    }

    private int print(List<String> lines) {
        out.println(String.join(System.lineSeparator(), lines));
        if (out.checkError()) {
            System.err.println("lumetra status: standard output cannot be written");
            return Program.FAILED;
        }
        return Program.DONE;
    }

    /** Ends when nobody reads any more, or with the process. */
    private int watch(List<String> first) {
        Runtime.getRuntime().addShutdownHook(new Thread(() -> Runtime.getRuntime().halt(Program.DONE)));
        List<String> lines = first;
        boolean redraw = terminal.isInteractive() && !json;
        out.print(redraw ? CLEAR_ALL : "");
        while (true) {
            show(lines, redraw);
            if (out.checkError()) {
                return Program.DONE;
            }
            try {
                Thread.sleep(watch * 1000L);
                lines = lines();
            } catch (Failed e) {
                lines = instead(e);
            } catch (InterruptedException e) {
                return Program.DONE;
            }
        }
    }

    /** What is shown while there is no answer: among JSON, nothing. */
    private List<String> instead(Failed reason) {
        if (!json) {
            return List.of(reason.getMessage());
        }
        System.err.println("lumetra status: " + reason.getMessage());
        return List.of();
    }

    /** One write for all of it, so that nothing flickers. */
    private void show(List<String> lines, boolean redraw) {
        StringBuilder text = new StringBuilder(redraw ? HOME : "");
        String end = (redraw ? CLEAR_LINE : "") + System.lineSeparator();
        (redraw ? fitted(lines) : lines).forEach(line -> text.append(line).append(end));
        if (!json) {
            text.append(LocalTime.now().truncatedTo(ChronoUnit.SECONDS)).append(end);
            text.append(redraw ? CLEAR_BELOW : System.lineSeparator());
        }
        out.print(text);
        out.flush();
    }

    /** As many lines as are seen at once, without the least urgent resources; more could not be redrawn. */
    private List<String> fitted(List<String> lines) {
        int most = terminal.rows().orElse(Integer.MAX_VALUE) - 2; // the clock and the cursor
        int kept = most - 1 - AGENT_LINES;
        if (lines.size() <= most || kept < 1) {
            return lines;
        }
        List<String> fitted = new ArrayList<>(lines.subList(0, kept));
        int left = lines.size() - kept - AGENT_LINES;
        fitted.add("… and " + left + (left == 1 ? " more line" : " more lines"));
        fitted.addAll(lines.subList(lines.size() - AGENT_LINES, lines.size()));
        return fitted;
    }

    /** Indented, with an escape for everything that a terminal might take for more than a letter. */
    private static String indented(JsonNode json) {
        ObjectWriter writer = new ObjectMapper().writerWithDefaultPrettyPrinter();
        writer = writer.with(JsonWriteFeature.ESCAPE_NON_ASCII);
        writer = writer.with(new DeleteEscaped());
        try {
            return writer.writeValueAsString(json);
        } catch (IOException e) {
            throw new IllegalStateException("JSON that was read cannot be written", e);
        }
    }
}
