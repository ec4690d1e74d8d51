package com.quorin.sysmgt.tavl.LumetraAgent.check;

import com.quorin.sysmgt.tavl.LumetraAgent.files.OwnFile;
import java.io.IOException;
import java.nio.channels.Channels;
import java.nio.channels.FileChannel;
import java.nio.file.FileSystemException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Optional;

/**
 * What the configuration of a home names, as the agent in that home would find it.
 *
 * @param periodMillis pause between two samples; -1: the agent chooses one
 */
public record HomeFiles(Path archive, Path scratchPad, Path declarations, int periodMillis, int minForecastHours,
        int maxForecastHours) {

    /** A file that a home needs and that cannot be used; the message is one line that names it. */
    public static final class Unusable extends Exception {

        private static final long serialVersionUID = 1L;

        private Unusable(String message) {
            super(message);
        }
    }

    /**
     * Reads a configuration. The library must be loaded.
     *
     * @throws Unusable when the agent would refuse it, or reads no forecast hours from it
     */
    public static HomeFiles of(Path directory, Path configuration) throws Unusable {
        LibraryCheck.Configuration read = LibraryCheck.configurationOf(read(configuration, "the configuration"));
        ConfigurationItems items = read.items();
        if (!read.accepted() || !items.isRead(8)) {
            throw new Unusable(CheckHome.label(configuration)
                    + " is no configuration of the agent: five names and at least three whole numbers were expected;"
                    + " lumetra check says more");
        }
        CheckHome home = new CheckHome(directory);
        return new HomeFiles(home.resolve(items.archive()), home.resolve(items.path(3)), home.resolve(items.path(5)),
                items.number(6), items.number(7), items.number(8));
    }

    /**
     * The number of the user whose agent works in a home: whoever owns it.
     *
     * @throws Unusable when that cannot be seen
     */
    public static int userOf(Path home) throws Unusable {
        try {
            return Files.exists(home) ? OwnFile.owner(home) : OwnFile.user();
        } catch (IOException e) {
            throw unusable(home, "the home", reason(e));
        }
    }

    /**
     * The content of a file.
     *
     * @param what its part, a noun with its article
     * @throws Unusable when it cannot be read
     */
    private static byte[] read(Path file, String what) throws Unusable {
        need(file, what);
        return CheckHome.read(file);
    }

    /**
     * The content of a file that people write for the agent.
     *
     * @param what its part, a noun with its article
     * @param user the number of the agent's user
     * @throws Unusable when it cannot be read, or the agent would not take it
     */
    public static byte[] readGiven(Path file, String what, int user) throws Unusable {
        needGiven(file, what, user);
        return CheckHome.read(file);
    }

    /**
     * The content of a file that the agent itself writes.
     *
     * @param what its part, a noun with its article
     * @param user the number of the agent's user
     * @throws Unusable when it cannot be read, or the agent would not take it
     */
    public static byte[] readOwn(Path file, String what, int user) throws Unusable {
        need(file, what);
        try (FileChannel channel = OwnFile.read(file, user)) {
            return CheckHome.read(Channels.newInputStream(channel), channel.size());
        } catch (IOException e) {
            throw unusable(file, what, reason(e));
        }
    }

    /** @throws Unusable when a file that the agent itself writes cannot be read, or the agent would not take it */
    public static void needOwn(Path file, String what, int user) throws Unusable {
        need(file, what);
        try {
            OwnFile.read(file, user).close();
        } catch (IOException e) {
            throw unusable(file, what, reason(e));
        }
    }

    /** @throws Unusable when a file that people write cannot be read, or the agent would not take it */
    public static void needGiven(Path file, String what, int user) throws Unusable {
        need(file, what);
        try {
            Optional<String> objection = OwnFile.objectionToGiven(file, user);
            if (objection.isPresent()) {
                throw unusable(file, what, objection.get());
            }
        } catch (IOException e) {
            throw unusable(file, what, reason(e));
        }
    }

    private static String reason(IOException e) {
        return e instanceof FileSystemException refused && refused.getReason() != null ? refused.getReason()
                : e.toString();
    }

    private static Unusable unusable(Path file, String what, String obstacle) {
        return new Unusable(CheckHome.label(file) + ", " + what + ": " + obstacle);
    }

    /** @throws Unusable when a file cannot be read */
    public static void need(Path file, String what) throws Unusable {
        Optional<String> obstacle = CheckHome.whyUnopenable(file)
                .or(() -> CheckHome.whyNoFile(file).map(kind -> "it is " + kind));
        if (obstacle.isPresent()) {
            throw unusable(file, what, obstacle.get());
        }
    }
}
