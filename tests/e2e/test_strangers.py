"""Strangers on the machine: whatever they plant under the names of the agent's files, it writes nowhere else, waits for nobody and
reads nothing of theirs."""

import os
import shutil
import socket
import stat
import unittest

from agent_home import DISK_SPACE, FEW, HEADING, AgentTest, Running, read, write

STRANGER = 65534
CYCLES = 201  # a forecast takes 200 samples
PERIOD = 1000
PRECIOUS = "precious\n"
SIDE_FILE = ".lumetra-0123456789abcdef"


def needs_root(test):
    return unittest.skipUnless(os.geteuid() == 0, "giving files away needs root")(test)


class Victim:
    """Somebody else's file and an empty place, neither of which the agent may touch."""

    def __init__(self, directory):
        self.directory = directory
        os.makedirs(directory)
        self.file = os.path.join(directory, "file")
        self.nothing = os.path.join(directory, "nothing")
        write(self.file, PRECIOUS)
        os.chmod(self.file, 0o600)
        self.before = self.state()

    def state(self):
        held = os.stat(self.file)
        return held.st_mode, held.st_uid, held.st_gid, read(self.file), sorted(os.listdir(self.directory))


def plant_socket(path, _):
    bound = socket.socket(socket.AF_UNIX)
    bound.bind(path)
    bound.close()


KINDS = {
    "link": lambda path, victim: os.symlink(victim.file, path),
    "dangling link": lambda path, victim: os.symlink(victim.nothing, path),
    "link to itself": lambda path, _: os.symlink(os.path.basename(path), path),
    "pipe": lambda path, _: os.mkfifo(path, 0o666),
    "socket": plant_socket,
    "directory": lambda path, _: os.mkdir(path),
    "device": lambda path, _: os.mknod(path, stat.S_IFCHR | 0o666, os.makedev(1, 7)),  # /dev/full
    "file": lambda path, _: (write(path, "1 1 0 99.00 \n"), os.chmod(path, 0o666)),
    "further name": lambda path, victim: os.link(victim.file, path),
}
# Nobody but the agent's user and root can put these into a directory of the agent's own, so there they are its own.
ONLY_WHERE_ALL_MAY_WRITE = ("file", "further name")
DIRECTORIES = {"the agent's own": 0o755, "open to all": 0o777, "open to all and sticky": 0o1777}


class StrangersTest(AgentTest):
    def stub(self, home):
        home.stub_df(HEADING + "/dev/a 1000000 250000 750000 25% /\n")

    def grown_home(self, **config):
        """A home whose next run, if it resumes, writes every file that there is in its first cycle."""
        home = self.home(inputs=(*FEW, DISK_SPACE), period=PERIOD, **config)
        self.stub(home)
        self.run_agent(home, "--cycles", CYCLES)
        return home

    def copied_home(self, source):
        home = self.home(inputs=(*FEW, DISK_SPACE), period=PERIOD)
        self.stub(home)
        for name in ("archive.txt", "scratch.txt"):
            shutil.copy(source.at("data", name), home.at("data", name))
        return home

    def asleep(self, home):
        """A run in the sleep behind its first cycle, with forecasts."""
        begin = home.archive_lines()[-1][0] + 60
        agent = self.running(home, "--resume", "--time", begin, clock="held")
        agent.until(lambda: agent.output().count("sleep\t") == 1, "the first sleep")
        return agent

    def one_cycle(self, agent):
        slept = agent.output().count("sleep\t")
        agent.turn(PERIOD // 1000)
        agent.until(lambda: agent.output().count("sleep\t") > slept, "a whole cycle")

    def plant(self, kind, path, victim, is_strangers):
        """Puts it in the place of what is there, in one step where that can be done."""
        if os.path.lexists(path):
            os.rename(path, path + ".kept")
        KINDS[kind](path, victim)
        if is_strangers and kind != "further name":
            os.lchown(path, STRANGER, STRANGER)

    def take_away(self, kind, path):
        (os.rmdir if kind == "directory" else os.unlink)(path)
        if os.path.lexists(path + ".kept"):
            os.rename(path + ".kept", path)

    def in_every_place(self, test, directories=("open to all",)):
        """Each kind in each of these sorts of directories; a subtest each."""
        for where, mode in ((name, DIRECTORIES[name]) for name in directories):
            for kind in KINDS:
                if where != "the agent's own" or kind not in ONLY_WHERE_ALL_MAY_WRITE:
                    with self.subTest(kind=kind, directory=where):
                        test(kind, mode)


@needs_root
class Planted(StrangersTest):
    def setUp(self):
        self.source = self.grown_home()

    def home_with(self, mode):
        home = self.copied_home(self.source)
        for name in ("bin", "log", "tempdata", "data"):
            os.chmod(home.at(name), mode)
        return home, Victim(home.at("victim"))

    def test_what_lies_under_the_name_of_any_file_is_neither_followed_nor_waited_for_nor_read(self):
        self.in_every_place(self.look_at_every_file, DIRECTORIES)

    def look_at_every_file(self, kind, mode):
        home, victim = self.home_with(mode)
        agent = self.asleep(home)
        data = sorted(name for name in os.listdir(home.at("data")) if name.endswith((".ini", ".gnp", ".cul")))
        self.assertEqual(len(data), 3 * 3 + 2, data)
        planted = [home.layout.archive, home.layout.scratch_pad, home.at("tempdata", "LumetraDisks.txt"),
                   *(home.at("data", name) for name in data)]
        for path in planted:
            self.plant(kind, path, victim, mode != 0o755)
        before = {path: os.lstat(path).st_ino for path in planted}
        told = len(agent.output())
        self.one_cycle(agent)

        self.assertEqual(victim.state(), victim.before)
        self.assertEqual({path: os.lstat(path).st_ino for path in planted}, before, "they are left alone")
        events = agent.output()[told:]
        self.assertIn("Call To RawDataRetrievalAndArchive Failed", events)
        for text in ("Cannot Open BM.ini File", "Cannot Open BMPRD.gnp File", "Cannot Open BMSMP.gnp File"):
            self.assertEqual(events.count(text), 3)
        for path in (home.layout.archive, home.at("tempdata", "LumetraDisks.txt")):
            self.assertIn(os.path.basename(path) + ": cannot be opened: ", home.log())
        self.assertIn(".cul, w) failed\n", home.log())

        for path in planted:
            self.take_away(kind, path)
        lines = len(home.archive_lines())
        self.one_cycle(agent)
        self.assertEqual(home.archive_lines()[lines][1].keys(), home.archive_lines()[lines - 1][1].keys())
        self.assertEqual(home.archive_lines()[lines][1][home.number_of("/")], "25.00")
        self.end(agent)
        self.assertEqual(victim.state(), victim.before)

    def test_the_log_is_lost_rather_than_written_elsewhere_and_comes_back(self):
        self.in_every_place(self.look_at_the_log)

    def look_at_the_log(self, kind, mode):
        home, victim = self.home_with(mode)
        self.plant(kind, home.layout.log, victim, mode != 0o755)
        before = os.lstat(home.layout.log).st_ino
        agent = self.asleep(home)
        self.assertIn("The log cannot be written: ", agent.output())
        self.assertEqual(os.lstat(home.layout.log).st_ino, before)
        self.assertEqual(victim.state(), victim.before)
        self.take_away(kind, home.layout.log)
        self.one_cycle(agent)
        self.assertIn("TimeStamp = ", home.log())
        self.end(agent)

    def test_what_lies_under_the_name_of_the_logs_backup_gives_way(self):
        self.in_every_place(self.look_at_the_backup)

    def look_at_the_backup(self, kind, mode):
        home, victim = self.home_with(mode)
        backup = home.layout.log + ".bak"
        agent = self.asleep(home)
        self.plant(kind, backup, victim, mode != 0o755)
        os.truncate(home.layout.log, 1000001)
        self.one_cycle(agent)
        self.assertEqual(victim.state(), victim.before)
        self.assertEqual(stat.S_IFMT(os.lstat(backup).st_mode), stat.S_IFREG)
        self.assertEqual(os.path.getsize(backup), 1000001)
        os.truncate(backup, 0)
        self.end(agent)

    def test_the_work_file_of_the_trimming_is_always_a_new_one(self):
        self.in_every_place(self.look_at_the_trimming)

    def look_at_the_trimming(self, kind, mode):
        home, victim = self.home_with(mode)
        home.configure(period=PERIOD, megabytes=1)
        line = home.snapshot()["archive"].split(b"\n")[0] + b"\n"
        write(home.layout.archive, line * (1200 * 1024 // len(line)))
        self.plant(kind, home.at("bin", "temp"), victim, mode != 0o755)
        result = Running(home, "--cycles", 1).finish()
        self.assert_ended_well(result)
        self.assertEqual(victim.state(), victim.before)
        if kind == "directory":
            self.assertIn("Cannot Open Temp File For Database Trimming", result.fatal())
        else:
            self.assertFalse(os.path.lexists(home.at("bin", "temp")))
            self.assertLess(os.path.getsize(home.layout.archive), 1.1 * 2**20)
        self.assertEqual(stat.S_IFMT(os.lstat(home.layout.archive).st_mode), stat.S_IFREG)

    def test_a_start_takes_planted_trend_files_away_and_leaves_what_looks_like_its_side_files(self):
        self.in_every_place(self.look_at_the_start)

    def look_at_the_start(self, kind, mode):
        home, victim = self.home_with(mode)
        trend, side = home.at("data", "PercentProcessesUsed_TotalBM.ini"), home.at("data", SIDE_FILE)
        to_own = home.at("data", "PercentProcessesUsed.cul")
        os.symlink("archive.txt", to_own)
        for path in (trend, side):
            self.plant(kind, path, victim, mode != 0o755)
        begin = home.archive_lines()[-1][0] + 60
        self.assert_ended_well(Running(home, "--cycles", 1, "--resume", "--time", begin).finish())
        self.assertEqual(victim.state(), victim.before)
        self.assertFalse(os.path.lexists(to_own), "a link to a file of the run's is no file of the run's")
        self.assertEqual(os.path.lexists(trend), kind == "directory")
        self.assertEqual(os.path.lexists(side), kind not in ("file", "further name"))


@needs_root
class Given(StrangersTest):
    """The files that people write for the agent."""

    def given(self, home):
        return {"configuration": home.at("config", "AutoConfig.ini"), "declarations": home.layout.declarations}

    def test_a_link_of_an_operator_is_read_and_rewritten_through(self):
        home = self.home()
        os.mkdir(home.at("managed"))
        for name, path in self.given(home).items():
            os.rename(path, home.at("managed", name))
            os.symlink("../managed/" + name, path)
        self.run_agent(home, "--cycles", 2)
        for path in self.given(home).values():
            self.assertTrue(os.path.islink(path))
        self.assertTrue(read(home.at("managed", "declarations")).startswith("/** Updated on"))
        self.assertEqual(sorted(os.listdir(home.at("config"))), ["AutoConfig.ini", "resources.txt"])

    def test_a_link_whose_target_is_away_for_a_while_stays_a_link(self):
        home = self.home(period=PERIOD)
        target = home.at("managed.txt")
        os.rename(home.layout.declarations, target)
        os.symlink(target, home.layout.declarations)
        agent = self.running(home, clock="held")
        agent.until(lambda: agent.output().count("sleep\t") == 1, "the first sleep")
        os.rename(target, target + ".away")
        self.one_cycle(agent)
        self.assertTrue(os.path.islink(home.layout.declarations))
        self.assertFalse(os.path.exists(target))
        self.assertIn("Cannot rewrite ../config/resources.txt, the old file stays: No such file or directory\n", home.log())
        os.rename(target + ".away", target)
        before = read(target)
        self.one_cycle(agent)
        self.assertTrue(os.path.islink(home.layout.declarations))
        self.assertNotEqual(read(target), before)
        self.end(agent)

    def test_where_everybody_may_write_only_links_and_files_of_root_and_the_agent_count(self):
        for mode in (0o777, 0o1777):
            for kind in ("link", "file", "further name"):
                for name in ("configuration", "declarations"):
                    with self.subTest(mode=oct(mode), kind=kind, name=name):
                        home = self.home()
                        path = self.given(home)[name]
                        held = home.at("held")
                        os.rename(path, held)
                        os.chmod(home.at("config"), mode)
                        {"link": os.symlink, "file": shutil.copy, "further name": os.link}[kind](held, path)
                        if kind != "further name":
                            os.lchown(path, STRANGER, STRANGER)
                        result = Running(home, "--cycles", 1).finish()
                        self.assert_ended_well(result)
                        self.assertEqual(result.fatal(), ["Cannot open ../config/AutoConfig.ini file. Use Configure Wizard."]
                                         if name == "configuration" else ["Call To validateResourceText Failed"])
                        os.unlink(path)
                        os.symlink(held, path)  # root's
                        self.assertEqual(Running(home, "--cycles", 1).finish().fatal(), [])

    def test_what_is_no_file_is_refused_with_the_texts_for_an_empty_one(self):
        texts = {"configuration": ["Premature EOF Trying To Read Data Home Directory"],
                 "declarations": ["Call To validateResourceText Failed"]}
        for kind in ("pipe", "device", "directory"):
            for name, fatal in texts.items():
                with self.subTest(kind=kind, name=name):
                    home = self.home()
                    path = self.given(home)[name]
                    os.unlink(path)
                    KINDS[kind](path, None)
                    result = Running(home, "--cycles", 1).finish()
                    self.assert_ended_well(result)
                    self.assertEqual(result.fatal()[:1], fatal)


class Modes(StrangersTest):
    def modes(self, home):
        return {os.path.relpath(os.path.join(directory, name), home.path): os.lstat(os.path.join(directory, name)).st_mode & 0o7777
                for directory, _, names in os.walk(home.path) for name in names}

    def run_with_umask(self, umask):
        old = os.umask(umask)
        try:
            home = self.grown_home(home="../data/deeper/")
            agent = self.asleep(home)
            modes = self.modes(home)
            modes["data/deeper"] = os.stat(home.at("data", "deeper")).st_mode & 0o7777
            self.end(agent)
        finally:
            os.umask(old)
        return modes

    def test_without_a_umask_nothing_is_for_others_to_write_and_what_names_processes_not_for_all_to_read(self):
        modes = self.run_with_umask(0)
        made = {name: mode for name, mode in modes.items() if name.split("/")[0] in ("log", "tempdata", "data")
                and name != "data/deeper"}
        self.assertGreater(len(made), 10, made)
        for name, mode in made.items():
            is_private = name.startswith("log/") or name.endswith(".cul")
            self.assertEqual(mode & 0o137, 0 if is_private else 0o004, f"{name} {mode:o}")
        self.assertEqual(modes["data/deeper"], 0o766)

    def test_the_umask_of_the_start_scripts_leaves_all_for_the_group_to_read_at_most(self):
        for name, mode in self.run_with_umask(0o027).items():
            if name == "data/deeper":
                self.assertEqual(mode, 0o740)
            elif name.split("/")[0] in ("log", "tempdata", "data"):
                self.assertEqual(mode, 0o640, name)

    def test_the_permissions_of_a_rewritten_file_stay_but_for_everybodys_to_write(self):
        home = self.home()
        os.chmod(home.layout.declarations, 0o666)
        self.run_agent(home, "--cycles", 1)
        self.assertEqual(os.stat(home.layout.declarations).st_mode & 0o7777, 0o664)


class Places(StrangersTest):
    def findings(self, home):
        self.run_agent(home, "--cycles", 1)
        return [line for line in home.log().split("\n") if line.endswith(", who could change what the agent does")]

    def test_a_home_of_its_own_is_nothing_to_tell_of(self):
        self.assertEqual(self.findings(self.home()), [])

    def test_what_others_may_write_is_told_once(self):
        home = self.home(resources="../more/resources.txt")
        os.makedirs(home.at("more"))
        os.rename(home.at("config", "resources.txt"), home.at("more", "resources.txt"))
        for name, mode in (("bin", 0o757), ("log", 0o1777), ("more", 0o775), ("config/AutoConfig.ini", 0o646), ("data", 0o766)):
            os.chmod(home.at(name), mode)
        told = [home.at(name) for name in ("bin", "config/AutoConfig.ini", "log", "more")]
        owner = os.geteuid()
        self.assertEqual(self.findings(home), [f"{path} can be written by others than its owner, user {owner}, who could change "
                                               "what the agent does" for path in told])

    @needs_root
    def test_what_belongs_to_others_and_what_lies_below_them_is_told(self):
        outer = self.home().path
        home = self.home(directory=os.path.join(outer, "home"))
        os.chown(home.at("data"), STRANGER, -1)
        self.assertEqual(self.findings(home), [f"{home.at('data')} belongs to user {STRANGER}, who could change what the agent does"])
        os.chown(home.at("data"), 0, -1)
        os.chown(outer, STRANGER, -1)
        self.assertEqual(self.findings(home), [f"{outer} belongs to user {STRANGER}, who could change what the agent does"])
        os.chown(outer, 0, -1)
        os.chmod(outer, 0o777)
        self.assertEqual(len(self.findings(home)), 1)
        os.chmod(outer, 0o1777)  # nobody takes the home away there
        self.assertEqual(self.findings(home), [])


class Environment(StrangersTest):
    def test_the_listing_sees_a_path_and_its_language_and_nothing_else(self):
        home = self.home(inputs=(DISK_SPACE,))
        home.stub_df(HEADING + "/dev/a 100 50 50 50% /\n", before=f"env >'{home.at('seen')}'")
        self.run_agent(home, "--cycles", 1, environment=home.environment(
            LD_LIBRARY_PATH="/nowhere", BASH_ENV="/nowhere", BLOCKSIZE="1M", SECRET="x"))
        seen = dict(line.split("=", 1) for line in read(home.at("seen")).splitlines())
        self.assertEqual(seen.keys() - {"PWD", "OLDPWD", "SHLVL", "_"}, {"PATH", "LC_ALL"})
        self.assertEqual(seen["LC_ALL"], "C")


if __name__ == "__main__":
    unittest.main()
