package com.quorin.sysmgt.tavl.LumetraAgent.host;

import com.quorin.sysmgt.tavl.LumetraAgent.client.PlotCommand;
import com.quorin.sysmgt.tavl.LumetraAgent.client.StatusCommand;
import com.quorin.sysmgt.tavl.LumetraAgent.client.Terminal;
import com.quorin.sysmgt.tavl.LumetraAgent.replay.ReplayCommand;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Program;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import picocli.CommandLine.Command;
import picocli.CommandLine.Model.CommandSpec;
import picocli.CommandLine.ParameterException;
import picocli.CommandLine.Spec;
import picocli.CommandLine;

/** The program: runs the agent, or shows in a terminal what a running one sees. */
@Command(name = "lumetra", mixinStandardHelpOptions = true, versionProvider = Program.Version.class,
        description = "Tells hours ahead which resource of this machine will run out.",
        subcommands = {RunCommand.class, StatusCommand.class, PlotCommand.class, CheckCommand.class,
            DoctorCommand.class, ReplayCommand.class},
        commandListHeading = "%nCommands:%n",
        footerHeading = "%nExit codes:%n",
        footer = {"  0  done",
            "  1  it did not work; standard error says why",
            "  2  the command line is wrong",
            "",
            "lumetra COMMAND --help tells about each command.%n"})
public final class Lumetra implements Runnable {

    @Spec
    private CommandSpec spec;

    /** Runs a command and ends the process with its exit code. */
    public static void main(String[] args) {
        try {
            CommandLine line = commandLine();
            int code = line.execute(args);
            RunCommand run = line.getSubcommands().get("run").getCommand();
            run.leaveWith(code);
            System.exit(code);
        } catch (Error e) {
            // other threads would keep a process alive that nobody ends
            System.err.println("lumetra: " + e);
            Runtime.getRuntime().halt(Program.FAILED);
        }
    }

    /** The command line, which answers a mistake with one line and not with the whole usage text. */
    static CommandLine commandLine() {
        CommandLine line = new CommandLine(new Lumetra());
        line.setColorScheme(Terminal.ofThisProcess().colours());
        return line.setParameterExceptionHandler((mistake, args) -> {
            CommandLine command = mistake.getCommandLine();
            String name = command.getCommandSpec().qualifiedName();
            command.getErr().println(name + ": " + Words.printable(mistake.getMessage()));
            command.getErr().println("Try " + name + " --help");
            return CommandLine.ExitCode.USAGE;
        });
    }

    /** Without a command there is nothing to do. */
    @Override
    public void run() {
        throw new ParameterException(spec.commandLine(),
                "a command is missing: run, status, plot, check, doctor or replay");
    }
}
