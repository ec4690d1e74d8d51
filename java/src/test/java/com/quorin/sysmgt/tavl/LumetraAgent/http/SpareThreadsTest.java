package com.quorin.sysmgt.tavl.LumetraAgent.http;

import static org.junit.jupiter.api.Assertions.assertEquals;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import org.junit.jupiter.api.Test;

class SpareThreadsTest {

    private static long spare() {
        return Thread.getAllStackTraces().keySet().stream()
                .filter(thread -> thread.getName().startsWith("lumetra-spare-")).count();
    }

    /** The process's threads as the kernel counts them. */
    private static List<String> tasks() throws IOException {
        List<String> names = new ArrayList<>();
        try (var tasks = Files.newDirectoryStream(Path.of("/proc/self/task"))) {
            for (Path task : tasks) {
                names.add(nameOf(task));
            }
        }
        return names;
    }

    private static String nameOf(Path task) {
        try {
            return Files.readString(task.resolve("comm")).strip();
        } catch (IOException e) { // one that has ended meanwhile
            return "";
        }
    }

    @Test
    void theyAreThereUntilTheirRelease() {
        SpareThreads threads = SpareThreads.hold(3);
        assertEquals(3, spare());
        threads.release();
        assertEquals(0, spare());
    }

    @Test
    void whatIsReleasedIsNoLongerCountedByTheKernelEither() throws IOException {
        for (int round = 0; round < 100; round++) {
            SpareThreads.hold(4).release();
            long left = tasks().stream().filter(name -> name.startsWith("lumetra-spare")).count();
            assertEquals(0, left, "round " + round);
        }
    }
}
