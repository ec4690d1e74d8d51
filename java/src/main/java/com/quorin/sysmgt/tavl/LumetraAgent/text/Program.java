package com.quorin.sysmgt.tavl.LumetraAgent.text;

import java.io.File;
import java.io.IOException;
import java.net.URISyntaxException;
import java.util.Optional;
import java.util.jar.JarFile;
import picocli.CommandLine.IVersionProvider;

/** What all commands of the program share: how it ends, and which version it is. */
public final class Program {

    /** Exit code of a command that did what it was asked to. */
    public static final int DONE = 0;

    /** Exit code of a command that failed. */
    public static final int FAILED = 1;

    /** Exit code of an agent whose home another one works in. */
    public static final int HOME_TAKEN = 5;

    /** Exit code of an agent that lacks threads or memory. */
    public static final int TOO_LITTLE = 6;

    /** The version that the build wrote into the program's archive. */
    public static final class Version implements IVersionProvider {

        /** The number that the build gave, or "(development)" outside an archive. */
        public static String text() {
            String version = Program.class.getPackage().getImplementationVersion();
            return version == null ? "(development)" : version;
        }

        @Override
        public String[] getVersion() {
            return new String[] {"Lumetra Agent " + text() + commit().map(c -> " (" + c + ")").orElse("")};
        }

        /** The commit that the archive was built from, with "+" when more was changed; empty when nobody knows. */
        private static Optional<String> commit() {
            try (JarFile archive = new JarFile(
                    new File(Program.class.getProtectionDomain().getCodeSource().getLocation().toURI()))) {
                return Optional.ofNullable(archive.getManifest().getMainAttributes().getValue("Lumetra-Commit"));
            } catch (IOException | URISyntaxException | RuntimeException e) {
                return Optional.empty();
            }
        }
    }

    private Program() {}
}
