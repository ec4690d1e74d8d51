package com.quorin.sysmgt.tavl.LumetraAgent.text;

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
            return new String[] {"Lumetra Agent " + text()};
        }
    }

    private Program() {}
}
