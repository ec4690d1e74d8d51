package com.quorin.sysmgt.tavl.LumetraAgent.host;

import com.quorin.sysmgt.tavl.LumetraAgent.client.PathName;
import com.quorin.sysmgt.tavl.LumetraAgent.client.WholeNumber;
import com.quorin.sysmgt.tavl.LumetraAgent.tell.Telling;
import java.io.PrintStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Duration;
import java.util.Optional;
import java.util.function.BinaryOperator;
import java.util.function.Supplier;
import picocli.CommandLine.ITypeConverter;
import picocli.CommandLine.Option;
import picocli.CommandLine.TypeConversionException;

/** Who is told of events. */
final class TellOptions {

    /** A file that can be started. */
    static final class ExecutableFile implements ITypeConverter<Path> {

        @Override
        public Path convert(String text) {
            Path file = new PathName().convert(text);
            if (!file.isAbsolute() || !Files.isRegularFile(file) || !Files.isExecutable(file)) {
                throw new TypeConversionException(
                        "expected the absolute path of a file that this user can execute, got " + text);
            }
            return file;
        }
    }

    /** The time after which a reminder comes. */
    static final class Hours extends WholeNumber {
        Hours() {
            super("hours from 1 to 8760", 1, 8760);
        }
    }

    @Option(names = "--on-event", paramLabel = "PROGRAM", converter = ExecutableFile.class,
            description = "A program to start, without a shell, when an exhaustion is announced or averted, a limit "
                    + "is reached, or the agent fails. It gets the event as a line of JSON on its standard input.")
    private Path program;

    @Option(names = "--remind", paramLabel = "HOURS", converter = Hours.class,
            description = "Start that program again whenever an exhaustion has been announced for so many hours more.")
    private Integer remind;

    /** What is wrong with the options; empty for nothing. */
    Optional<String> problem() {
        return remind != null && program == null ? Optional.of("--remind needs --on-event") : Optional.empty();
    }

    /** Whether somebody is to be told. */
    boolean isWanted() {
        return program != null;
    }

    /**
     * Gets ready to tell, if that is wanted: the parameters are those of {@link Telling}.
     *
     * @throws OutOfMemoryError when there are no threads to be had
     */
    Optional<Telling> start(Supplier<String> page, BinaryOperator<String> trackRecords, PrintStream out) {
        Duration pause = remind == null ? Duration.ZERO : Duration.ofHours(remind);
        return isWanted()
                ? Optional.of(new Telling(program, pause, PageOptions.ownName(), page, trackRecords, out))
                : Optional.empty();
    }
}
