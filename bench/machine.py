"""A machine to measure on: namespaces of its own with so many processes and mounts, the agent's cycle on it, and the programs that
it is compared with. Times are seconds of processor time."""

import contextlib
import ctypes
import fcntl
import http.client
import os
import pathlib
import pickle
import resource
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
import traceback

ROOT = pathlib.Path(__file__).resolve().parents[1]
BUILD = ROOT / "build" / "bench"
CYCLE_BENCH = BUILD / "bench" / "cycleBench"
sys.path[:0] = [str(ROOT / "tests"), str(ROOT / "tests" / "e2e")]
from agent_home import ALL, Home, mount  # noqa: E402

CLONE_NEWNS, CLONE_NEWPID, CLONE_NEWNET = 0x00020000, 0x20000000, 0x40000000
MS_REC, MS_PRIVATE, MNT_DETACH = 16384, 1 << 18, 2
PERIOD = 10  # seconds, as it is shipped
_libc = ctypes.CDLL(None, use_errno=True)


# Namespaces.


def _unshare(flags):
    if _libc.unshare(flags) != 0:
        raise OSError(ctypes.get_errno(), "no right to make namespaces")


def _bring_loopback_up():
    SIOCGIFFLAGS, SIOCSIFFLAGS, IFF_UP = 0x8913, 0x8914, 1
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as handle:
        request = fcntl.ioctl(handle, SIOCGIFFLAGS, struct.pack("16sh14x", b"lo", 0))
        flags = struct.unpack("16sh14x", request)[1]
        fcntl.ioctl(handle, SIOCSIFFLAGS, struct.pack("16sh14x", b"lo", flags | IFF_UP))


def _answer(pipe, work, arguments):
    try:
        result = True, work(*arguments)
    except Exception:  # it is told where it can be seen
        result = False, traceback.format_exc()
    with os.fdopen(pipe, "wb") as file:
        pickle.dump(result, file)


def _first_process(pipe, work, arguments):
    """Of a namespace: whatever it leaves running ends with it."""
    mount("none", "/", "", MS_REC | MS_PRIVATE)
    mount("proc", "/proc", "proc")
    _bring_loopback_up()
    _answer(pipe, work, arguments)


def _forked(work, *arguments):
    """Runs it in a child that ends with it. The child's number."""
    sys.stdout.flush()
    child = os.fork()
    if child == 0:
        status = 1
        try:
            work(*arguments)
            status = 0
        except Exception:
            traceback.print_exc()
        finally:
            os._exit(status)
    return child


def _enter(pipe, work, arguments):
    _unshare(CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWNET)
    os.waitpid(_forked(_first_process, pipe, work, arguments), 0)


def alone(work, *arguments):
    """The result of a function that runs with mounts, processes and a network that nobody else sees and that go with it."""
    read, write = os.pipe()
    child = _forked(_enter, write, work, arguments)
    os.close(write)
    with os.fdopen(read, "rb") as file:
        answer = file.read()
    os.waitpid(child, 0)
    fine, result = pickle.loads(answer) if answer else (False, "a machine of its own could not be made")
    if not fine:
        raise RuntimeError(result)
    return result


def may_be_alone():
    try:
        return alone(lambda: True)
    except RuntimeError:
        return False


# What a program takes.


def used_by(pid):
    """Seconds of a running process, all its threads included."""
    return time.clock_gettime(~pid << 3 | 2)  # as clock_getcpuclockid(3) has it


def used_by_children_of(pid):
    """Of those that it has waited for."""
    with open(f"/proc/{pid}/stat") as file:
        fields = file.read().rpartition(")")[2].split()
    return sum(int(field) for field in fields[13:15]) / os.sysconf("SC_CLK_TCK")


def cost_of_running(*words):
    """Seconds of a command from start to end."""
    pid = os.posix_spawnp(words[0], words, os.environ, file_actions=[(os.POSIX_SPAWN_OPEN, 1, "/dev/null", os.O_WRONLY, 0)])
    _, status, usage = os.wait4(pid, 0)
    if status != 0:
        raise RuntimeError(f"{words[0]} failed with status {status}")
    return usage.ru_utime + usage.ru_stime


# Mounts and processes.


def mount_count():
    with open("/proc/mounts", "rb") as file:
        return file.read().count(b"\n")


def listed_disks():
    return subprocess.run(["df"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=False).stdout.count(b"\n") - 1


class Disks:
    """File systems below one directory, until the machine has so many mounts."""

    def __init__(self, count):
        self.path = tempfile.mkdtemp(prefix="lumetra-disks-")
        mount("disks", self.path, "tmpfs")
        for i in range(count - mount_count()):
            disk = f"{self.path}/{i}"
            os.mkdir(disk)
            mount(f"disk{i}", disk, "tmpfs", 0, "size=4k")

    def unmount_all(self):
        _libc.umount2(os.fsencode(self.path), MNT_DETACH)

    def close(self):
        self.unmount_all()
        os.rmdir(self.path)


@contextlib.contextmanager
def disks(count):
    made = Disks(count)
    try:
        yield made
    finally:
        made.close()


@contextlib.contextmanager
def crowd(processes, descriptors=5):
    with subprocess.Popen([CYCLE_BENCH, "crowd", str(processes), str(descriptors)], stdin=subprocess.PIPE,
                          stdout=subprocess.PIPE) as crowding:
        if crowding.stdout.readline() != b"ready\n":
            raise RuntimeError("the processes could not be made")
        yield
        crowding.stdin.close()


# The agent.


class Served:
    """A program that answers a line with a line."""

    def __init__(self, *arguments, directory=None):
        self.process = subprocess.Popen([CYCLE_BENCH, *map(str, arguments)], cwd=directory, stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, text=True)

    def ask(self, command):
        """{step: (own seconds, seconds of its children)}"""
        self.process.stdin.write(command + "\n")
        self.process.stdin.flush()
        answer = self.process.stdout.readline()
        if not answer:
            raise RuntimeError(f"cycleBench ended at {command}")
        words = answer.split()
        return {words[i]: (float(words[i + 1]), float(words[i + 2])) for i in range(0, len(words), 3)}

    def close(self):
        self.process.stdin.close()
        self.process.wait()
        self.process.stdout.close()


@contextlib.contextmanager
def agent(inputs=ALL, samples=300, forecast_hours=48, at=None):
    """The agent's cycle over a home of its own; `samples` are those of its rings."""
    window = samples * PERIOD / 3600 + 1e-6
    declared = [text.replace("WindowSize -1.", f"WindowSize {window:.7f}") for text in inputs]
    home = Home(declared, period=PERIOD * 1000, maximum=forecast_hours, at=at or tempfile.gettempdir())
    served = Served("cycles", directory=home.at("bin"))
    try:
        yield served
    finally:
        served.close()
        home.remove()


@contextlib.contextmanager
def trend_writer(at, resources, samples):
    folders = [tempfile.mkdtemp(prefix="lumetra-trends-", dir=at) for _ in range(2)]
    home = Home(at=at)
    served = Served("trendfiles", *folders, resources, samples, directory=home.at("bin"))
    try:
        yield served
    finally:
        served.close()
        home.remove()
        for folder in folders:
            shutil.rmtree(folder)


# The peers. Unpacked, not installed: installed they would be services of this machine.

NODE_EXPORTER = "prometheus-node-exporter", "usr/bin/prometheus-node-exporter"
COLLECTD = "collectd-core", "usr/sbin/collectd"


def unpacked(package):
    """The folder of a Debian package; None when it cannot be had."""
    folder = ROOT / "build" / "peers" / package
    if not folder.exists():
        with tempfile.TemporaryDirectory(dir=BUILD) as download:
            for command in (["apt-get", "download", package], ["sh", "-c", f"dpkg -x {package}_*.deb unpacked"]):
                if subprocess.run(command, cwd=download, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False).returncode:
                    return None
            folder.parent.mkdir(parents=True, exist_ok=True)
            os.rename(pathlib.Path(download) / "unpacked", folder)
    return folder


def program_of(package, path):
    folder = unpacked(package)
    if not folder:
        raise RuntimeError(f"{package} cannot be downloaded")
    return folder / path


class Exporter:
    def __init__(self, process, port):
        self.process = process
        self.port = port
        self.connection = http.client.HTTPConnection("127.0.0.1", port)
        self.scrape()

    def scrape(self):
        """The bytes of an answer, asked for as Prometheus does."""
        self.connection.request("GET", "/metrics", headers={"Accept-Encoding": "gzip", "Accept": "application/openmetrics-text"})
        return self.connection.getresponse().read()

    def plain_scrape(self):
        connection = http.client.HTTPConnection("127.0.0.1", self.port)
        connection.request("GET", "/metrics")
        return connection.getresponse().read()

    def used(self):
        return used_by(self.process.pid)

    def cost_of_scrape(self, times=1):
        before = self.used()
        for _ in range(times):
            self.scrape()
        return (self.used() - before) / times


def _wait_for(port, process):
    while True:
        with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", port)):
            return
        if process.poll() is not None:
            raise RuntimeError("the exporter ended")
        time.sleep(0.02)


@contextlib.contextmanager
def exporter(*collectors, port=9100):
    """A node exporter with these collectors alone; with those that it has by itself when none is named."""
    program = program_of(*NODE_EXPORTER)
    chosen = [f"--collector.{name}" for name in collectors]
    command = [program, f"--web.listen-address=127.0.0.1:{port}", *(["--collector.disable-defaults"] if chosen else []),
               *chosen]
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        _wait_for(port, process)
        yield Exporter(process, port)
    finally:
        process.send_signal(signal.SIGTERM)
        process.wait()


@contextlib.contextmanager
def collectd(*plugins):
    """A collectd that reads once a period and keeps what it reads in files. Its process id."""
    program = program_of(*COLLECTD)
    folder = program.parents[2]
    with tempfile.TemporaryDirectory() as base:
        lines = [f'BaseDir "{base}"', f'PIDFile "{base}/pid"', f'PluginDir "{folder}/usr/lib/collectd"', f"Interval {PERIOD}",
                 f'TypesDB "{folder}/usr/share/collectd/types.db"', *(f"LoadPlugin {name}" for name in (*plugins, "csv")),
                 "<Plugin df>", "ReportInodes true", "</Plugin>", "<Plugin csv>", f'DataDir "{base}"', "</Plugin>"]
        configuration = pathlib.Path(base, "collectd.conf")
        configuration.write_text("\n".join(lines) + "\n")
        process = subprocess.Popen([program, "-f", "-C", configuration], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            yield process.pid
            if process.poll() is not None:
                raise RuntimeError("collectd ended")
        finally:
            process.terminate()
            process.wait()
