package com.quorin.sysmgt.tavl.LumetraAgent;

import com.fasterxml.jackson.core.json.JsonWriteFeature;
import com.fasterxml.jackson.databind.ObjectMapper;
import com.fasterxml.jackson.databind.ObjectWriter;
import java.io.IOException;
import java.io.PrintStream;
import java.nio.file.InvalidPathException;
import java.nio.file.Path;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.concurrent.Callable;
import picocli.CommandLine.Command;
import picocli.CommandLine.Model.CommandSpec;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;
import picocli.CommandLine.Spec;

/** Checks configuration and declarations before a start. */
@Command(name = "check", mixinStandardHelpOptions = true, versionProvider = Lumetra.Version.class,
        description = "Checks the configuration and the declarations of a home before a start: what the "
                + "agent would refuse, and what it would accept without a word. It changes nothing.",
        footerHeading = "%nExit codes:%n",
        footer = {"  0  there is nothing to say",
            "  1  the agent would not start (with --strict: there is something to say)",
            "  2  the command line is wrong",
            "  3  the agent would start, but there are warnings%n"})
final class CheckCommand implements Callable<Integer> {

    /** Exit code of a check that found warnings only. */
    static final int WARNED = 3;

    @Option(names = "--home", paramLabel = "DIR",
            description = "The agent's home. Default: that of lumetra run.")
    private String home = System.getProperty("lumetra.home", "..");

    @Option(names = "--config", paramLabel = "FILE",
            description = "The configuration file. Default: config/AutoConfig.ini of the home.")
    private String config;

    @Option(names = "--json", description = "Print the findings as JSON.")
    private boolean json;

    @Option(names = "--strict", description = "End with exit code 1 for warnings too.")
    private boolean strict;

    @Spec
    private CommandSpec spec;

    private final PrintStream out = System.out;

    /** Creates the command with its default options. */
    CheckCommand() {
        // picocli fills in the options
    }

    /**
     * Checks and prints what it found.
     *
     * @return the exit code
     */
    @Override
    public Integer call() {
        List<Finding> findings = findings();
        int errors = (int) findings.stream().filter(finding -> finding.kind().isError()).count();
        int warnings = findings.size() - errors;
        if (json) {
            out.println(toJson(findings, errors, warnings));
        } else {
            findings.forEach(finding -> out.println(finding.text()));
            out.println(summary(errors, warnings));
        }
        if (out.checkError()) {
            System.err.println("lumetra check: standard output cannot be written");
            return Lumetra.FAILED;
        }
        return exitCode(errors, warnings);
    }

    private List<Finding> findings() {
        try {
            if (home.isEmpty() || "".equals(config)) {
                throw new InvalidPathException("", "the name is empty");
            }
            Path directory = Path.of(home);
            Path file = config == null ? directory.resolve("config").resolve("AutoConfig.ini")
                    : Path.of(config);
            return AgentCheck.of(directory, file);
        } catch (InvalidPathException e) {
            throw new ParameterException(spec.commandLine(), "Invalid value for option '"
                    + (home.isEmpty() || config == null ? "--home" : "--config")
                    + "': expected a path: " + e.getMessage());
        }
    }

    private int exitCode(int errors, int warnings) {
        if (errors > 0 || strict && warnings > 0) {
            return Lumetra.FAILED;
        }
        return warnings > 0 ? WARNED : Lumetra.DONE;
    }

    private static String summary(int errors, int warnings) {
        if (errors + warnings == 0) {
            return "Nothing found.";
        }
        return (errors == 1 ? "1 error, " : errors + " errors, ")
                + (warnings == 1 ? "1 warning." : warnings + " warnings.");
    }

    /**
     * The findings as JSON, indented and in ASCII.
     *
     * @param findings the findings
     * @param errors   how many of them are errors
     * @param warnings how many are warnings
     * @return the text
     */
    static String toJson(List<Finding> findings, int errors, int warnings) {
        Map<String, Object> all = new LinkedHashMap<>();
        all.put("findings", findings);
        all.put("errors", errors);
        all.put("warnings", warnings);
        ObjectWriter writer = new ObjectMapper().writerWithDefaultPrettyPrinter()
                .with(JsonWriteFeature.ESCAPE_NON_ASCII);
        try {
            return writer.writeValueAsString(all);
        } catch (IOException e) {
            throw new IllegalStateException("a finding has no JSON", e);
        }
    }
}
