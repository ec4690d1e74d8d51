package com.quorin.sysmgt.tavl.LumetraAgent.doctor;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.quorin.sysmgt.tavl.LumetraAgent.NativeLibrary;
import com.quorin.sysmgt.tavl.LumetraAgent.check.LibraryCheck;
import java.io.IOException;
import java.net.InetAddress;
import java.net.ServerSocket;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.PosixFilePermissions;
import java.util.Arrays;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.concurrent.CountDownLatch;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Each finding on a made-up machine, which is in order but for what the test puts there. */
class DoctorTest {

    private static final String STATUS = "Name:\tjava\nUid:\t1000\t1000\t1000\t1000\nThreads:\t40\n"
            + "CapEff:\t0000000000000004\n";
    private static final String LIMITS = "Limit                     Soft Limit           Hard Limit           Units\n"
            + "Max processes             5000                 5000                 processes \n"
            + "Max open files            4096                 4096                 files     \n";
    private static final String ROOT_MOUNT = "22 1 254:0 / / rw,relatime - ext4 /dev/vda rw\n";
    private static final String PROC_MOUNT = "23 22 0:5 / /proc rw,nosuid - proc proc rw\n";

    @TempDir
    private Path temporary;
    private Path root;
    private Path home;
    /** By the command's first word, or by all of its words. */
    private final Map<String, Commands.Outcome> answers = new HashMap<>();
    private Machine machine;

    @BeforeAll
    static void loadTheLibrary() throws NativeLibrary.Unavailable {
        LibraryCheck.load();
    }

    @BeforeEach
    void prepare() throws IOException {
        root = temporary.resolve("root");
        home = temporary.toRealPath().resolve("home");
        for (String name : List.of("bin", "log", "tempdata", "data", "config")) {
            Files.createDirectories(home.resolve(name));
        }
        Files.setPosixFilePermissions(home, PosixFilePermissions.fromString("rwxr-x---"));
        copy("base.ini", "AutoConfig.ini");
        copy("base.txt", "resources.txt");
        put("proc/sys/fs/file-nr", "1000\t0\t100000\n");
        put("proc/meminfo", "MemTotal: 100 kB\nSwapTotal:       2097148 kB\n");
        put("proc/self/mountinfo", ROOT_MOUNT + PROC_MOUNT);
        put("proc/self/status", STATUS);
        put("proc/self/limits", LIMITS);
        put("proc/self/cgroup", "0::/agents/one\n");
        put("proc/1/environ", "HOME=/\0");
        put("proc/locks", "1: FLOCK  ADVISORY  WRITE 17 00:16:1234 0 EOF\n");
        answer("stat", Commands.End.DONE, "1000000 4096 500 1000");
        answer("df", Commands.End.DONE, "");
        answer("timedatectl", Commands.End.DONE, "yes");
        machine = new Machine(root, (patience, reads, words) -> answers.getOrDefault(String.join(" ", words),
                answers.get(words[0])));
    }

    private void copy(String resource, String name) throws IOException {
        try (var in = DoctorTest.class.getResourceAsStream("/check/" + resource)) {
            Files.write(home.resolve("config").resolve(name), in.readAllBytes());
        }
    }

    private void put(String path, String text) throws IOException {
        Path file = root.resolve(path);
        Files.createDirectories(file.getParent());
        Files.writeString(file, text);
    }

    private void answer(String command, Commands.End end, String output) {
        answers.put(command, new Commands.Outcome(end, output));
    }

    private List<Symptom> examine(int port) {
        return Doctor.examine(machine, home, home.resolve("config/AutoConfig.ini"), port);
    }

    private Symptom found(Subject subject) {
        List<Symptom> found = examine(0).stream().filter(symptom -> symptom.subject() == subject).toList();
        assertEquals(1, found.size(), subject.id());
        return found.get(0);
    }

    /** The finding about a subject has this severity and says this, and the others are as they were. */
    private void assertFound(Subject subject, Severity severity, String what) {
        Symptom symptom = found(subject);
        assertEquals(severity, symptom.severity(), symptom.what());
        assertTrue(symptom.what().contains(what), symptom.what());
        if (severity != Severity.OK) {
            assertNotNull(symptom.advice());
        }
        for (Symptom other : examine(0)) {
            assertTrue(other.subject() == subject || other.severity() == Severity.OK, other.toString());
        }
    }

    @Test
    void aMachineInOrderHasNothingButGoodToTell() {
        List<Symptom> found = examine(0);
        assertEquals(List.of(), found.stream().filter(symptom -> symptom.severity() != Severity.OK).toList());
        assertEquals(Arrays.stream(Subject.values()).filter(subject -> subject != Subject.PORT).toList(),
                found.stream().map(Symptom::subject).toList());
    }

    @Test
    void theWorstComesFirst() throws IOException {
        put("proc/sys/fs/file-nr", "1 0 9223372036854775807");
        answer("df", Commands.End.MISSING, "");
        answer("timedatectl", Commands.End.DONE, "no");
        List<Symptom> found = examine(0);
        assertEquals(List.of(Subject.DF, Subject.CLOCK, Subject.DESCRIPTORS, Subject.CONTAINER),
                found.subList(0, 4).stream().map(Symptom::subject).toList());
    }

    @Test
    void whatHangsIsAskedAtTheSameTime() {
        Machine sound = machine;
        CountDownLatch asked = new CountDownLatch(3); // a file system, df, the home
        machine = new Machine(root, (patience, reads, words) -> {
            String command = String.join(" ", words);
            if (List.of("stat -f -c %T -- /", "df").contains(command) || command.startsWith("stat -L")) {
                asked.countDown();
                try {
                    asked.await();
                } catch (InterruptedException e) {
                    throw new IllegalStateException(e);
                }
                return new Commands.Outcome(Commands.End.HANGS, "");
            }
            return sound.commands().run(patience, reads, words);
        });
        assertEquals(List.of(Subject.MOUNTS, Subject.DF, Subject.HOME),
                examine(0).subList(0, 3).stream().map(Symptom::subject).toList());
    }

    @Test
    void aMaximumOfDescriptorsThatIsNone() throws IOException {
        put("proc/sys/fs/file-nr", "1 0 9223372036854775807\n");
        assertFound(Subject.DESCRIPTORS, Severity.NOTICE, "9223372036854775807, which is none");
        put("proc/sys/fs/file-nr", "1 0\n");
        assertFound(Subject.DESCRIPTORS, Severity.WARNING, "cannot be read");
    }

    @Test
    void noSwapSpace() throws IOException {
        put("proc/meminfo", "SwapTotal:             0 kB\n");
        assertFound(Subject.SWAP, Severity.NOTICE, "there is no swap space");
        put("proc/meminfo", "");
        assertFound(Subject.SWAP, Severity.WARNING, "cannot be read");
    }

    @Test
    void hiddenProcesses() throws IOException {
        for (String option : List.of("hidepid=1", "hidepid=2", "hidepid=invisible", "hidepid=ptraceable")) {
            put("proc/self/mountinfo", ROOT_MOUNT + PROC_MOUNT.replace("proc rw\n", "proc rw," + option + "\n"));
            assertFound(Subject.PROCESSES, Severity.WARNING, "mounted with " + option);
        }
        put("proc/self/mountinfo", ROOT_MOUNT + PROC_MOUNT.replace("proc rw\n", "proc rw,hidepid=0\n"));
        assertFound(Subject.PROCESSES, Severity.OK, "");
    }

    @Test
    void noRightToOthersDescriptors() throws IOException {
        put("proc/self/status", STATUS.replace("0004\n", "0000\n"));
        assertFound(Subject.RIGHTS, Severity.NOTICE, "an agent of this user cannot count");
        put("proc/self/status", STATUS.replace("0004\n", "0002\n"));
        assertFound(Subject.RIGHTS, Severity.OK, "");
    }

    @Test
    void aFileSystemThatHangsIsNamedAndTheOthersAreAskedAllTheSame() throws IOException {
        put("proc/self/mountinfo", ROOT_MOUNT + PROC_MOUNT + "24 22 0:9 / /mnt/far\\040away rw - nfs s:/x rw\n"
                + "25 22 0:9 / /auto rw - autofs x rw\n");
        answer("stat -f -c %T -- /auto", Commands.End.HANGS, "");
        assertFound(Subject.MOUNTS, Severity.OK, "all 3 file systems");
        answer("stat -f -c %T -- /mnt/far away", Commands.End.HANGS, "");
        assertFound(Subject.MOUNTS, Severity.PROBLEM, "a file system does not answer within 10 s: /mnt/far away");
        answer("stat -f -c %T -- /proc", Commands.End.HANGS, "");
        assertFound(Subject.MOUNTS, Severity.PROBLEM, "2 file systems do not answer within 10 s: /mnt/far away, /proc");
    }

    @Test
    void dfThatIsMissingHangsOrFails() {
        answer("df", Commands.End.MISSING, "");
        assertFound(Subject.DF, Severity.PROBLEM, "there is no df");
        answer("df", Commands.End.HANGS, "");
        assertFound(Subject.DF, Severity.PROBLEM, "df does not end within 10 s");
        answer("df", Commands.End.FAILED, "");
        assertFound(Subject.DF, Severity.WARNING, "df ends with an error");
    }

    @Test
    void aClockThatRunsFreeAndOneOfWhichNothingIsKnown() {
        answer("timedatectl", Commands.End.DONE, "no");
        assertFound(Subject.CLOCK, Severity.WARNING, "the clock is not synchronised");
        for (Commands.End end : List.of(Commands.End.MISSING, Commands.End.FAILED, Commands.End.HANGS)) {
            answer("timedatectl", end, "");
            assertFound(Subject.CLOCK, Severity.NOTICE, "cannot be told");
        }
    }

    @Test
    void aContainer() throws IOException {
        put("proc/1/environ", "HOME=/\0container=lxc\0");
        assertFound(Subject.CONTAINER, Severity.NOTICE, "this is a container (lxc)");
        put("run/.containerenv", "");
        assertFound(Subject.CONTAINER, Severity.NOTICE, "(podman)");
        put(".dockerenv", "");
        assertFound(Subject.CONTAINER, Severity.NOTICE, "(docker)");
        put("run/systemd/container", "systemd-nspawn\n");
        assertFound(Subject.CONTAINER, Severity.NOTICE, "(systemd-nspawn)");
    }

    @Test
    void aHomeThatIsNotThere() throws IOException {
        home = temporary.resolve("nowhere");
        Symptom symptom = found(Subject.HOME);
        assertEquals(Severity.PROBLEM, symptom.severity());
        assertEquals("there is no home " + home, symptom.what());
        assertTrue(examine(0).stream().noneMatch(other -> other.subject() == Subject.SPACE));
    }

    @Test
    void aHomeThatDoesNotAnswerIsLeftAlone() {
        answers.put("stat -L -- " + home + "/config/AutoConfig.ini " + home + " " + home + "/bin " + home + "/config "
                + home + "/data " + home + "/log " + home + "/tempdata", new Commands.Outcome(Commands.End.HANGS, ""));
        assertFound(Subject.HOME, Severity.PROBLEM, "does not answer");
        assertEquals(Subject.CLOCK, examine(0).get(examine(0).size() - 1).subject());
    }

    @Test
    void aHomeOnAReadOnlyFileSystem() throws IOException {
        put("proc/self/mountinfo", ROOT_MOUNT + PROC_MOUNT + "24 22 0:9 / " + home + "/data rw - ext4 /dev/b ro\n");
        assertFound(Subject.HOME, Severity.PROBLEM, home + "/data lies on a file system that is mounted read-only");
        put("proc/self/mountinfo", ROOT_MOUNT + PROC_MOUNT + "24 22 0:9 / " + home + "/dat ro - ext4 /dev/b rw\n");
        assertFound(Subject.HOME, Severity.OK, "");
    }

    @Test
    void aDiskOfTheHomeThatIsNearlyFull() {
        String data = "stat -f -c %a %S %d %c -- " + home + "/data";
        answer(data, Commands.End.DONE, "2000 4096 500 1000");
        assertFound(Subject.SPACE, Severity.WARNING, home + "/data has only 7.8 MiB left");
        answer(data, Commands.End.DONE, "20 4096 500 1000");
        assertFound(Subject.SPACE, Severity.PROBLEM, home + "/data has only 80.0 KiB left");
        answer(data, Commands.End.DONE, "1000000 4096 3 1000");
        assertFound(Subject.SPACE, Severity.PROBLEM, "has no inodes left");
        answer(data, Commands.End.DONE, "1000000 4096 0 0");
        assertFound(Subject.SPACE, Severity.OK, "");
    }

    @Test
    void aHomeThatOthersCanWrite() throws IOException {
        Files.setPosixFilePermissions(home.resolve("config"), PosixFilePermissions.fromString("rwxr-xrwx"));
        assertFound(Subject.OWNER, Severity.WARNING, home + "/config can be written by others");
        Files.setPosixFilePermissions(home.resolve("config"), PosixFilePermissions.fromString("rwxr-xr-x"));
        Files.setPosixFilePermissions(home.resolve("config/AutoConfig.ini"),
                PosixFilePermissions.fromString("rw-rw-r--"));
        assertFound(Subject.OWNER, Severity.WARNING, home + "/config/AutoConfig.ini can be written by others");
    }

    @Test
    void aConfigurationThatTheCheckComplainsAbout() throws IOException {
        Path file = home.resolve("config/AutoConfig.ini");
        String good = Files.readString(file);
        Files.writeString(file, good.replace("10000", "0"));
        assertFound(Subject.CONFIGURATION, Severity.WARNING, "lumetra check has 0 errors and 1 warning to tell");
        Files.writeString(file, "");
        assertFound(Subject.CONFIGURATION, Severity.PROBLEM, "lumetra check has 1 error and 0 warnings to tell");
    }

    @Test
    void anotherAgentInTheHomeWhoseRightsAndLimitsCount() throws IOException {
        Path lock = Files.createFile(home.resolve("bin/agent.lock"));
        long device = (long) Files.getAttribute(lock, "unix:dev");
        String place = String.format("%02x:%02x:%d", device >> 8 & 0xfff, device & 0xff | device >> 12 & 0xfff00,
                (long) Files.getAttribute(lock, "unix:ino"));
        put("proc/locks", "1: POSIX  ADVISORY  WRITE 4711 " + place + " 0 EOF\n");
        put("proc/4711/status", STATUS);
        put("proc/4711/limits", LIMITS);
        put("proc/4711/cgroup", "0::/user.slice\n");
        assertFound(Subject.LOCK, Severity.NOTICE, "an agent works in the home, process 4711");
        put("proc/4711/cgroup", "0::/system.slice/lumetra-agent.service\n");
        assertFound(Subject.LOCK, Severity.OK, "the service works in the home, process 4711");
        put("proc/4711/limits", LIMITS.replace("4096 ", "100  "));
        assertFound(Subject.OPEN_FILES, Severity.WARNING, "the agent may open 100 files, which is little");
        put("proc/locks", "1: POSIX  ADVISORY  WRITE 4711 " + place + "1 0 EOF\n");
        assertFound(Subject.LOCK, Severity.OK, "no agent works in the home");
    }

    @Test
    void aPortThatAnotherProgramHas() throws IOException {
        try (ServerSocket other = new ServerSocket(0, 1, InetAddress.getLoopbackAddress())) {
            Thread answering = new Thread(() -> closeEach(other));
            answering.setDaemon(true);
            answering.start();
            Symptom port = examine(other.getLocalPort()).get(0);
            assertEquals(Subject.PORT, port.subject());
            assertEquals(Severity.WARNING, port.severity());
            assertTrue(port.what().startsWith("another program than an agent has port"), port.what());
        }
    }

    private static void closeEach(ServerSocket server) {
        try {
            while (true) {
                server.accept().close();
            }
        } catch (IOException e) {
            // the test is over
        }
    }

    @Test
    void limitsThatAreTooLowForAnAgent() throws IOException {
        put("proc/self/limits", LIMITS.replace("4096 ", "30   "));
        assertFound(Subject.OPEN_FILES, Severity.PROBLEM, "an agent of this user may open 30 files: too little for it");
        put("proc/self/limits", LIMITS.replace("4096 ", "unlimited "));
        assertFound(Subject.OPEN_FILES, Severity.OK, "any number of files");
        put("proc/self/limits", LIMITS.replace("5000 ", "110  "));
        put("proc/12/status", STATUS);
        assertFound(Subject.THREADS, Severity.OK, "may have 70 threads");
        put("proc/13/status", STATUS.replace("40\n", "20\n"));
        assertFound(Subject.THREADS, Severity.WARNING, "may have 50 threads");
        put("proc/14/status", STATUS.replace("1000\t1000", "1001\t1001"));
        assertFound(Subject.THREADS, Severity.WARNING, "may have 50 threads");
        put("proc/self/limits", LIMITS);
        put("sys/fs/cgroup/agents/pids.max", "130\n");
        put("sys/fs/cgroup/agents/pids.current", "100\n");
        put("sys/fs/cgroup/agents/one/pids.max", "max\n");
        assertFound(Subject.THREADS, Severity.PROBLEM, "may have 30 threads: too little");
        put("sys/fs/cgroup/agents/pids.max", "max\n");
        put("sys/fs/cgroup/agents/one/memory.max", "200000000\n");
        assertFound(Subject.MEMORY, Severity.WARNING, "may use 190.7 MiB memory");
        put("sys/fs/cgroup/agents/memory.max", "100000000\n");
        assertFound(Subject.MEMORY, Severity.PROBLEM, "may use 95.4 MiB memory: too little");
    }

    @Test
    void limitsOfTheOlderKindOfControlGroups() throws IOException {
        put("proc/self/cgroup", "5:pids:/a\n4:cpu,memory:/b\n0::/\n");
        put("sys/fs/cgroup/memory/b/memory.limit_in_bytes", "9223372036854771712\n");
        assertFound(Subject.MEMORY, Severity.OK, "all the memory");
        put("sys/fs/cgroup/memory/b/memory.limit_in_bytes", "100000000\n");
        assertFound(Subject.MEMORY, Severity.PROBLEM, "95.4 MiB");
        put("sys/fs/cgroup/memory/b/memory.limit_in_bytes", "9223372036854771712\n");
        put("sys/fs/cgroup/pids/a/pids.max", "50\n");
        put("sys/fs/cgroup/pids/a/pids.current", "1\n");
        assertFound(Subject.THREADS, Severity.WARNING, "49 threads");
    }

    @Test
    void whatAMachineNamesIsShownHarmless() throws IOException {
        put("proc/1/environ", "container=\u001b[31m\0");
        assertFound(Subject.CONTAINER, Severity.NOTICE, "(\\x1b[31m)");
    }
}
