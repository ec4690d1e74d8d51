"""The Debian package: built twice to the same bytes; installed, run, upgraded and purged on a copy of this machine that ends
with the tests."""

import atexit
import filecmp
import functools
import glob
import http.server
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import unittest
import urllib.request
import zipfile

import yaml

PROJECT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(PROJECT, "tests"))
sys.path.insert(0, os.path.join(PROJECT, "tests", "e2e"))
from service_manager import SELDOM, ServiceSocket  # noqa: E402
from suite import LONG, die_with_parent, free_port, long_only, remaining, some, wait_until  # noqa: E402

DEBIAN = os.path.join(PROJECT, "debian")
BUILD = os.environ.get("LUMETRA_PACKAGE_BUILD", os.path.join(PROJECT, "build", "release"))
HOME = "/var/lib/lumetra-agent"
LOGS = "/var/log/lumetra-agent"
TOOLS = ("unshare", "nsenter", "setpriv", "dpkg-deb", "apt-get", "systemd-sysusers", "systemd-tmpfiles")

# What a package manager and its triggers keep for themselves, and what systemd-analyze leaves behind.
OTHERS_FILES = re.compile(r"/var/(cache|log/apt|lib/apt|lib/dpkg/[^/]+-old$)|/etc/(\.pwd\.lock|[a-z]+-)$"
                          r"|/run/systemd(/systemd-units-load)?$")

# Calls that are refused, which the agent bears: its own files have its own owner anyhow.
BORNE = {"fchown"}

# Options of a unit that give the service mounts, processes or devices of its own to look at.
HIDING = re.compile(r"^(Protect\w+|Private\w+|ProcSubset|ReadOnlyPaths|ReadWritePaths|InaccessiblePaths|ExecPaths"
                    r"|NoExecPaths|BindPaths|BindReadOnlyPaths|TemporaryFileSystem|RootDirectory|RootImage|MountAPIVFS"
                    r"|MountFlags|DynamicUser|MountImages|ExtensionImages|NetworkNamespacePath|JoinsNamespaceOf)\s*=",
                    re.MULTILINE)


def build(output, *options):
    """Builds the package; the path of its file."""
    return output_of([os.path.join(PROJECT, "build-package"), "--output", output, "--build", BUILD, *options]).splitlines()[-1]


@functools.cache
def package():
    """The package of these sources, built once; the path of its file."""
    output = tempfile.mkdtemp(prefix="lumetra-debs-")
    atexit.register(shutil.rmtree, output, ignore_errors=True)
    return build(output)


def output_of(command, **more):
    """What a command printed that must succeed."""
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False, **more)
    if done.returncode != 0:
        raise AssertionError(f"{command} ended with {done.returncode}:\n{done.stdout}")
    return done.stdout


def with_version(package, version):
    """The same package as one of another version."""
    root = os.path.join(os.path.dirname(package), "other")
    subprocess.run(["dpkg-deb", "-R", package, root], check=True)
    control = os.path.join(root, "DEBIAN", "control")
    with open(control, encoding="utf-8") as file:
        text = file.read()
    with open(control, "w", encoding="utf-8") as file:
        file.write(re.sub(r"^Version: .*", f"Version: {version}", text, flags=re.MULTILINE))
    target = os.path.join(os.path.dirname(package), "other.deb")
    subprocess.run(["dpkg-deb", "-b", "-Znone", root, target], check=True, stdout=subprocess.DEVNULL)
    return target


def setting(text, name):
    """The value of an option in the text of a unit; None if it is not there."""
    found = re.search(rf"^{name}=(.*)$", text, re.MULTILINE)
    return found and found.group(1)


def packaged(name):
    """The text of a file of debian/."""
    with open(os.path.join(DEBIAN, name), encoding="utf-8") as file:
        return file.read()


def files_below(folder):
    """The paths of all files below a directory, relative to it."""
    return [os.path.relpath(os.path.join(where, name), folder) for where, _, names in os.walk(folder) for name in names]


def java_from(lowest):
    """The directory of an installed Java of this version or a newer one; None if there is none."""
    for candidate in sorted(glob.glob("/usr/lib/jvm/*")):
        release = os.path.join(candidate, "release")
        if os.path.exists(release):
            with open(release, encoding="utf-8") as file:
                version = re.search(r'^JAVA_VERSION="(\d+)', file.read(), re.MULTILINE)
            if version and int(version.group(1)) >= lowest:
                return candidate
    return None


class Machine:
    """A copy of this machine in a mount namespace of its own; what is changed in it lives in memory."""

    PREPARE = """set -e
        mount -t tmpfs layers "$1" && mkdir "$1/upper" "$1/work" "$1/root" "$1/host"
        [ -z "$2" ] || mount --rbind / "$1/host"
        mount -t overlay -o "lowerdir=/,upperdir=$1/upper,workdir=$1/work" overlay "$1/root"
        for name in proc sys dev; do mount --rbind /$name "$1/root/$name"; done
        mount -t tmpfs run "$1/root/run"
        mount -t tmpfs -o mode=1777 tmp "$1/root/tmp"
        [ -z "$2" ] || { mkdir "$1/root/host" && mount --move "$1/host" "$1/root/host"; }
        echo ready
        exec sleep infinity"""

    def __init__(self, host=None):
        """With the process id of a host, it is as a container is: it has that host's root at /host, and later mounts too."""
        self.folder = tempfile.mkdtemp(prefix="lumetra-package-")
        self.root = os.path.join(self.folder, "root")
        where = ("nsenter", "-m", "-t", str(host)) if host else ()
        self.keeper = subprocess.Popen(
            [*where, "unshare", "-m", "--propagation", "slave" if host else "private", "sh", "-c", self.PREPARE, "sh", self.folder,
             "host" if host else ""],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, preexec_fn=die_with_parent)
        self.trouble = self.keeper.stdout.readline().strip()
        self.ready = self.trouble == "ready"

    def end(self):
        """Ends the namespace and all that is in it."""
        self.keeper.kill()
        self.keeper.wait()
        self.keeper.stdout.close()
        os.rmdir(self.folder)

    def command(self, *words, prefix=(), **environment):
        """The command line that runs a command on the copy."""
        given = [f"{name}={value}" for name, value in environment.items()]
        return ["nsenter", "-m", "-t", str(self.keeper.pid), "chroot", self.root, "env", "-i",
                "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "DEBIAN_FRONTEND=noninteractive", *given, *prefix, *words]

    def run(self, *words, expected=0, **more):
        """Runs a command on the copy; what it printed."""
        done = subprocess.run(self.command(*words, **more), stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              stdin=subprocess.DEVNULL, timeout=remaining(), check=False)
        if expected is not None and done.returncode != expected:
            raise AssertionError(f"{words} ended with {done.returncode}:\n{done.stdout}")
        return done.stdout

    def write(self, path, text):
        """Writes a file of the copy."""
        subprocess.run(self.command("tee", path), input=text, text=True, stdout=subprocess.DEVNULL, check=True)

    def bring(self, path):
        """Copies a file of this machine to /tmp of the copy; its path there."""
        target = "/tmp/" + os.path.basename(path)
        with open(path, "rb") as file:
            subprocess.run(self.command("tee", target), stdin=file, stdout=subprocess.DEVNULL, check=True)
        return target

    def changes(self):
        """The files that the copy alone has, and those that it has no more. What a package could leave behind is among the
        first, what it could take away among the second; what else happens on the machine meanwhile is in neither."""
        find = ("find", os.path.join(self.folder, "upper"), "-mindepth", "1", "-printf", "%y /%P\\n")
        listed = subprocess.run(["nsenter", "-m", "-t", str(self.keeper.pid), *find], stdout=subprocess.PIPE, text=True,
                                check=True)
        kinds = {name: kind for kind, _, name in (line.partition(" ") for line in listed.stdout.splitlines())}
        added = {name for name, kind in kinds.items() if kind != "c" and not os.path.lexists(name)}
        taken = {name for name, kind in kinds.items() if kind == "c" and os.path.lexists(name)}
        added |= set(self.run("find", "/run", "-xdev").splitlines())  # it has a file system of its own
        return {name for name in added if self.counts(name)}, {name for name in taken if self.counts(name)}

    @staticmethod
    def counts(name):
        """Whether nobody but the package is responsible for it."""
        return not OTHERS_FILES.search(name) and not name.startswith("/var/lib/dpkg/info/lumetra")

    def count(self, path):
        """The number of lines of a file, 0 when there is none."""
        return len(self.run("sh", "-c", f"cat '{path}' 2>/dev/null || true").splitlines())


def as_service(unit, no_new_privileges=True):
    """What starts a command as systemd would for a unit: user and capabilities."""
    names = [name.lower().removeprefix("cap_") for name in (setting(unit, "AmbientCapabilities") or "").split()]
    added = "".join(f",+{name}" for name in names)
    words = ["setpriv", "--reuid=lumetra-agent", "--regid=lumetra-agent", "--clear-groups",
             f"--bounding-set=-all{added}", f"--inh-caps=-all{added}"]
    if names:
        words.append(f"--ambient-caps=-all{added}")
    if no_new_privileges:
        words.append("--no-new-privs")
    return (*words, "sh", "-c", f"umask {setting(unit, 'UMask') or '0027'}; exec \"$@\"", "sh")


class SameBytesTest(unittest.TestCase):
    """The same sources give the same package, whoever builds it, where and when."""

    # The surroundings of another builder: nothing of them may show.
    OTHERS = {"TZ": "Pacific/Kiritimati", "LC_ALL": "de_DE.UTF-8", "DPKG_DEB_THREADS_MAX": "1"}

    def sources(self, name):
        """A copy of the sources in a directory of another length and with other times."""
        folder = tempfile.mkdtemp(prefix=f"lumetra-{name}-")
        self.addCleanup(shutil.rmtree, folder, ignore_errors=True)
        copy = os.path.join(folder, "sources")
        shutil.copytree(PROJECT, copy, symlinks=True, copy_function=shutil.copy,
                        ignore=shutil.ignore_patterns("build", "var", ".git", "node_modules", "__pycache__"))
        for path in files_below(copy):
            os.utime(os.path.join(copy, path), (1e9, 1e9), follow_symlinks=False)
        return copy

    def packed_anew(self, jar, target):
        """The same jar as another build leaves it: later, and in the order of another file system."""
        with tempfile.TemporaryDirectory() as folder:
            with zipfile.ZipFile(jar) as archive:
                archive.extractall(folder)
            names = sorted(set(os.listdir(folder)) - {"META-INF"}, reverse=True)
            output_of([os.path.join(os.path.dirname(os.path.realpath(shutil.which("javac"))), "jar"), "--create", "--file", target,
                     "--manifest", os.path.join(folder, "META-INF", "MANIFEST.MF"),
                     *(word for name in names for word in ("-C", folder, name))])
        self.assertFalse(filecmp.cmp(jar, target, shallow=False))

    @long_only
    def test_it_is_packed_to_the_same_bytes_elsewhere(self):
        first, sources = package(), self.sources("elsewhere")
        self.assertFalse(os.path.exists(os.path.join(DEBIAN, "files")), "it was packed in the midst of its sources")
        other = os.path.join(sources, "build", "other")
        os.makedirs(os.path.join(other, "java"))
        shutil.copy(os.path.join(BUILD, "libObrinagent.so"), other)
        shutil.copy(os.path.join(BUILD, "java", "lumetra-completion"), os.path.join(other, "java"))
        self.packed_anew(os.path.join(BUILD, "java", "lumetra-agent.jar"), os.path.join(other, "java", "lumetra-agent.jar"))
        output_of(["dpkg-buildpackage", "--build=binary", "--no-sign", "--no-check-builddeps"], cwd=sources,
                env={**os.environ, **self.OTHERS, "LUMETRA_BUILD": other}, preexec_fn=lambda: os.umask(0o077))
        self.assert_same(first, os.path.join(os.path.dirname(sources), os.path.basename(first)))

    def test_the_library_does_not_know_where_it_was_built(self):
        package()
        with open(os.path.join(BUILD, "libObrinagent.so"), "rb") as file:
            library = file.read()
        self.assertGreater(library.find(b"samplingCycle.cpp"), 0, "it has the names of its sources")
        self.assertEqual(-1, library.find(PROJECT.encode()))

    @long_only
    def test_it_is_built_to_the_same_bytes_elsewhere(self):
        packages = []
        for name, others in (("one", {}), ("the-other-one", self.OTHERS)):
            sources = self.sources(name)
            before = set(files_below(sources))
            packages.append(output_of([os.path.join(sources, "build-package")], env={**os.environ, **others}).splitlines()[-1])
            self.assertEqual(before, {path for path in files_below(sources) if not path.startswith("build/")})
        self.assert_same(*packages)

    def assert_same(self, one, other):
        """Whether two packages have the same bytes; if not, what is in them tells more."""
        if not filecmp.cmp(one, other, shallow=False):
            for look in (("dpkg-deb", "-c"), ("dpkg-deb", "-I"), ("sh", "-c", "dpkg-deb -I \"$0\" md5sums")):
                self.assertEqual(output_of([*look, one]).replace(one, other), output_of([*look, other]))
            self.fail(f"{one} and {other} differ")

    def test_what_a_build_needs_is_what_the_script_installs(self):
        with open(os.path.join(PROJECT, "scripts", "install-dependencies"), encoding="utf-8") as file:
            needs = dict(re.findall(r'^(\w+)_needs?="([^"]*)"', file.read(), re.MULTILINE))
        installed = {need.split("|")[0] for kind in ("run", "package", "jdk") for need in needs[kind].split()}
        field = re.search(r"^Build-Depends: (.*(?:\n .*)*)", packaged("control"), re.MULTILINE).group(1)
        wanted = {re.match(r"[^\s(|]+", need.strip()).group() for need in field.split(",")}
        self.assertEqual(installed, {name.replace("debhelper-compat", "debhelper") for name in wanted - {"dh-sequence-installsysusers"}})


class InstalledTest(unittest.TestCase):
    """Tests that install packages on a copy of this machine."""

    @classmethod
    def setUpClass(cls):
        if os.geteuid() != 0:
            raise unittest.SkipTest("installing a package needs root")
        missing = [tool for tool in TOOLS if not shutil.which(tool)]
        if missing:
            raise unittest.SkipTest("these tools are missing: " + " ".join(missing))
        cls.machine = cls.make_machine()
        cls.addClassCleanup(cls.machine.end)
        if not cls.machine.ready:
            raise unittest.SkipTest("no copy of this machine can be made: " + cls.machine.trouble)
        if "install ok" in cls.machine.run("dpkg-query", "-W", "-f=${Status}", "lumetra-agent", expected=None):
            raise unittest.SkipTest("the package is installed on this machine already")
        cls.unit = packaged("lumetra-agent.service")
        # An index of all manual pages after each step takes longer than the steps.
        cls.machine.run("sh", "-c", "! command -v debconf-set-selections || "
                        "echo man-db man-db/auto-update boolean false | debconf-set-selections")

    @classmethod
    def make_machine(cls):
        return Machine()

    @classmethod
    def install(cls, package):
        """Installs a file with what apt finds to be its dependencies."""
        return cls.machine.run("apt-get", "install", "-y", "--no-install-recommends",
                               cls.machine.bring(package))

    def agent(self, *options, unit=None, prefix=(), **environment):
        """Starts the agent as the service; the process."""
        started = subprocess.Popen(
            self.machine.command("/usr/bin/lumetra", "run", *options,
                                 prefix=(*prefix, *as_service(unit or self.unit)), **environment),
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, preexec_fn=die_with_parent)
        self.addCleanup(started.stdout.close)
        self.addCleanup(started.wait)
        self.addCleanup(started.kill)
        return started

    def run_agent(self, *options, **more):
        """Runs the agent as the service for a cycle or two; what it printed."""
        return self.end_of(self.agent("--for", "1", *options, **more))

    def end_of(self, agent):
        """Waits for the end of an agent, which must be in order; what it printed."""
        printed = agent.communicate(timeout=remaining())[0]
        self.assertEqual(0, agent.returncode, printed)
        return printed


class PrepareHomeTest(unittest.TestCase):
    """The script that makes a home, by itself: on whatever file system that lies."""

    SHIPPED = "/etc/lumetra-agent/resources.txt"
    HOLD = """import fcntl, sys
file = open(sys.argv[1], "w")
fcntl.lockf(file, fcntl.LOCK_EX)
print("held", flush=True)
sys.stdin.read()"""

    def setUp(self):
        if os.geteuid() != 0:
            self.skipTest("a copy of this machine needs root")
        self.machine = Machine()
        self.addCleanup(self.machine.end)
        if not self.machine.ready:
            self.skipTest("no copy of this machine can be made: " + self.machine.trouble)
        if os.path.exists(HOME):
            self.skipTest("the package is installed on this machine already")
        self.script = self.machine.bring(os.path.join(DEBIAN, "prepare-home"))
        self.machine.run("mkdir", "-p", HOME, os.path.dirname(self.SHIPPED), LOGS)

    def prepare(self):
        return self.machine.run("sh", self.script, HOME)

    def holds(self, path):
        """Takes the lock of a home as an agent does; what lets it go."""
        holder = subprocess.Popen(self.machine.command(sys.executable, "-c", self.HOLD, path), stdin=subprocess.PIPE,
                                  stdout=subprocess.PIPE, text=True, preexec_fn=die_with_parent)
        self.addCleanup(holder.communicate)
        self.assertEqual("held\n", holder.stdout.readline())
        return holder.communicate

    def assert_waits_for_the_agent(self):
        self.machine.write(self.SHIPPED, "the first\n")
        self.prepare()
        self.machine.write(self.SHIPPED, "the second\n")
        let_go = self.holds(HOME + "/bin/agent.lock")
        self.assertIn("at its next start", self.prepare())
        self.assertEqual("the first\n", self.machine.run("cat", HOME + "/config/resources.txt"))
        let_go()
        let_go = self.holds(HOME + "/bin/another.lock")
        self.assertIn("taken anew", self.prepare())
        self.assertEqual("the second\n", self.machine.run("cat", HOME + "/config/resources.txt"))
        let_go()

    def test_changed_declarations_wait_for_the_agent_on_an_overlay(self):
        self.assert_waits_for_the_agent()

    def test_changed_declarations_wait_for_the_agent_in_memory(self):
        self.machine.run("mount", "-n", "-t", "tmpfs", "home", HOME)
        self.assert_waits_for_the_agent()

    def test_changed_declarations_wait_for_the_agent_in_a_subvolume_of_btrfs(self):
        self.on_a_disk("mkfs.btrfs", "/mnt")
        self.machine.run("btrfs", "subvolume", "create", "/mnt/home")
        self.machine.run("mount", "-n", "--bind", "/mnt/home", HOME)
        self.assert_waits_for_the_agent()

    def test_changed_declarations_wait_for_the_agent_on_ext4(self):
        self.on_a_disk("mkfs.ext4", HOME)
        self.assert_waits_for_the_agent()

    def on_a_disk(self, mkfs, where):
        """Mounts a small disk with a file system made by a program."""
        if not shutil.which(mkfs):
            self.skipTest(f"there is no {mkfs}")
        self.machine.run("truncate", "-s", "160M", "/tmp/disk")
        self.machine.run(mkfs, "-q", "/tmp/disk")
        trouble = self.machine.run("sh", "-c", 'mount -n -o loop /tmp/disk "$1" && echo mounted', "sh", where, expected=None)
        if trouble != "mounted\n":
            self.skipTest("no disk can be made of a file: " + trouble)


class UpgradeTest(InstalledTest):
    """From the sources as 0.1.0 left them."""

    EARLIER = "c656d6ed3ae659f8848eed07223dfaa9b60017f0"

    def earlier_package(self):
        """The package of those sources, built here; the path of its file."""
        if subprocess.run(["git", "-C", PROJECT, "cat-file", "-e", self.EARLIER], stderr=subprocess.DEVNULL, check=False).returncode:
            self.skipTest("this checkout has no history that goes back to 0.1.0")
        folder = tempfile.mkdtemp(prefix="lumetra-earlier-")
        self.addCleanup(shutil.rmtree, folder, ignore_errors=True)
        sources = subprocess.run(["git", "-C", PROJECT, "archive", self.EARLIER], stdout=subprocess.PIPE, check=True).stdout
        subprocess.run(["tar", "-x", "-C", folder], input=sources, check=True)
        return output_of([os.path.join(folder, "build-package")]).splitlines()[-1]

    @long_only
    def test_every_number_and_sample_is_kept(self):
        self.install(self.earlier_package())
        self.assertTrue(self.machine.run("dpkg-query", "-W", "-f=${Version}", "lumetra-agent").startswith("0.1.0-"))
        self.machine.run("sed", "-i", "6s/.*/1000/", "/etc/lumetra-agent/AutoConfig.ini")
        for _ in range(2):
            self.run_agent("--port", "0")
        kept = {name: self.machine.run("cat", HOME + "/data/" + name) for name in ("LumetraArchive.txt", "ScratchPad.txt")}
        events = self.machine.run("sh", "-c", f"cat {LOGS}/events.jsonl 2>/dev/null || true")
        self.assertGreaterEqual(len(kept["LumetraArchive.txt"].splitlines()), 2)
        self.assertIn("LogicalDisk", kept["ScratchPad.txt"])
        self.install(package())
        self.assertEqual(packaged("changelog").split("(")[1].split(")")[0],
                         self.machine.run("dpkg-query", "-W", "-f=${Version}", "lumetra-agent"))
        printed = self.end_of(self.agent("--for", "5", "--port", "0"))
        self.assertRegex(printed, r"Resumed with \d+ samples of \d+ resources from the archive\.")
        for name, text in kept.items():
            self.assertTrue(self.machine.run("cat", HOME + "/data/" + name).startswith(text), name)
        self.assertTrue(self.machine.run("sh", "-c", f"cat {LOGS}/events.jsonl 2>/dev/null || true").startswith(events))
        self.assertEqual("1000", self.machine.run("sed", "-n", "6p", "/etc/lumetra-agent/AutoConfig.ini").strip())
        lines = self.machine.run("cat", HOME + "/data/LumetraArchive.txt").splitlines()
        numbers = [{words[i] for i in range(1, len(words) - 1, 3)} for words in (line.split() for line in (lines[0], lines[-1]))]
        self.assertLessEqual(numbers[0], numbers[1], "each resource goes on under its number")


class ContainerTest(InstalledTest):
    """The package as in a container: a root of its own, the host's at /host, and the rights that the document gives."""

    @classmethod
    def make_machine(cls):
        cls.host = subprocess.Popen(["unshare", "-m", "sh", "-c", "mount --make-rshared / && echo ready && exec sleep infinity"],
                                    stdout=subprocess.PIPE, text=True, preexec_fn=die_with_parent)
        for clean_up in (cls.host.stdout.close, cls.host.wait, cls.host.kill):
            cls.addClassCleanup(clean_up)
        if cls.host.stdout.readline() != "ready\n":
            raise unittest.SkipTest("no host can be made here")
        return Machine(host=cls.host.pid)

    def on_host(self, *words):
        return output_of(["nsenter", "-m", "-t", str(self.host.pid), *words])

    def mount_on_host(self, megabytes):
        """A new file system of the host; its directory."""
        path = tempfile.mkdtemp(prefix="lumetra-host-")
        self.addCleanup(os.rmdir, path)
        self.on_host("mount", "-t", "tmpfs", "-o", f"size={megabytes}m", "some", path)
        return path

    def test_an_agent_sees_the_disks_of_its_host_those_of_later_included_and_none_of_its_own(self):
        self.install(package())
        early = self.mount_on_host(10)
        self.addCleanup(self.on_host, "umount", "-l", early)
        self.on_host("sh", "-c", f"head -c 5M /dev/zero >{early}/half")
        home, rules = "/home/agent", "/usr/share/lumetra-agent/containers/skip.conf"
        self.machine.run("sh", "-c", f"mkdir -p {home}/config && cp {rules} {home}/config/ && "
                         f"sed '6s/.*/1000/' /etc/lumetra-agent/AutoConfig.ini >{home}/config/AutoConfig.ini")
        port = free_port()
        # What the agent keeps of root's rights.
        rights = ("setpriv", "--bounding-set=-all,+dac_read_search", "--inh-caps=-all", "--no-new-privs")
        agent = subprocess.Popen(self.machine.command("/usr/bin/lumetra", "run", "--home", home, "--port", str(port), prefix=rights),
                                 stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, preexec_fn=die_with_parent)
        for clean_up in (agent.stdout.close, agent.wait, agent.kill):
            self.addCleanup(clean_up)

        def disks():
            try:
                with urllib.request.urlopen(f"http://127.0.0.1:{port}/api/v1/resources", timeout=remaining()) as answer:
                    resources = json.load(answer)["resources"]
            except OSError:
                resources = []
            return {r["mountpoint"]: r for r in resources if r["counterWords"] == "space"}

        wait_until(lambda: f"/host{early}" in disks(), "the host's file system")
        self.assertEqual([], [path for path in disks() if path != "/host" and not path.startswith("/host/")])
        self.assertIn("/host", disks())
        self.assertAlmostEqual(50, disks()[f"/host{early}"]["value"], delta=0.1)
        late = self.mount_on_host(20)
        wait_until(lambda: f"/host{late}" in disks(), "the file system that was mounted later")
        self.assertEqual("20.0 MiB", disks()[f"/host{late}"]["capacity"])
        self.on_host("umount", "-l", late)
        wait_until(lambda: disks()[f"/host{late}"]["state"] == "absent", "its end")
        agent.send_signal(signal.SIGTERM)
        self.end_of(agent)

    def test_the_manifest_has_the_rules_and_the_rights_of_the_document(self):
        with open(os.path.join(PROJECT, "integrations", "containers", "daemonset.yaml"), encoding="utf-8") as file:
            _, rules, agents = yaml.safe_load_all(file)
        with open(os.path.join(PROJECT, "integrations", "containers", "skip.conf"), encoding="utf-8") as file:
            self.assertEqual(file.read(), rules["data"]["skip.conf"])
        pod = agents["spec"]["template"]["spec"]
        container = pod["containers"][0]
        self.assertTrue(pod["hostPID"])
        self.assertEqual({"drop": ["ALL"], "add": ["DAC_READ_SEARCH"]}, container["securityContext"]["capabilities"])
        mounts = {mount["name"]: mount for mount in container["volumeMounts"]}
        self.assertEqual(("/host", True, "HostToContainer"),
                         tuple(mounts["host"][key] for key in ("mountPath", "readOnly", "mountPropagation")))
        self.assertEqual({volume["name"] for volume in pod["volumes"]}, set(mounts))
        self.assertEqual("/usr/bin/lumetra", container["command"][0])


class PackageTest(InstalledTest):
    """The tests follow the life of an installation, in the order of their names."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.package = package()
        cls.output = os.path.dirname(cls.package)
        cls.before = cls.machine.changes()
        cls.users_before = cls.machine.run("cat", "/etc/passwd", "/etc/group", "/etc/shadow", "/etc/gshadow")
        cls.installed = cls.install(cls.package)

    def test_1_lintian_has_no_complaint(self):
        if not shutil.which("lintian"):
            self.skipTest("lintian is not installed")
        done = subprocess.run(["lintian", "--fail-on", "error,warning", "--allow-root", self.package], stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, check=False)
        self.assertEqual(0, done.returncode, done.stdout)

    def test_1_the_unit_hides_nothing_of_the_machine(self):
        self.assertIsNone(HIDING.search(self.unit))
        self.assertNotIn("\nMemoryDenyWriteExecute", self.unit)
        self.assertIsNotNone(HIDING.search("[Service]\nProtectSystem=strict\n"))

    def test_1_systemd_accepts_the_unit(self):
        printed = self.machine.run("systemd-analyze", "verify", "--man=no", "/lib/systemd/system/lumetra-agent.service")
        self.assertNotIn("lumetra", printed)

    def test_1_user_directories_and_links_are_there(self):
        shown = self.machine.run("stat", "-c", "%n %U:%G %a", HOME, LOGS, "/etc/lumetra-agent/agent.env")
        self.assertEqual([f"{HOME} lumetra-agent:adm 2750", f"{LOGS} lumetra-agent:adm 2750",
                          "/etc/lumetra-agent/agent.env root:root 644"], shown.splitlines())
        self.assertEqual(LOGS, self.machine.run("readlink", HOME + "/log").strip())
        for name in ("AutoConfig.ini", "skip.conf"):
            self.assertEqual(f"/etc/lumetra-agent/{name}", self.machine.run("readlink", HOME + "/config/" + name).strip())
        self.assertIn("/usr/sbin/nologin", self.machine.run("getent", "passwd", "lumetra-agent"))
        self.machine.run("test", "-e", "/etc/systemd/system/multi-user.target.wants/lumetra-agent.service")

    def test_1_manual_pages_are_found_and_well_formed(self):
        for page in ("1/lumetra.1", "8/lumetra-agent.8", "5/AutoConfig.ini.5", "5/lumetra-resources.5"):
            self.machine.run("test", "-e", f"/usr/share/man/man{page}.gz")
        for path in glob.glob(os.path.join(DEBIAN, "man", "*.[1-8]")):
            if shutil.which("groff"):
                done = subprocess.run(["groff", "-man", "-ww", "-z", "-Tutf8", path], stdout=subprocess.PIPE,
                                      stderr=subprocess.STDOUT, text=True, check=True)
                self.assertEqual("", done.stdout, path)

    def test_1_bash_finds_the_completion(self):
        printed = self.machine.run("bash", "-c", "source /usr/share/bash-completion/completions/lumetra && complete -p lumetra")
        self.assertIn("-F _complete_lumetra", printed)

    def test_1_what_the_documents_link_to_comes_with_the_package(self):
        root = os.path.join(self.output, "unpacked")
        subprocess.run(["dpkg-deb", "-x", self.package, root], check=True)
        pages = glob.glob(root + "/usr/share/**/*.md", recursive=True)
        self.assertGreater(len(pages), 5)
        for page in pages:
            with open(page, encoding="utf-8") as file:
                links = re.findall(r"\]\(([^)#\s]+)", file.read())
            for link in links:
                if not link.startswith("http"):
                    start = root if link.startswith("/") else os.path.dirname(page) + "/"
                    self.assertTrue(os.path.exists(start + link), f"{page}: {link}")

    def test_2_runs_as_the_service_and_answers(self):
        self.machine.run("sed", "-i", "6s/.*/1000/", "/etc/lumetra-agent/AutoConfig.ini")
        port = free_port()
        agent = self.agent("--port", str(port))
        status = self.await_status(port)
        self.assertIn("PercentProcessesUsed", status)
        resources = json.loads(self.machine.run("lumetra", "status", "--json", "--port", str(port)))["resources"]
        self.assertIn("PercentFileDescriptorsUsed", [resource["resource"] for resource in resources])
        wait_until(lambda: self.machine.count(HOME + "/data/LumetraArchive.txt") >= 3, "the third cycle")
        agent.send_signal(signal.SIGTERM)
        printed = self.end_of(agent)
        self.assertNotIn("FATAL", printed)
        found = self.machine.run("find", HOME, LOGS, "-not", "-user", "lumetra-agent", "-o", "-perm", "/007", "-type", "f")
        self.assertEqual("", found)
        for name in ("LumetraArchive.txt", "ScratchPad.txt"):
            self.assertIn("adm 640", self.machine.run("stat", "-c", "%G %a", f"{HOME}/data/{name}"))
        self.assertEqual("Nothing found.\n", self.machine.run("lumetra", "check"))

    def test_2_the_service_manager_is_told_by_the_process_that_it_started(self):
        manager = ServiceSocket(f"@lumetra-test-{os.getpid()}", SELDOM)
        self.addCleanup(manager.close)
        agent = self.agent("--port", "0", **manager.environment())
        manager.await_line("READY=1")
        wait_until(lambda: any(re.match(r"STATUS=\d+ resources; ", line) for line in manager.lines()), "its status")
        self.assertEqual({agent.pid}, manager.senders)
        agent.send_signal(signal.SIGTERM)
        self.end_of(agent)
        manager.await_line("STOPPING=1")

    def test_1_the_watchdog_waits_for_longer_than_any_honest_cycle(self):
        self.assertEqual(["notify", "main", "SIGQUIT"],
                         [setting(self.unit, name) for name in ("Type", "NotifyAccess", "WatchdogSignal")])
        with open(os.path.join(PROJECT, "acquisition", "diskListing.cpp"), encoding="utf-8") as file:
            listing = int(re.search(r"seconds longestRun\{(\d+)\};", file.read()).group(1))
        self.assertGreaterEqual(int(setting(self.unit, "WatchdogSec")), 10 * listing)

    def test_2_the_doctor_looks_at_the_home_of_the_service(self):
        told = json.loads(self.machine.run("lumetra", "doctor", "--json", "--port", str(free_port()), expected=None))
        found = {finding["subject"]: finding for finding in told["findings"]}
        self.assertEqual(f"the home is {HOME}", found["home"]["what"])
        for subject in ("home", "owner", "lock", "configuration"):
            self.assertEqual("ok", found[subject]["severity"], found[subject])

    def await_status(self, port):
        """What status prints once there is a sample."""
        begin = self.machine.count(HOME + "/data/LumetraArchive.txt")
        wait_until(lambda: self.machine.count(HOME + "/data/LumetraArchive.txt") > begin, "a cycle")

        def told():
            printed = self.machine.run("lumetra", "status", "--port", str(port), expected=None)
            return "PercentProcessesUsed" in printed and printed

        return wait_until(told, "a sample")

    def test_2_only_its_user_may_run_it_in_its_home(self):
        self.assertIn("systemctl start lumetra-agent", self.machine.run("lumetra", "run", expected=1))
        self.assertIn("systemctl start", self.machine.run("lumetra", "run", f"--home={HOME}/", expected=1))
        self.machine.run("sh", "-c", f"mv {HOME} /srv/moved && ln -s /srv/moved {HOME}")
        self.addCleanup(self.machine.run, "sh", "-c", f"rm {HOME} && mv /srv/moved {HOME}")
        for name in (HOME, "/srv/moved"):
            self.assertIn("systemctl start", self.machine.run("lumetra", "run", "--home", name, expected=1))

    def test_2_anyone_may_run_one_in_another_home(self):
        anyone = ("setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups")
        printed = self.machine.run("lumetra", "run", "--home", "/tmp/another", "--for", "1", "--port", "0", prefix=anyone)
        self.assertIn("The agent has stopped after", printed)
        self.assertGreaterEqual(self.machine.count("/tmp/another/data/LumetraArchive.txt"), 1)

    def test_2_without_an_agent_the_way_to_start_the_service_is_told(self):
        printed = self.machine.run("lumetra", "status", "--port", str(free_port()), expected=1)
        self.assertIn("; start it with systemctl start lumetra-agent\n", printed)

    def test_2_a_check_without_the_right_to_look_says_so(self):
        anyone = ("setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups")
        printed = self.machine.run("lumetra", "check", prefix=anyone, expected=1)
        self.assertIn("AutoConfig.ini: error: the configuration cannot be opened: permission denied;", printed)

    def documented(self, heading):
        """The commands of a section of the document on operations, each block a string, without what this machine lacks."""
        with open(os.path.join(PROJECT, "docs", "operations.md"), encoding="utf-8") as file:
            section = re.search(rf"^## {heading}\n(.*?)^## ", file.read(), re.MULTILINE | re.DOTALL).group(1)
        section = re.sub(r"^sudo (apt-get|systemctl) .*\n", "", section, flags=re.MULTILINE).replace("sudo ", "")
        return re.findall(r"^```\n(.*?)^```$", section, re.MULTILINE | re.DOTALL)

    def test_2_what_the_documents_say_leads_to_a_message_at_a_web_hook(self):
        if not shutil.which("curl"):
            self.skipTest("curl is not installed")
        got = []

        class Hook(http.server.BaseHTTPRequestHandler):
            def do_POST(self):
                got.append(json.loads(self.rfile.read(int(self.headers["Content-Length"]))))
                self.send_response(200)
                self.end_headers()

            def log_message(self, *arguments):
                pass

        server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Hook)
        threading.Thread(target=server.serve_forever, daemon=True).start()
        self.addCleanup(server.server_close)
        self.addCleanup(server.shutdown)
        _, configure, _, _ = self.documented("Who is told")
        options = "/etc/lumetra-agent/agent.env"
        self.machine.run("cp", options, "/tmp/agent.env")
        self.addCleanup(self.machine.run, "sh", "-c", f"cp /tmp/agent.env {options}; rm -f /etc/lumetra-agent/webhook.curl")
        self.machine.run("sh", "-ec", configure.replace("https://hooks.example/", f"http://127.0.0.1:{server.server_address[1]}/"))
        asked = re.search(r'^LUMETRA_OPTIONS="(.*)"$', self.machine.run("cat", options), re.MULTILINE).group(1).split()
        port = free_port()
        self.agent("--port", str(port), *asked)
        self.await_status(port)
        _, fill, _ = self.documented("Alerts by Prometheus")
        self.machine.run("sh", "-ec", fill)
        self.addCleanup(self.machine.run, "sh", "-c", "umount -l /mnt/full && rmdir /mnt/full && rm -rf /run/mount")
        wait_until(lambda: [line for line in list(got) if line["type"] == "upperTolerance" and line["instance"] == "full /mnt/full"],
                   "the message on the limit")

    def provide_prometheus(self):
        """Puts it where its package would, from wherever it is unpacked here."""
        origin = os.path.abspath(os.path.join(shutil.which("prometheus"), "../../.."))
        if origin != "/":
            paths = ("/usr/bin/prometheus", "/usr/bin/promtool", "/etc/prometheus/prometheus.yml")
            self.addCleanup(self.machine.run, "sh", "-c", "rm -f " + " ".join(paths) + "; rmdir /etc/prometheus")
            for path in paths:
                self.machine.run("install", "-D", self.machine.bring(origin + path), path)

    def test_2_what_the_documents_say_leads_to_an_alert_of_prometheus(self):
        if not shutil.which("prometheus") or not shutil.which("promtool"):
            self.skipTest("prometheus is not installed")
        self.provide_prometheus()
        configure, fill, ask = self.documented("Alerts by Prometheus")
        self.assertIn("SUCCESS", self.machine.run("sh", "-ec", configure))
        port, own = free_port(), free_port()
        self.machine.run("sed", "-i", "-e", f"s/127.0.0.1:8642/127.0.0.1:{port}/", "-e", "s/_interval:.*/_interval: 1s/",
                         "-e", "s/_timeout:.*/_timeout: 1s/", "/etc/prometheus/prometheus.yml")
        self.machine.run("sed", "-i", "s/for: 1m$/for: 1s/", "/etc/prometheus/lumetra-rules.yml")
        self.agent("--port", str(port))
        self.await_status(port)
        watcher = subprocess.Popen(
            self.machine.command("prometheus", "--config.file=/etc/prometheus/prometheus.yml", "--storage.tsdb.path=/tmp/series",
                                 f"--web.listen-address=127.0.0.1:{own}", "--log.level=error"), stderr=subprocess.DEVNULL)
        self.addCleanup(watcher.wait)
        self.addCleanup(watcher.kill)
        self.machine.run("sh", "-ec", fill)
        self.addCleanup(self.machine.run, "sh", "-c", "umount -l /mnt/full && rmdir /mnt/full && "
                        "rm -rf /run/mount /etc/prometheus/lumetra-rules.yml")

        def fired():
            printed = self.machine.run("sh", "-c", ask.replace("9090", str(own)), expected=None)
            return "firing" in printed and printed

        answer = wait_until(fired, "the alert")
        self.assertIn("LumetraResourceAtLimit", answer)
        self.assertIn('alertstate="firing"', answer)
        self.assertIn('mountpoint="/mnt/full"', answer)

    def test_3_its_capability_is_the_one_that_counts_other_users_descriptors(self):
        listing = ("ls", f"/proc/{self.machine.keeper.pid}/fd")
        self.machine.run(*listing, prefix=as_service(self.unit))
        self.machine.run(*listing, expected=2, prefix=as_service(packaged("without-capabilities.conf")))
        self.machine.run(*listing, expected=2,
                         prefix=as_service("AmbientCapabilities=CAP_SYS_PTRACE"))
        self.assertEqual("CAP_DAC_READ_SEARCH", setting(self.unit, "AmbientCapabilities"))
        self.assertEqual("CAP_DAC_READ_SEARCH", setting(self.unit, "CapabilityBoundingSet"))

    def test_3_runs_without_capabilities(self):
        printed = self.run_agent("--port", "0", unit=packaged("without-capabilities.conf"))
        self.assertIn("The agent has stopped after", printed)

    def test_3_the_system_call_filter_lets_through_all_that_it_calls(self):
        if not shutil.which("strace"):
            self.skipTest("strace is not installed")
        self.assertEqual(["@system-service", "~@privileged"], re.findall(r"^SystemCallFilter=(.*)$", self.unit, re.MULTILINE))
        allowed = self.allowed("@system-service") - self.allowed("@privileged")
        families = set(setting(self.unit, "RestrictAddressFamilies").split())
        for java in some(filter(None, (java_from(17), java_from(22))), 1):
            with self.subTest(java=java):
                lines = self.calls(JAVA_HOME=java)
                called = {found.group(1) for found in (re.match(r"\d+ +(?:<\.\.\. )?(\w+)(?:\(| resumed)", line)
                                                       for line in lines) if found}
                self.assertIn("futex", called)
                self.assertIn("statfs", called, "the calls of df are among them")
                self.assertEqual(set(), called - allowed - BORNE)
                sockets = {found for line in lines for found in re.findall(r"\bsocket\((AF_\w+)", line)}
                self.assertTrue(sockets & {"AF_INET", "AF_INET6"})
                self.assertEqual(set(), sockets - families)

    def calls(self, **environment):
        """The system calls of the agent at work, without those of the change to its user, which the filter follows."""
        self.run_agent("--port", str(free_port()), prefix=("strace", "-f", "-qq", "-o", "/tmp/calls"), **environment)
        before, _, calls = self.machine.run("cat", "/tmp/calls").partition('execve("/usr/bin/lumetra"')
        self.assertIn("setresuid", before)
        return calls.splitlines()[1:]

    def allowed(self, group):
        """The system calls of one of systemd's groups."""
        calls = set()
        for word in self.machine.run("systemd-analyze", "syscall-filter", group).split("\n")[1:]:
            word = word.strip()
            if word.startswith("@"):
                calls |= self.allowed(word)
            elif word and not word.startswith("#"):
                calls.add(word)
        return calls

    def test_3_runs_on_a_java_that_wants_native_access_granted(self):
        candidate = java_from(22)
        if not candidate:
            self.skipTest("no Java from version 22 on is installed")
        printed = self.run_agent("--port", "0", JAVA_HOME=candidate)
        self.assertNotIn("WARNING", printed)
        self.assertIn("The agent has stopped after", printed)

    def test_4_a_change_of_the_declarations_in_etc_is_taken_up_once(self):
        copy, shipped = HOME + "/config/resources.txt", "/etc/lumetra-agent/resources.txt"
        prepare = ("/usr/libexec/lumetra-agent/prepare-home", HOME)
        self.assertEqual("", self.machine.run(*prepare, prefix=as_service(self.unit)))
        used = self.machine.run("cat", copy)
        self.assertNotEqual(self.machine.run("cat", shipped), used, "the agent has rewritten its copy")
        self.machine.run("sed", "-i", "s/NameIs (PercentProcessesUsed)/NameIs (Tasks)/", shipped)
        self.assertIn("taken anew", self.machine.run(*prepare, prefix=as_service(self.unit)))
        self.assertEqual(self.machine.run("cat", shipped), self.machine.run("cat", copy))
        self.assertEqual(used, self.machine.run("cat", copy + ".old"))
        self.assertEqual("", self.machine.run(*prepare, prefix=as_service(self.unit)))

    def test_4_a_change_of_the_declarations_waits_for_the_end_of_the_agent_that_would_write_over_it(self):
        copy, shipped = HOME + "/config/resources.txt", "/etc/lumetra-agent/resources.txt"
        prepare = ("/usr/libexec/lumetra-agent/prepare-home", HOME)
        first = self.agent("--port", "0")
        while not first.stdout.readline().startswith("It takes a sample"):
            self.assertIsNone(first.poll())
        self.machine.run("sed", "-i", "s/NameIs (Tasks)/NameIs (Slots)/", shipped)
        self.assertIn("at its next start", self.machine.run(*prepare, prefix=as_service(self.unit)))
        self.assertNotIn("NameIs (Slots)", self.machine.run("cat", copy))
        second = self.agent("--port", "0")
        printed = second.communicate(timeout=remaining())[0]
        self.assertEqual(5, second.returncode, printed)
        self.assertIn("Another agent works in the home " + HOME, printed)
        first.kill()
        first.communicate()
        self.assertIn("taken anew", self.machine.run(*prepare, prefix=as_service(self.unit)))
        self.assertIn("NameIs (Slots)", self.machine.run("cat", copy))

    def test_4_declarations_that_are_gone_from_etc_cost_neither_a_start_nor_an_upgrade(self):
        copy, shipped = HOME + "/config/resources.txt", "/etc/lumetra-agent/resources.txt"
        self.machine.run("mv", shipped, "/tmp/kept")
        self.addCleanup(self.machine.run, "mv", "/tmp/kept", shipped)
        printed = self.run_agent("--port", "0")
        self.assertIn(f"{shipped} cannot be read; {copy} stays in use", printed)
        used = self.machine.run("cat", copy)
        self.machine.run("dpkg-reconfigure", "lumetra-agent")
        self.assertEqual(used, self.machine.run("cat", copy))

    def test_5_an_upgrade_keeps_state_and_edited_configuration(self):
        kept = ["/etc/lumetra-agent/AutoConfig.ini", "/etc/lumetra-agent/resources.txt", HOME + "/data/LumetraArchive.txt",
                HOME + "/data/ScratchPad.txt", HOME + "/config/resources.txt", LOGS + "/LumetraAgent.log"]
        before = self.machine.run("sha256sum", *kept)
        later = "1.0.0-1+later1"
        self.install(build(self.output, "--version", later) if LONG else with_version(self.package, later))
        self.assertIn("1.0.0-1+later1", self.machine.run("dpkg-query", "-W", "lumetra-agent"))
        self.assertEqual(before, self.machine.run("sha256sum", *kept))

    def test_5_configuring_it_again_changes_nothing(self):
        before = self.machine.run("find", HOME, LOGS, "/etc/lumetra-agent", "-printf", "%p %u:%g %m %s %l\n")
        self.machine.run("dpkg-reconfigure", "lumetra-agent")
        after = self.machine.run("find", HOME, LOGS, "/etc/lumetra-agent", "-printf", "%p %u:%g %m %s %l\n")
        self.assertEqual(before, after)

    def test_6_removing_keeps_what_is_the_administrators(self):
        self.machine.run("apt-get", "remove", "-y", "lumetra-agent")
        self.machine.run("test", "-e", "/etc/lumetra-agent/AutoConfig.ini")
        self.assertGreaterEqual(self.machine.count(HOME + "/data/LumetraArchive.txt"), 3)
        self.machine.run("test", "-e", "/usr/bin/lumetra", expected=1)

    def test_7_purging_leaves_nothing(self):
        self.machine.run("apt-get", "purge", "-y", "lumetra-agent")
        self.assertEqual(self.before, self.machine.changes())
        self.assertEqual(self.users_before,
                         self.machine.run("cat", "/etc/passwd", "/etc/group", "/etc/shadow", "/etc/gshadow"))
        self.assertEqual("", self.machine.run("sh", "-c", "ls -d /tmp/hsperfdata_lumetra* /var/lib/dpkg/info/lumetra*"
                                              " 2>/dev/null || true"))


if __name__ == "__main__":
    unittest.main()
