package com.quorin.sysmgt.tavl.LumetraAgent.check;

import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStreamReader;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.util.List;
import com.quorin.sysmgt.tavl.LumetraAgent.NativeLibrary;

/**
 * Checks the homes that it is told on standard input, one a line, in one process. For each it prints the number
 * of errors and the identifiers of the findings; before the first, all identifiers with their severity.
 */
public final class CheckMany {

    private CheckMany() {}

    /**
     * Runs until standard input ends.
     *
     * @param args none
     * @throws IOException               when standard input cannot be read
     * @throws NativeLibrary.Unavailable when the library is not there
     */
    public static void main(String[] args) throws IOException, NativeLibrary.Unavailable {
        LibraryCheck.load();
        for (FindingKind kind : FindingKind.values()) {
            System.out.println(kind.id() + " " + kind.severity());
        }
        System.out.println("ready");
        BufferedReader in = new BufferedReader(new InputStreamReader(System.in, StandardCharsets.UTF_8));
        for (String home = in.readLine(); home != null; home = in.readLine()) {
            Path directory = Path.of(home);
            List<Finding> findings = AgentCheck.of(directory, directory.resolve("config/AutoConfig.ini"));
            long errors = findings.stream().filter(finding -> finding.kind().isError()).count();
            System.out.println(errors + " " + String.join(" ", findings.stream().map(Finding::id).toList()));
        }
    }
}
