package com.quorin.sysmgt.tavl.LumetraAgent.host;

import com.fasterxml.jackson.core.json.JsonWriteFeature;
import com.fasterxml.jackson.databind.ObjectMapper;
import com.fasterxml.jackson.databind.ObjectWriter;
import com.quorin.sysmgt.tavl.LumetraAgent.NativeLibrary;
import com.quorin.sysmgt.tavl.LumetraAgent.check.LibraryCheck;
import com.quorin.sysmgt.tavl.LumetraAgent.client.AgentAddress;
import com.quorin.sysmgt.tavl.LumetraAgent.client.PathName;
import com.quorin.sysmgt.tavl.LumetraAgent.doctor.Doctor;
import com.quorin.sysmgt.tavl.LumetraAgent.doctor.Severity;
import com.quorin.sysmgt.tavl.LumetraAgent.doctor.Symptom;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Program;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.io.IOException;
import java.io.PrintStream;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.concurrent.Callable;
import picocli.CommandLine.Command;
import picocli.CommandLine.Option;

/** Tells what the agent can and cannot see on this machine. */
@Command(name = "doctor", mixinStandardHelpOptions = true, versionProvider = Program.Version.class,
        description = "Looks at this machine and says what the agent can and cannot see here, what keeps it from "
                + "working, and what to do about each. It changes nothing.",
        footerHeading = "%nExit codes:%n",
        footer = {"  0  nothing is amiss (there may be notices)",
            "  1  there is a problem",
            "  2  the command line is wrong",
            "  3  there is no problem, but there are warnings%n"})
final class DoctorCommand implements Callable<Integer> {

    @Option(names = "--home", paramLabel = "DIR", defaultValue = "${sys:lumetra.home:-..}",
            converter = PathName.class, description = "The agent's home. Default: that of lumetra run.")
    private Path home;

    @Option(names = "--config", paramLabel = "FILE", converter = PathName.class,
            description = "The configuration file. Default: config/AutoConfig.ini of the home.")
    private Path config;

    @Option(names = "--port", paramLabel = "N", defaultValue = "" + AgentAddress.DEFAULT_PORT,
            converter = PageOptions.Port.class,
            description = "The page's port; 0 when there is to be no page. Default: ${DEFAULT-VALUE}.")
    private int port;

    @Option(names = "--json", description = "Print the findings as JSON.")
    private boolean json;

    private final PrintStream out = System.out;

    @Override
    public Integer call() {
        try {
            LibraryCheck.load();
        } catch (NativeLibrary.Unavailable e) {
            System.err.println("lumetra doctor: " + Words.printable(e.getMessage()));
            return Program.FAILED;
        }
        List<Symptom> found = Doctor.examine(home,
                config == null ? home.resolve("config").resolve("AutoConfig.ini") : config, port);
        out.println(json ? toJson(found) : String.join(System.lineSeparator(), lines(found)));
        if (out.checkError()) {
            System.err.println("lumetra doctor: standard output cannot be written");
            return Program.FAILED;
        }
        return exitCode(found);
    }

    static int exitCode(List<Symptom> found) {
        if (count(found, Severity.PROBLEM) > 0) {
            return Program.FAILED;
        }
        return count(found, Severity.WARNING) > 0 ? CheckCommand.WARNED : Program.DONE;
    }

    private static long count(List<Symptom> found, Severity severity) {
        return found.stream().filter(symptom -> symptom.severity() == severity).count();
    }

    /** The findings, each with what to do below it, and their number. */
    static List<String> lines(List<Symptom> found) {
        List<String> lines = new ArrayList<>();
        for (Symptom symptom : found) {
            String head = String.format(Locale.ROOT, "%-8s %-14s", symptom.severity().word(), symptom.subject().id());
            lines.add(head + symptom.what());
            if (symptom.advice() != null) {
                lines.add(" ".repeat(head.length()) + symptom.advice());
            }
        }
        lines.add("");
        lines.add(number(count(found, Severity.PROBLEM), "problem") + ", "
                + number(count(found, Severity.WARNING), "warning") + ", "
                + number(count(found, Severity.NOTICE), "notice") + ".");
        return lines;
    }

    private static String number(long count, String what) {
        return count + " " + what + (count == 1 ? "" : "s");
    }

    /** The findings as JSON, indented and in ASCII. */
    static String toJson(List<Symptom> found) {
        Map<String, Object> all = new LinkedHashMap<>();
        all.put("findings", found);
        all.put("problems", count(found, Severity.PROBLEM));
        all.put("warnings", count(found, Severity.WARNING));
        all.put("notices", count(found, Severity.NOTICE));
        ObjectWriter writer = new ObjectMapper().writerWithDefaultPrettyPrinter()
                .with(JsonWriteFeature.ESCAPE_NON_ASCII);
        try {
            return writer.writeValueAsString(all);
        } catch (IOException e) {
            throw new IllegalStateException("a finding has no JSON", e);
        }
    }
}
