package com.quorin.sysmgt.tavl.LumetraAgent.host;

import com.fasterxml.jackson.core.json.JsonWriteFeature;
import com.fasterxml.jackson.databind.ObjectMapper;
import com.fasterxml.jackson.databind.ObjectWriter;
import com.quorin.sysmgt.tavl.LumetraAgent.NativeLibrary;
import com.quorin.sysmgt.tavl.LumetraAgent.check.AgentCheck;
import com.quorin.sysmgt.tavl.LumetraAgent.check.Finding;
import com.quorin.sysmgt.tavl.LumetraAgent.check.LibraryCheck;
import com.quorin.sysmgt.tavl.LumetraAgent.client.PathName;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Program;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.io.IOException;
import java.io.PrintStream;
import java.nio.file.Path;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.concurrent.Callable;
import picocli.CommandLine.Command;
import picocli.CommandLine.Option;

/** Checks configuration and declarations before a start. */
@Command(name = "check", mixinStandardHelpOptions = true, versionProvider = Program.Version.class,
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

    @Option(names = "--home", paramLabel = "DIR", defaultValue = "${sys:lumetra.home:-..}",
            converter = PathName.class, description = "The agent's home. Default: that of lumetra run.")
    private Path home;

    @Option(names = "--config", paramLabel = "FILE", converter = PathName.class,
            description = "The configuration file. Default: config/AutoConfig.ini of the home.")
    private Path config;

    @Option(names = "--json", description = "Print the findings as JSON.")
    private boolean json;

    @Option(names = "--strict", description = "End with exit code 1 for warnings too.")
    private boolean strict;

    private final PrintStream out = System.out;

    @Override
    public Integer call() {
        List<Finding> findings;
        try {
            LibraryCheck.load();
            findings = AgentCheck.of(home,
                    config == null ? home.resolve("config").resolve("AutoConfig.ini") : config);
        } catch (NativeLibrary.Unavailable e) {
            System.err.println("lumetra check: " + Words.printable(e.getMessage()));
            return Program.FAILED;
        }
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
            return Program.FAILED;
        }
        return exitCode(errors, warnings);
    }

    private int exitCode(int errors, int warnings) {
        if (errors > 0 || strict && warnings > 0) {
            return Program.FAILED;
        }
        return warnings > 0 ? WARNED : Program.DONE;
    }

    private static String summary(int errors, int warnings) {
        if (errors + warnings == 0) {
            return "Nothing found.";
        }
        return (errors == 1 ? "1 error, " : errors + " errors, ")
                + (warnings == 1 ? "1 warning." : warnings + " warnings.");
    }

    /** The findings as JSON, indented and in ASCII. */
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
