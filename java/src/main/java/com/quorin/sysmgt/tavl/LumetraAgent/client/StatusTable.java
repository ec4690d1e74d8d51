package com.quorin.sysmgt.tavl.LumetraAgent.client;

import com.quorin.sysmgt.tavl.LumetraAgent.files.Culprit;
import com.quorin.sysmgt.tavl.LumetraAgent.files.CulpritReport;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.LeftOutSummary;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.ResourceState;
import com.quorin.sysmgt.tavl.LumetraAgent.resource.Snapshot;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.net.URI;
import java.time.Duration;
import java.time.Instant;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Locale;
import java.util.Optional;
import java.util.OptionalInt;
import picocli.CommandLine.Help.Ansi;

/** The state of all resources as lines of text, the most urgent first. */
public final class StatusTable {

    private static final List<String> HEADINGS =
            List.of("RESOURCE", "INSTANCE", "VALUE", "STATE", "EXHAUSTION", "MODEL", "NOTIFY AT");
    private static final int INSTANCE = 1;
    private static final int VALUE = 2;
    private static final int STATE = 3;
    private static final int LEVEL = 6;
    private static final int LEAST_INSTANCE = 9;
    private static final int LONGEST_NAME = 40;
    private static final int SHOWN_USERS = 3;
    private static final String GAP = "  ";
    private static final String UNKNOWN = "-";
    private static final String NOW = "now";

    private final Terminal terminal;

    StatusTable(Terminal terminal) {
        this.terminal = terminal;
    }

    /**
     * The whole status.
     *
     * @param page where it was asked
     * @param now  the present by the clock of the agent's machine
     */
    List<String> lines(Snapshot snapshot, URI page, Instant now) {
        List<String> lines = new ArrayList<>(table(snapshot, now));
        if (lines.isEmpty()) {
            lines.add("No resources yet.");
        }
        if (snapshot.agent().notice() != null) {
            lines.add(Words.printable(snapshot.agent().notice()));
        }
        LeftOutSummary.of(snapshot.leftOut()).ifPresent(
                summary -> lines.add(Words.printable(summary) + " lumetra status --skipped lists them."));
        lines.add("");
        lines.add(agent(snapshot.agent(), page, now));
        return lines;
    }

    /** What is left out, one line for each with its reason, and a summary. */
    static List<String> skipped(List<Snapshot.LeftOut> leftOut) {
        List<String> lines = new ArrayList<>();
        leftOut.forEach(l -> lines.add(Words.printable(l.what()) + ": " + Words.printable(l.why())));
        lines.add(LeftOutSummary.of(leftOut).map(Words::printable).orElse("The agent leaves out nothing."));
        return lines;
    }

    /** The processes that use most of a resource, in one line; empty when none is named. */
    public static Optional<String> largestUsers(String resource, CulpritReport report) {
        if (report.processes().isEmpty()) {
            return Optional.empty();
        }
        List<String> named = report.processes().stream().limit(SHOWN_USERS).map(Culprit::inWords).toList();
        return Optional.of("Largest users of " + Words.printable(resource) + ": "
                + String.join(", ", named) + " " + Words.printable(report.measureText()));
    }

    private List<String> table(Snapshot snapshot, Instant now) {
        List<Snapshot.Resource> resources = snapshot.resources();
        if (resources.isEmpty()) {
            return List.of();
        }
        List<List<String>> rows = new ArrayList<>();
        rows.add(HEADINGS);
        resources.forEach(resource -> rows.add(cells(resource, snapshot.agent(), now)));
        int[] widths = widths(rows);
        List<String> lines = new ArrayList<>();
        lines.add(line(rows.get(0), widths, null));
        for (int i = 0; i < resources.size(); i++) {
            lines.add(line(rows.get(i + 1), widths, resources.get(i).state()));
            trackRecord(resources.get(i)).ifPresent(lines::add);
        }
        return lines;
    }

    /** The line below a row that announces something: what came of earlier announcements. */
    private Optional<String> trackRecord(Snapshot.Resource resource) {
        return Optional.ofNullable(isAnnounced(resource) ? resource.track().trackRecord() : null)
                .map(record -> shortened(GAP + Words.printable(record), terminal.columns().orElse(Integer.MAX_VALUE)));
    }

    private static boolean isAnnounced(Snapshot.Resource resource) {
        return resource.state() == ResourceState.FORECAST || resource.state() == ResourceState.PENDING;
    }

    private List<String> cells(Snapshot.Resource resource, Snapshot.Agent agent, Instant now) {
        Snapshot.Forecast forecast = resource.forecast();
        String state = Words.printable(resource.standing().stateText());
        if (resource.state() == ResourceState.COLLECTING) {
            state += " (" + resource.reading().samples() + " of " + agent.samplesForForecast() + ")";
        }
        return List.of(shortened(Words.printable(resource.identity().resource()), LONGEST_NAME),
                Words.printable(resource.identity().instance()), percent(resource.reading().value()), state,
                exhaustion(resource, now), orUnknown(forecast.model()), percent(forecast.notificationLevel()));
    }

    private static String orUnknown(String text) {
        return text == null ? UNKNOWN : Words.printable(text);
    }

    private static String percent(Double value) {
        return value == null ? UNKNOWN : String.format(Locale.ROOT, "%.2f %%", value);
    }

    /** In the words of the page: only what is forecast now counts down, not what was before the agent stalled. */
    private static String exhaustion(Snapshot.Resource resource, Instant now) {
        if (resource.state() == ResourceState.AT_LIMIT) {
            return NOW;
        }
        Snapshot.Forecast forecast = resource.forecast();
        if (!isAnnounced(resource) || forecast.secondsToExhaustion() == null) {
            return UNKNOWN;
        }
        double left = forecast.exhaustionAt() == null ? forecast.secondsToExhaustion()
                : forecast.exhaustionAt() - now.getEpochSecond();
        return left <= 0 ? NOW : "in about " + Words.ofDuration(Duration.ofSeconds((long) left));
    }

    /** The columns' widths; the instances make room when a line would be too long. */
    private int[] widths(List<List<String>> rows) {
        int[] widths = new int[HEADINGS.size()];
        for (List<String> row : rows) {
            for (int i = 0; i < widths.length; i++) {
                widths[i] = Math.max(widths[i], length(row.get(i)));
            }
        }
        OptionalInt columns = terminal.columns();
        int excess = Arrays.stream(widths).sum() + GAP.length() * (widths.length - 1)
                - columns.orElse(Integer.MAX_VALUE);
        if (excess > 0) {
            int least = Math.min(widths[INSTANCE], LEAST_INSTANCE);
            widths[INSTANCE] = Math.max(least, widths[INSTANCE] - excess);
        }
        return widths;
    }

    private String line(List<String> row, int[] widths, ResourceState state) {
        StringBuilder line = new StringBuilder();
        for (int i = 0; i < widths.length; i++) {
            String cell = i == INSTANCE ? shortened(row.get(i), widths[i]) : row.get(i);
            String padding = " ".repeat(Math.max(0, widths[i] - length(cell)));
            boolean right = i == VALUE || i == LEVEL;
            line.append(i == 0 ? "" : GAP).append(right ? padding : "")
                    .append(i == STATE ? coloured(cell, state) : cell).append(right ? "" : padding);
        }
        return line.toString().stripTrailing();
    }

    private String coloured(String text, ResourceState state) {
        if (state == null) {
            return text;
        }
        List<Ansi.IStyle> styles = switch (state) {
            case AT_LIMIT -> List.of(Ansi.Style.bold, Ansi.Style.fg_red);
            case FORECAST -> List.of(Ansi.Style.fg_red);
            case PENDING -> List.of(Ansi.Style.fg_yellow);
            case STALE, UNREADABLE -> List.of(Ansi.Style.fg_magenta);
            default -> List.of();
        };
        return styles.isEmpty() ? text : terminal.colours().apply(text, styles).toString();
    }

    private String shortened(String text, int width) {
        return terminal.isInteractive() ? shorten(text, width) : text;
    }

    /** A text of at most so many characters, with an ellipsis in the place of its middle if need be. */
    static String shorten(String text, int width) {
        int length = length(text);
        if (length <= width || width < 1) {
            return text;
        }
        int head = (width - 1) / 2;
        int tail = width - 1 - head;
        return text.substring(0, text.offsetByCodePoints(0, head)) + "…"
                + text.substring(text.offsetByCodePoints(0, length - tail));
    }

    private static int length(String text) {
        return text.codePointCount(0, text.length());
    }

    private static String agent(Snapshot.Agent agent, URI page, Instant now) {
        String cycles = agent.cycles() == 1 ? "1 cycle" : agent.cycles() + " cycles";
        String newest = agent.newestCycleAt() == null ? ""
                : ", the newest " + ago(now.getEpochSecond() - agent.newestCycleAt());
        double period = agent.periodSeconds();
        String pace = period <= 0 ? "samples without a pause"
                : "a sample every " + Words.ofDuration(Duration.ofSeconds(Math.round(period)));
        String resumed = agent.resumedSamples() <= 0 ? "" : ", resumed with " + agent.resumedSamples()
                + (agent.resumedSamples() == 1 ? " sample" : " samples");
        return "Lumetra Agent " + Words.printable(agent.version()) + " at " + page + ": " + cycles
                + newest + ", " + pace + resumed + (agent.running() ? "" : "; it is not running")
                + (agent.stale() && agent.running() ? "; it is late" : "") + ".";
    }

    private static String ago(long seconds) {
        return Words.ofDuration(Duration.ofSeconds(seconds)) + " ago";
    }
}
