package com.quorin.sysmgt.tavl.LumetraAgent;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.PosixFilePermissions;
import java.util.List;
import java.util.Optional;
import java.util.function.BooleanSupplier;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class DiskListerTest {

    private static final KnownResource SPACE =
            new KnownResource(2, 1, "LogicalDisk", "/dev/vda /", MachineCapacities.SPACE, "-2");
    private static final KnownResource INODES =
            new KnownResource(2, 2, "LogicalDisk", "/dev/vda /", "PercentFreeInodesUsed", "-2");

    @TempDir
    private Path directory;
    private volatile long nanos;

    private DiskLister lister(String script) throws IOException {
        Path command = Files.writeString(directory.resolve("df"), "#!/bin/sh\n" + script);
        Files.setPosixFilePermissions(command, PosixFilePermissions.fromString("rwxr-xr-x"));
        return new DiskLister(directory, List.of(command.toString()), () -> nanos);
    }

    private static void await(BooleanSupplier condition) throws InterruptedException {
        while (!condition.getAsBoolean()) {
            Thread.sleep(5);
        }
    }

    private static Optional<Double> amount(Capacities lister, KnownResource resource) {
        return lister.newest().measured(resource, 0);
    }

    @Test
    void spaceAndInodesAreListedInPlainWords() throws Exception {
        DiskLister lister = lister("echo Headings\n[ \"$LC_ALL\" = C ] || exit 1\n"
                + "[ \"$1\" = -i ] && used=30 || used=70\necho \"/dev/vda 4 $used 30 50% /\"\n");
        MachineCapacities before = lister.newest();
        assertFalse(lister.isListing());
        lister.ask();
        await(() -> !lister.isListing());
        assertEquals(Optional.of(100.0), amount(lister, SPACE));
        assertEquals(Optional.of(60.0), amount(lister, INODES));
        assertFalse(before.hasNoDisks());
    }

    @Test
    void withoutACommandThereAreNoDisksToTellOf() throws Exception {
        DiskLister lister = new DiskLister(directory, List.of("/nonexistent/df"), () -> nanos);
        lister.ask();
        await(() -> !lister.isListing());
        assertFalse(lister.newest().hasNoDisks());
        assertEquals(Optional.empty(), amount(lister, SPACE));
    }

    @Test
    void aListingThatHangsIsGivenUpAndWhatWasListedBeforeStays() throws Exception {
        Path hang = directory.resolve("hang");
        Path started = directory.resolve("started");
        DiskLister lister = lister("[ -e " + hang + " ] && { : >" + started + "; exec sleep 1000; }\n"
                + "echo Headings\necho \"/dev/vda 4 70 30 50% /\"\n");
        lister.ask();
        await(() -> !lister.isListing());
        MachineCapacities listed = lister.newest();
        Files.createFile(hang);
        lister.ask();
        await(() -> Files.exists(started));
        assertTrue(lister.isListing());
        nanos += DiskLister.DEADLINE.toNanos();
        assertFalse(lister.isListing());
        assertSame(listed, lister.newest());
        Files.delete(hang);
        // the one that was killed is gone some time
        await(() -> {
            lister.ask();
            return lister.newest() != listed;
        });
        assertEquals(Optional.of(100.0), amount(lister, SPACE));
    }

    @Test
    void noneIsStartedBesideOneThatCannotBeKilled() throws Exception {
        Path pipe = directory.resolve("pipe");
        Path starts = directory.resolve("starts");
        // its output stays open after its end, in hands that the kill does not reach
        DiskLister lister = lister("mkfifo " + pipe + "\ncat " + pipe + " &\necho >>" + starts + "\nwait\n");
        lister.ask();
        await(() -> fileHasLines(starts, 1));
        nanos += DiskLister.DEADLINE.toNanos();
        assertFalse(lister.isListing());
        for (int i = 0; i < 10; i++) {
            lister.ask();
            Thread.sleep(5);
        }
        assertEquals(1, Files.readAllLines(starts).size());
        Files.writeString(pipe, "over\n");
        await(() -> {
            lister.ask();
            return fileHasLines(starts, 2);
        });
        nanos += DiskLister.DEADLINE.toNanos();
        assertFalse(lister.isListing());
        Files.writeString(pipe, "over\n");
    }

    private static boolean fileHasLines(Path file, int count) {
        try {
            return Files.readAllLines(file).size() >= count;
        } catch (IOException e) {
            return false;
        }
    }
}
