package com.quorin.sysmgt.tavl.LumetraAgent.doctor;

import java.io.File;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.time.Duration;
import java.util.concurrent.TimeUnit;

/** Runs other programs, of which any may hang: what this process does itself, it could not give up. */
interface Commands {

    /** How a command ended. */
    enum End { MISSING, HANGS, FAILED, DONE }

    /**
     * What came of a command.
     *
     * @param output what it printed to standard output, if that was asked for and it is done
     */
    record Outcome(End end, String output) {}

    /**
     * Runs a command for at most so long; one that takes longer is killed, and left alone if that does not end it.
     *
     * @param reads whether its output is wanted: not more than a few lines
     */
    Outcome run(Duration patience, boolean reads, String... words);

    /** Those of this machine. */
    static Commands real() {
        return (patience, reads, words) -> {
            try {
                return await(start(reads, words), patience, reads);
            } catch (IOException e) {
                return new Outcome(End.MISSING, "");
            }
        };
    }

    private static Process start(boolean reads, String... words) throws IOException {
        ProcessBuilder builder = new ProcessBuilder(words);
        builder.environment().put("LC_ALL", "C");
        builder.redirectInput(new File("/dev/null"));
        builder.redirectError(ProcessBuilder.Redirect.DISCARD);
        if (!reads) {
            builder.redirectOutput(ProcessBuilder.Redirect.DISCARD);
        }
        return builder.start();
    }

    private static Outcome await(Process process, Duration patience, boolean reads) throws IOException {
        try {
            if (!process.waitFor(patience.toMillis(), TimeUnit.MILLISECONDS)) {
                process.destroyForcibly();
                return new Outcome(End.HANGS, "");
            }
        } catch (InterruptedException e) {
            process.destroyForcibly();
            Thread.currentThread().interrupt();
            return new Outcome(End.HANGS, "");
        }
        String output = reads
                ? new String(process.getInputStream().readAllBytes(), StandardCharsets.ISO_8859_1).strip() : "";
        return new Outcome(process.exitValue() == 0 ? End.DONE : End.FAILED, output);
    }
}
