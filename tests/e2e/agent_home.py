"""Homes for the agent, runs of it in the native driver, and the small file systems that torment it."""

import ctypes
import os
import re
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import unittest

sys.path[:0] = [os.path.dirname(os.path.abspath(__file__)), os.path.dirname(os.path.dirname(os.path.abspath(__file__)))]
import check_home  # noqa: E402
from suite import LONG, await_end, end_group, has_ended, often, wait_until  # noqa: E402, F401

PROJECT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BUILD = os.path.abspath(os.environ.get("LUMETRA_BUILD", os.path.join(PROJECT, "build", "debug")))
DRIVER = os.path.join(BUILD, "tests", "nativeDriver")
LIBRARY = os.path.join(BUILD, "libObrinagent.so")
PROCESSES_OF_A_SMALL_MACHINE = os.path.join(PROJECT, "tests", "fixtures", "census-small", "proc")

HEADING = "Filesystem     1K-blocks     Used Available Use% Mounted on\n"
INODE_HEADING = "Filesystem      Inodes  IUsed   IFree IUse% Mounted on\n"


# Mounts.

_libc = ctypes.CDLL(None, use_errno=True)
CLONE_NEWNS = 0x00020000
MS_RDONLY, MS_REMOUNT, MS_BIND, MS_REC, MS_PRIVATE = 1, 32, 4096, 16384, 1 << 18
MNT_DETACH = 2
_namespace = None


def mount(source, target, kind="", flags=0, options=""):
    """mount(2); the target may be bytes."""
    target = os.fsencode(target)
    if _libc.mount(os.fsencode(source), target, kind.encode(), flags, options.encode()) != 0:
        raise OSError(ctypes.get_errno(), "mount", target)


def umount(target):
    if _libc.umount2(os.fsencode(target), MNT_DETACH) != 0:
        raise OSError(ctypes.get_errno(), "umount", target)


def enter_mount_namespace():
    """Moves this process into a mount namespace of its own, once, so that no mount outlives it. None, or why not."""
    global _namespace
    if _namespace is None:
        if _libc.unshare(CLONE_NEWNS) != 0:
            _namespace = "no right to make a mount namespace"
        else:
            try:
                mount("none", "/", "", MS_REC | MS_PRIVATE)
                _namespace = ""
            except OSError as reason:
                _namespace = f"mounts cannot be made private: {reason}"
    return _namespace or None


def needs_mounts(test):
    """Skips a test, saying so, where mounts are not allowed."""

    def wrapper(self):
        reason = enter_mount_namespace()
        if reason:
            self.skipTest(reason)
        test(self)

    wrapper.__name__ = test.__name__
    wrapper.__doc__ = test.__doc__
    return wrapper


def is_sanitized():
    """Whether the driver was built with a sanitizer."""
    with open(DRIVER, "rb") as file:
        text = file.read()
    return b"__asan_init" in text or b"__tsan_init" in text


def needs_tool(name):
    return unittest.skipUnless(shutil.which(name), f"{name} is not installed")


# Homes.


def declaration(name, instance="_Total", counter=None, display=None, window="-1.", limit=0.0, method=1, marker="none"):
    counter = counter or name
    return (f"BeginResourceInput\n\tFindObject ({name})\n\tFindInstance ({instance})\n\tFindCounter ({counter})\n"
            f"\tWindowSize {window}\n\tNameIs ({display or counter})\n\tAnalyticalMethod {method}\n"
            f"\tUpperLimitAbs {limit:f}\n\tUpperLimitCalc 0.000000\n\tLowerLimitAbs 0.000000\n"
            f"\tLowerLimitCalc 0.000000\n\tCulpritMarker ({marker})\nEndResourceInput\n\n")


PROCESSES = declaration("PercentProcessesUsed")
DESCRIPTORS = declaration("PercentFileDescriptorsUsed")
SWAP = declaration("PercentSwapSpaceUsed")
DISK_SPACE = declaration("LogicalDisk", "*", "PercentFreeSpaceUsed")
DISK_INODES = declaration("LogicalDisk", "*", "PercentFreeInodesUsed")
FEW = (PROCESSES, DESCRIPTORS)
ALL = (PROCESSES, SWAP, DESCRIPTORS, DISK_SPACE, DISK_INODES)


def declarations_text(inputs):
    return "BeginResourceDeclaration\n\n" + "".join(inputs) + "EndResourceDeclaration\n"


class Home:
    """A fresh home directory with its five directories, a configuration and declarations."""

    def __init__(self, inputs=FEW, period=100, directory=None, at="/tmp", **config):
        self.path = directory or tempfile.mkdtemp(prefix="lumetra-home-", dir=at)
        for name in ("bin", "log", "tempdata", "data", "config"):
            os.makedirs(os.path.join(self.path, name), exist_ok=True)
        self.configure(period=period, **config)
        self.declare(inputs)
        self.layout = check_home.Layout(self.path)

    def at(self, *names):
        return os.path.join(self.path, *names)

    def configure(self, period=100, home="../data/", archive="archive.txt", scratch="../data/scratch.txt",
                  analysis="../log/analysis.log", resources="../config/resources.txt", minimum=0, maximum=1, megabytes=50,
                  tail=("0", "0")):
        words = [home, archive, scratch, analysis, resources, period, minimum, maximum, megabytes, *tail]
        self.write_config("\n".join(str(word) for word in words) + "\n")

    def write_config(self, text):
        write(self.at("config", "AutoConfig.ini"), text)

    def declare(self, inputs):
        write(self.at("config", "resources.txt"), declarations_text(inputs))

    def stub_df(self, space, inodes=None, before=""):
        """Puts a df first in the agent's PATH that prints these rows; `before` is shell text that runs first."""
        os.makedirs(self.at("stub"), exist_ok=True)
        self.stub_script(f"#!/bin/sh\n{before}\n"
                         f"if [ \"$1\" = -i ]; then {self.printing('inodes', space if inodes is None else inodes)}; exit; fi\n"
                         f"{self.printing('space', space)}\n")

    def printing(self, name, text):
        """Shell words that print a text: those of the shell itself where that is sure to keep every character."""
        if re.fullmatch(r"[\n -~]{,20000}", text):
            return "printf %s " + shlex.quote(text)
        write(self.at("stub", name), text)
        return f"exec cat '{self.at('stub', name)}'"

    def stub_script(self, script):
        os.makedirs(self.at("stub"), exist_ok=True)
        path = self.at("stub", "df")
        write(path + ".next", script)
        os.chmod(path + ".next", 0o755)
        os.rename(path + ".next", path)

    def archive_lines(self):
        """Whole archive lines as (time, {rid: value text})."""
        lines = []
        for line in (check_home.content(self.layout.archive) or b"").decode("latin-1").split("\n")[:-1]:
            words = line.split()
            lines.append((int(words[0]), dict(zip((int(w) for w in words[1::3]), words[3::3]))))
        return lines

    def numbers(self):
        """{(object, instance, counter, identifier): rid} of the scratch pad."""
        records = check_home.parse_scratch_pad(check_home.content(self.layout.scratch_pad) or b"")
        return {tuple(part.decode("latin-1") if isinstance(part, bytes) else part for part in name[1:]): rid
                for name, rid in records}

    def number_of(self, mount_point, counter="PercentFreeSpaceUsed"):
        """The identifier of the disk mounted there; None when it has none."""
        for (_, instance, its_counter, identifier), rid in self.numbers().items():
            if identifier == -2 and its_counter == counter and instance.partition(" ")[2] == mount_point:
                return rid
        return None

    def log(self):
        """The debug log with its backup in front."""
        texts = [check_home.content(self.layout.log + end) or b"" for end in (".bak", "")]
        return b"".join(texts).decode("latin-1")

    def snapshot(self):
        return check_home.snapshot(self.layout)

    def environment(self, **more):
        environment = dict(os.environ, **more)
        if os.path.exists(self.at("stub")):
            environment["PATH"] = self.at("stub") + ":" + environment["PATH"]
        return environment

    def remove(self):
        shutil.rmtree(self.path, ignore_errors=True)


def write(path, text):
    with open(path, "wb") as file:
        file.write(text.encode("latin-1") if isinstance(text, str) else text)


# Runs.


class Result:
    """What the driver told."""

    def __init__(self, output, status):
        self.output = output
        self.status = status
        self.events, self.levels, self.references, self.misuses = [], [], [], []
        self.stops, self.ended, self.pauses, self.sleeps = [], [], [], []
        self.limited = False
        for line in output.split("\n"):
            fields = line.split("\t")
            if fields[0] == "event":
                self.events.append(tuple(fields[1:]))
            elif fields[0] in ("stop", "ended", "pause", "sleep"):
                {"stop": self.stops, "ended": self.ended, "pause": self.pauses, "sleep": self.sleeps}[fields[0]].append(
                    int(fields[1]))
            elif fields[0] == "level":
                self.levels.append(tuple(int(field) for field in fields[1:]))
            elif fields[0] == "references":
                self.references.append(tuple(int(field) for field in fields[1:]))
            elif fields[0] == "misuse":
                self.misuses.append(line)
            elif fields[0] == "limit":
                self.limited = True

    def fatal(self):
        """Texts of the fatal events in order."""
        return [event[1] for event in self.events if event[0] == "fatal"]


class Running:
    """The driver at work, in a process group of its own. Its clock is "turned" (the agent's time goes by at once when it
    pauses or sleeps, and otherwise stands), "held" (sleeps, too, last until the clock is turned) or "real". With a turned clock
    and no number of cycles it rests for a moment after each, unless it is "hurried": a test that gets no processor for a
    second would find the disk full and the log turned over. The processes that it finds are few, whatever runs on this
    machine."""

    CLOCKS = {"real": (), "turned": ("--turned-clock",), "hurried": ("--turned-clock",), "held": ("--turned-clock", "--hold-sleeps")}

    def __init__(self, home, *options, prefix=(), clock="turned", environment=None, refuse=True, preexec=None):
        self.home = home
        driver, processes = DRIVER, PROCESSES_OF_A_SMALL_MACHINE
        if preexec:  # another user may not be let into the checkout
            driver, processes = home.at("nativeDriver"), home.at("processes")
            shutil.copy(DRIVER, driver)
            os.chmod(driver, 0o755)
            shutil.copytree(PROCESSES_OF_A_SMALL_MACHINE, processes, symlinks=True, dirs_exist_ok=True)
        command = [*prefix, driver, "--bin", home.at("bin"), "--processes", processes, *self.CLOCKS[clock]]
        if clock == "turned" and "--cycles" not in options:
            command += ["--rest", "2"]
        if refuse:
            command += ["--behaviour", "sendEvent=refuse"]
        command += [str(option) for option in options]
        environment = dict(environment or home.environment())
        if "strace" in command[0]:  # a leak search needs the same system calls
            environment["ASAN_OPTIONS"] = environment.get("ASAN_OPTIONS", "") + ":detect_leaks=0"
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                        env=environment, start_new_session=True, preexec_fn=preexec)
        self.told = []  # through a pipe: a file would feel the limits that a test sets
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()

    @property
    def pid(self):
        return self.process.pid

    def stop(self):
        """A stop request (only without a prefix that stays in front of the driver)."""
        stops = self.output().count("stop\t")
        self.process.send_signal(signal.SIGUSR1)
        self.until(lambda: self.output().count("stop\t") > stops or has_ended(self.process), "a stop")

    def until(self, condition, what):
        """Waits for something that the driver brings about."""
        def met():
            ended = has_ended(self.process)
            if condition():
                return True
            if ended:
                raise AssertionError(f"the driver ended before {what}; it told:\n" + self.output()[-3000:])
            return False

        wait_until(met, what=what)

    def grows(self, lines=3, begin=None):
        """Waits for further lines in the archive, and so for whole cycles; `begin` is how many there were."""
        begin = len(self.home.archive_lines()) if begin is None else begin
        self.until(lambda: len(self.home.archive_lines()) >= begin + lines, "an archive that grows")

    def turn(self, seconds):
        """Lets time go by for the agent."""
        self.obey("turn", seconds)

    def jump(self, seconds):
        """Moves the agent's time of day alone."""
        self.obey("jump", seconds)

    def obey(self, word, seconds):
        before = self.output().count("turned\n")
        self.process.stdin.write(f"{word} {seconds}\n".encode())
        self.process.stdin.flush()
        self.until(lambda: self.output().count("turned\n") > before, "a turned clock")

    def read(self):
        with self.process.stdout as stream:
            for block in iter(lambda: stream.read1(65536), b""):
                self.told.append(block)

    def output(self):
        return b"".join(self.told).decode("latin-1")

    def finish(self):
        ended = await_end(self.process)
        self.clean()
        if not ended:
            raise AssertionError("the driver did not end; it told:\n" + self.output()[-3000:])
        self.reader.join()
        return Result(self.output(), self.process.returncode)

    def clean(self):
        """Ends what a killed driver may have left in its group."""
        end_group(self.process)
        self.process.stdin.close()


def children_of(pid):
    """Process ids of the direct children."""
    found = []
    for name in os.listdir("/proc"):
        if name.isdigit():
            try:
                with open(f"/proc/{name}/stat", "rb") as file:
                    if int(file.read().rpartition(b")")[2].split()[1]) == pid:
                        found.append(int(name))
            except (OSError, IndexError):
                pass
    return found


@unittest.skipUnless(os.path.exists(DRIVER), f"{DRIVER} is not built")
class AgentTest(unittest.TestCase):
    """A test with a home. A home is checked by the checker at the end of each run that `run_agent` makes."""

    longMessage = True

    def home(self, *arguments, **options):
        home = Home(*arguments, **options)
        self.addCleanup(home.remove)
        return home

    def small_file_system(self, options="size=256k"):
        """A directory with a tmpfs of its own; gone with the test."""
        directory = tempfile.mkdtemp(prefix="lumetra-small-")
        self.addCleanup(shutil.rmtree, directory, ignore_errors=True)
        mount("tmpfs", directory, "tmpfs", 0, options)
        self.addCleanup(umount, directory)
        return directory

    def running(self, home, *options, **how):
        """A running agent that the test stops itself; ended with the test at the latest."""
        agent = Running(home, *options, **how)
        self.addCleanup(agent.clean)
        return agent

    def end(self, agent, **check):
        """Stops a running agent; all must be as after run_agent."""
        agent.stop()
        result = agent.finish()
        self.assert_ended_well(result)
        self.assert_in_order(agent.home, **check)
        return result

    def run_agent(self, home, *options, **how):
        """Runs the driver to its end; its environment must have been used rightly and all references given back."""
        check = {key: how.pop(key) for key in ("trimmed", "scratch_pad_lossy", "clock_jumped", "before",
                                               "expected_declarations") if key in how}
        if "before" not in check:
            check["before"] = home.snapshot()
        result = Running(home, *options, **how).finish()
        self.assert_ended_well(result)
        self.assert_in_order(home, **check)
        return result

    def assert_ended_well(self, result):
        self.assertEqual(result.status, 0, result.output[-3000:])
        self.assertEqual(result.misuses, [])
        self.assertFalse(result.limited, "the run had to be ended by its time limit")

    def assert_in_order(self, home, **how):
        self.assertEqual(check_home.check(home.layout, **how), [])

    def values_of(self, home, rid):
        return [values.get(rid) for _, values in home.archive_lines()]


def size(path):
    """A file's size in bytes, 0 when it is not there."""
    try:
        return os.path.getsize(path)
    except FileNotFoundError:
        return 0


def read(path):
    """A file's text; empty when it cannot be read."""
    return (check_home.content(path) or b"").decode("latin-1")
