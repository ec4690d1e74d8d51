"""The shipped host among strangers: what they plant under the names of its files, in the path and in the directories of a home."""

import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from java_host import JAR, LIBRARY, LUMETRA, PROGRAM, JavaTest, api, ask, host_command, remaining, some  # noqa: E402
from agent_home import DISK_SPACE, FEW, HEADING, mount, needs_mounts, read, umount, write  # noqa: E402
from test_strangers import KINDS, STRANGER, Victim, needs_root  # noqa: E402

PLANTED = ("bin/agent.lock", "log/events.jsonl", "log/events.jsonl.1", "log/score.jsonl", "log/score.jsonl.1",
           "log/LumetraAgent.log", "tempdata/LumetraDisks.txt", "data/archive.txt", "data/scratch.txt")
HOME_TAKEN = 5


class Strangers(JavaTest):
    def few_home(self, inputs=FEW, **config):
        home = self.fresh_home(**config)
        home.declare(inputs)
        return home

    @needs_root
    def test_what_lies_under_the_names_of_its_files_is_neither_followed_nor_waited_for(self):
        for kind in some(KINDS, 5):
            with self.subTest(kind=kind):
                home = self.few_home(inputs=(*FEW, DISK_SPACE))
                home.stub_df(HEADING + "/dev/a 100 50 50 50% /\n")
                victim = Victim(home.at("victim"))
                for name in PLANTED:
                    KINDS[kind](home.at(name), victim)
                    if kind != "further name":
                        os.lchown(home.at(name), STRANGER, STRANGER)
                for name in ("bin", "log", "tempdata", "data"):
                    os.chmod(home.at(name), 0o777)
                machine, port = self.page(home)
                seen = lambda: api(f"http://127.0.0.1:{port}/", "resources")  # noqa: E731
                machine.until(lambda: len(seen()["resources"]) == 3 and seen()["agent"]["cycles"] >= 3, "the page")
                self.terminate(machine)
                self.assertEqual(victim.state(), victim.before)
                self.assertIn("The home cannot be locked against a second agent: ", machine.output())
                self.assertIn("The log cannot be written: ", machine.output())
                for name in PLANTED:
                    self.assertTrue(os.path.lexists(home.at(name)), name)
                for name in ("log/events.jsonl", "log/score.jsonl"):
                    self.assertEqual(read(home.at(name)) if kind == "file" else "", "1 1 0 99.00 \n" if kind == "file" else "")

    @needs_root
    def test_a_lock_that_another_user_left_ends_the_agent_before_it_touches_anything(self):
        home = self.few_home()
        write(home.at("bin", "agent.lock"), "")
        os.chmod(home.at("bin", "agent.lock"), 0o640)
        os.mkdir(home.at("program"))
        for path in (JAR, self.library):  # another user may not be let into the checkout
            shutil.copy(path, home.at("program"))
        for path in (home.path, *(home.at(name) for name in ("bin", "log", "tempdata", "data", "config"))):
            os.chown(path, STRANGER, STRANGER)
        jar, library = (home.at("program", os.path.basename(path)) for path in (JAR, self.library))
        command = host_command(home, library, program=("-jar", jar))
        as_service = ("setpriv", f"--reuid={STRANGER}", f"--regid={STRANGER}", "--clear-groups")
        machine = self.start(home, [*as_service, *command])
        self.assertNotIn("against a second agent", machine.expect("The home "))
        self.assertEqual(machine.end(), HOME_TAKEN, machine.output())
        self.assertEqual(machine.lines, [f"The home {home.path} cannot be locked: this user may not open its bin/agent.lock, which "
                                         "another user's agent holds or has left. Once no agent works there, delete that file."])
        self.assertEqual([os.listdir(home.at(name)) for name in ("log", "tempdata", "data")], [[], [], []])
        os.unlink(home.at("bin", "agent.lock"))
        machine = self.start(home, [*as_service, *command])
        self.lines(machine, home, 1)
        self.terminate(machine)

    def test_a_pipe_in_the_place_of_a_given_file_holds_nobody_up(self):
        for name in ("AutoConfig.ini", "resources.txt"):
            with self.subTest(name=name):
                home = self.few_home()
                os.unlink(home.at("config", name))
                os.mkfifo(home.at("config", name))
                machine = self.host(home)
                self.assertEqual(machine.end(), 1, machine.output())

    @needs_root
    def test_a_strangers_rules_leave_no_disk_out(self):
        home = self.few_home(inputs=(DISK_SPACE,))
        home.stub_df(HEADING + "/dev/a 100 50 50 50% /\n")
        os.chmod(home.at("config"), 0o777)
        write(home.at("config", "skip.conf"), "mount /\n")
        os.chown(home.at("config", "skip.conf"), STRANGER, -1)
        machine = self.host(home)
        machine.until(lambda: home.number_of("/"), "the disk")
        self.terminate(machine, home)
        self.assertIn("the skip rules cannot be read and count as none: it is another user's, in a directory that everybody may "
                      "write", machine.output())

    def test_who_else_may_write_in_the_home_is_told_everywhere_and_stops_nothing(self):
        home = self.few_home(period=1000)  # what is said once must stay in the log
        os.chmod(home.at("data"), 0o757)
        sentence = f"{home.at('data')} can be written by others than its owner, who could change what the agent does."
        machine, port = self.page(home)
        self.lines(machine, home, 2)
        machine.until(lambda: api(f"http://127.0.0.1:{port}/", "resources")["agent"]["notice"] == sentence, "a notice")
        self.terminate(machine, home)
        self.assertEqual(machine.lines.count(sentence), 1)
        self.assertEqual(home.log().count(" can be written by others than its owner, user "), 1)
        checked = self.start(home, [PROGRAM, "check", "--home", home.path],
                             home.environment(LUMETRA_JAR=JAR, LUMETRA_LIBRARY=LIBRARY))
        checked.expect(f"{home.at('data')}: warning: {sentence[:-1]}; expected ")

    def test_the_start_script_lets_nobody_write_its_files_and_runs_nobodys_df(self):
        home, checkout = self.few_home(inputs=(DISK_SPACE,)), self.checkout()
        home.stub_df(HEADING, before=f"touch '{home.at('ran')}'")
        environment = home.environment(PATH=os.path.join(checkout, "bin") + ":" + os.environ["PATH"])
        os.rmdir(home.at("log"))
        old = os.umask(0)
        try:
            machine = self.start(home, [os.path.join(checkout, "lumetra"), "run", "--home", home.path, "--port", "0"], environment)
            self.lines(machine, home, 3)
            self.terminate(machine, home)
        finally:
            os.umask(old)
        self.assertFalse(os.path.exists(home.at("ran")), "the df of somebody's path")
        made = [home.at("log"), *(os.path.join(directory, name) for folder in ("bin", "log", "tempdata", "data")
                                  for directory, _, names in os.walk(home.at(folder)) for name in names)]
        self.assertGreater(len(made), 4, made)
        for path in made:
            self.assertEqual(os.stat(path).st_mode & 0o027, 0, path)

    def test_what_the_host_makes_is_for_nobody_else_without_a_umask_either(self):
        home = self.few_home()
        old = os.umask(0)
        try:
            machine = self.host(home)
            self.lines(machine, home, 3)
            self.spoil(home)
            machine.until(lambda: os.path.exists(home.at("log", "events.jsonl")), "an event")
            machine.signal(signal.SIGTERM)
            self.assertEqual(machine.end(), 0)
        finally:
            os.umask(old)
        for name in ("bin/agent.lock", "log/events.jsonl", "log/score.jsonl"):
            self.assertEqual(os.stat(home.at(name)).st_mode & 0o7777, 0o640, name)


# What steers a terminal, ends a line or turns the reading order, wherever text is shown.
HARMFUL = re.compile("[\x00-\x09\x0b-\x1f\x7f-\x9f\u061c\u200b-\u200f\u2028-\u202e\u2060-\u206f\ufeff]")
NAMES = ("\u202egnp.exe", "c1\x9b31m", "iso\u2066late", "line\u2028end", "esc\x1b[31m", "two\nFATAL     forged",
         "return\rforged", "<script>alert(1)<b>", "$(touch pwn)`touch pwn`", "quote\"' \\", "Subject: forged", "\udcff\udcfe")


class Text(JavaTest):
    @needs_mounts
    def test_a_name_steers_no_terminal_no_journal_no_browser_and_no_program(self):
        base = os.path.realpath(tempfile.mkdtemp(prefix="lumetra-names-"))
        self.addCleanup(shutil.rmtree, base, ignore_errors=True)
        for name in NAMES:
            path = os.path.join(base, name)
            os.mkdir(path)
            mount("tmpfs", path, "tmpfs", 0, "size=4k")
            self.addCleanup(umount, path)
            write(os.path.join(path, "filler"), "x" * 4096)
        home = self.fresh_home(period=1000)
        home.declare((*FEW, DISK_SPACE))
        home.stub_script("#!/bin/sh\nexec /usr/bin/df \"$@\" -a -t tmpfs\n")
        write(home.at("tell"), f"#!/bin/sh\nenv >>'{home.at('said')}'\ncat >>'{home.at('said')}'\necho \"$LUMETRA_TEXT\"\n")
        os.chmod(home.at("tell"), 0o755)
        machine, port = self.page(home, "--on-event", home.at("tell"))
        url = f"http://127.0.0.1:{port}/"
        shown = lambda: [r for r in api(url, "resources")["resources"] if base in (r.get("instance") or "")]  # noqa: E731
        machine.until(lambda: len(shown()) >= len(NAMES), "all disks")
        machine.until(lambda: "upperTolerance" in read(home.at("log", "events.jsonl")), "an event")
        texts = {path: ask(port, path)[2].decode() for path in ("/metrics", "/api/v1/resources", "/api/v1/events",
                                                                "/api/v1/event-groups")}
        environment = {**home.environment(), "LC_ALL": "C.UTF-8"}
        for command in (["status", "--port", str(port)], ["status", "--json", "--port", str(port)],
                        ["status", "--skipped", "--port", str(port)], ["check", "--home", home.path],
                        ["doctor", "--home", home.path, "--port", "0"], ["replay", "--home", home.path]):
            done = subprocess.run([*LUMETRA, *command], env=environment, capture_output=True, timeout=remaining(), check=False)
            texts[" ".join(command[:2])] = done.stdout.decode() + done.stderr.decode()
        self.terminate(machine)
        texts["events.jsonl"] = read(home.at("log", "events.jsonl"))
        texts["the program for events"] = read(home.at("said")).encode("latin-1").decode()
        texts["the console"] = "\n".join(machine.lines)
        for where, text in texts.items():
            with self.subTest(where=where):
                self.assertNotEqual(text, "")
                self.assertIsNone(HARMFUL.search(text), text[:2000])
                self.assertFalse([line for line in text.split("\n") if line.startswith(("FATAL     forged", "forged"))])
        self.assertIn("script>alert(1)", texts["the console"])
        self.assertFalse(os.path.exists(home.at("bin", "pwn")) or os.path.exists("/pwn"))


if __name__ == "__main__":
    unittest.main()
