"""What ./lumetra doctor says on machines where what it tells is really so: hidden processes, a home on a full, a read-only and
a hanging file system, a port and a lock that are taken."""

import json
import os
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from java_host import JAR, LIBRARY, LUMETRA, PROGRAM, PROJECT, JavaTest, free_port, remaining  # noqa: E402
from agent_home import (FEW, MS_BIND, MS_RDONLY, MS_REMOUNT, mount, needs_mounts, umount, write)  # noqa: E402
from service_manager import Unanswered  # noqa: E402

try:
    import jsonschema
except ImportError:
    jsonschema = None


class Doctor(JavaTest):
    def doctor(self, home, *options, prefix=(), port=0, **environment):
        """Its exit code and its findings by subject."""
        done = subprocess.run(
            [*prefix, *LUMETRA, "doctor", "--json", "--home", home.path, "--port", str(port), *options],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=remaining(), check=False,
            env={**home.environment(), "LC_ALL": "C.UTF-8", **environment})
        self.assertEqual(done.stderr, "")
        told = json.loads(done.stdout)
        self.assert_fits_the_schema(told)
        found = {finding["subject"]: finding for finding in told["findings"]}
        self.assertEqual(len(found), len(told["findings"]))
        self.assertEqual(done.returncode, 1 if told["problems"] else 3 if told["warnings"] else 0)
        return found

    def assert_fits_the_schema(self, told):
        if jsonschema:
            with open(os.path.join(PROJECT, "docs", "doctor.schema.json"), encoding="utf-8") as file:
                schema = json.load(file)
            jsonschema.Draft7Validator.check_schema(schema)
            jsonschema.validate(told, schema)
        for severity in ("problem", "warning", "notice"):
            self.assertEqual(told[severity + "s"], [finding["severity"] for finding in told["findings"]].count(severity))

    def assert_found(self, found, subject, severity, what):
        self.assertEqual(found[subject]["severity"], severity, found[subject])
        self.assertIn(what, found[subject]["what"])

    def sound_home(self, **config):
        home = self.fresh_home(**{"period": 10000, "maximum": 48, **config})
        os.chmod(home.path, 0o755)
        return home

    def small_file_system(self, options):
        directory = tempfile.mkdtemp(prefix="lumetra-small-")
        self.addCleanup(shutil.rmtree, directory, ignore_errors=True)
        mount("tmpfs", directory, "tmpfs", 0, options)
        self.addCleanup(umount, directory)
        return directory

    def test_a_sound_home_has_nothing_amiss_and_nothing_is_changed(self):
        home = self.sound_home()
        before = sorted(os.walk(home.path))
        found = self.doctor(home)
        for subject in ("home", "space", "owner", "lock", "configuration", "mounts", "df"):
            self.assertEqual(found[subject]["severity"], "ok", found[subject])
        self.assertNotIn("port", found)
        self.assertEqual(sorted(os.walk(home.path)), before)

    def test_people_read_a_table_the_worst_first(self):
        home = self.sound_home()
        write(home.at("config", "AutoConfig.ini"), "")
        done = subprocess.run([PROGRAM, "doctor", "--home", home.path, "--port", "0"], stdout=subprocess.PIPE, text=True,
                              env={**home.environment(), "LUMETRA_JAR": JAR, "LUMETRA_LIBRARY": LIBRARY}, check=False)
        self.assertEqual(done.returncode, 1)
        lines = done.stdout.splitlines()
        self.assertRegex(lines[0], r"^problem  configuration +lumetra check has 1 error and 0 warnings to tell$")
        self.assertRegex(lines[1], r"^ +Run lumetra check --home " + re.escape(home.path))
        self.assertRegex(lines[-1], r"^1 problem, \d+ warnings?, \d+ notices?\.$")

    @needs_mounts
    def test_processes_that_proc_hides(self):
        home = self.sound_home()
        mount("proc", "/proc", "proc", 0, "hidepid=2")
        self.addCleanup(umount, "/proc")
        self.assert_found(self.doctor(home), "processes", "warning", "/proc is mounted with hidepid=")

    @needs_mounts
    def test_a_home_on_a_small_disk(self):
        directory = self.small_file_system("size=512k,mode=755")
        home = self.sound_home(directory=directory)
        self.assert_found(self.doctor(home), "space", "problem", f"{directory} has only ")
        mount("tmpfs", directory, "tmpfs", MS_REMOUNT, "size=20m")
        self.assert_found(self.doctor(home), "space", "warning", f"{directory} has only 20.0 MiB left")
        mount("tmpfs", directory, "tmpfs", MS_REMOUNT, "size=200m")
        self.assert_found(self.doctor(home), "space", "ok", "")

    @needs_mounts
    def test_a_home_that_is_mounted_read_only(self):
        home = self.sound_home()
        mount(home.at("data"), home.at("data"), "", MS_BIND)
        self.addCleanup(umount, home.at("data"))
        mount("none", home.at("data"), "", MS_BIND | MS_REMOUNT | MS_RDONLY)
        found = self.doctor(home)
        self.assert_found(found, "home", "problem", f"{home.at('data')} lies on a file system that is mounted read-only")
        self.assert_found(found, "configuration", "warning", "lumetra check has ")

    @needs_mounts
    def test_a_file_system_that_hangs_is_named_and_holds_nobody_up(self):
        if not os.access("/dev/fuse", os.R_OK | os.W_OK):
            self.skipTest("no /dev/fuse")
        home = self.sound_home()
        write(home.at("a disk"), "")
        unanswered = Unanswered(home.at("a disk"))
        self.addCleanup(unanswered.end)
        found = self.doctor(home)
        self.assert_found(found, "mounts", "problem", f"a file system does not answer within 10 s: {home.at('a disk')}")
        self.assert_found(found, "df", "problem", "df does not end within 10 s")
        self.assert_found(found, "home", "ok", "")
        unanswered.end()
        self.assert_found(self.doctor(home), "mounts", "ok", "")

    @needs_mounts
    def test_a_home_that_hangs_is_left_alone(self):
        if not os.access("/dev/fuse", os.R_OK | os.W_OK):
            self.skipTest("no /dev/fuse")
        home = self.sound_home()
        unanswered = Unanswered(home.at("config", "AutoConfig.ini"))
        self.addCleanup(unanswered.end)
        found = self.doctor(home)
        self.assert_found(found, "home", "problem", "does not answer")
        self.assertNotIn("configuration", found)
        unanswered.end()

    def test_a_port_and_a_lock_that_are_taken(self):
        home, other = self.sound_home(period=1000), self.sound_home()
        home.declare(FEW)
        machine, port = self.page(home)
        found = self.doctor(home, port=port)
        self.assert_found(found, "lock", "notice", f"an agent works in the home, process {machine.process.pid}")
        self.assert_found(found, "port", "ok", f"the home's agent answers at port {port}")
        found = self.doctor(other, port=port)
        self.assert_found(found, "lock", "ok", "no agent works in the home")
        self.assert_found(found, "port", "warning", f"the agent of the home {home.path} has port {port}")
        self.terminate(machine, home)
        found = self.doctor(home, port=port)
        self.assert_found(found, "lock", "ok", "no agent works in the home")
        self.assert_found(found, "port", "ok", f"port {port} is free")
        taken = free_port()
        with socket.socket() as listener:
            listener.bind(("127.0.0.1", taken))
            listener.listen()
            self.assert_found(self.doctor(home, port=taken), "port", "warning",
                              f"another program than an agent has port {taken}")

    def test_a_home_that_others_can_write(self):
        home = self.sound_home()
        os.chmod(home.at("config"), 0o777)
        self.assert_found(self.doctor(home), "owner", "warning", f"{home.at('config')} can be written by others")

    def test_limits_of_the_process(self):
        home = self.sound_home()
        found = self.doctor(home, prefix=("prlimit", "--nofile=200:200"))
        self.assert_found(found, "open-files", "warning", "an agent of this user may open 200 files")

    @unittest.skipUnless(os.geteuid() == 0, "changing the user needs root")
    def test_an_ordinary_user_is_told_what_it_cannot_see(self):
        home = self.sound_home()
        found = self.doctor(home, prefix=("setpriv", "--bounding-set=-all", "--inh-caps=-all", "--ambient-caps=-all"))
        self.assert_found(found, "rights", "notice", "cannot count the descriptors of other users' processes")
        found = self.doctor(home)
        self.assert_found(found, "rights", "ok", "")

    def test_a_df_that_is_missing_or_fails(self):
        home = self.sound_home()
        home.stub_script("#!/bin/sh\nexit 1\n")
        self.assert_found(self.doctor(home), "df", "warning", "df ends with an error")


if __name__ == "__main__":
    unittest.main()
