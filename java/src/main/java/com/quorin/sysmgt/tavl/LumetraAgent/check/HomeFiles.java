package com.quorin.sysmgt.tavl.LumetraAgent.check;

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
     * The content of a file.
     *
     * @param what its part, a noun with its article
     * @throws Unusable when it cannot be read
     */
    public static byte[] read(Path file, String what) throws Unusable {
        need(file, what);
        return CheckHome.read(file);
    }

    /** @throws Unusable when a file cannot be read */
    public static void need(Path file, String what) throws Unusable {
        Optional<String> obstacle = CheckHome.whyUnopenable(file)
                .or(() -> CheckHome.whyNoFile(file).map(kind -> "it is " + kind));
        if (obstacle.isPresent()) {
            throw new Unusable(CheckHome.label(file) + ", " + what + ": " + obstacle.get());
        }
    }
}
