"""Which mounts are watched: real file systems of many kinds, mounted for the test alone, under rules and without."""

import fcntl
import os
import shutil
import struct
import subprocess
import tempfile
import threading
import unittest

from agent_home import (DISK_INODES, DISK_SPACE, FEW, MS_BIND, MS_RDONLY, MS_REMOUNT, AgentTest, declaration, mount,
                        needs_mounts, needs_tool, umount, write)

MS_MOVE = 8192
MEBIBYTE = 1024 * 1024
AUTOFS_PACKET = struct.Struct("iiIIQIIIII256s0Q")  # of linux/auto_fs.h: version, type, token, …
AUTOFS_IOC_FAIL = 0x9361


def files_below(directory):
    """Something to fill an image with."""
    os.makedirs(directory)
    write(os.path.join(directory, "file"), os.urandom(20000))
    return directory


class Mounted(AgentTest):
    """A test with mounts of its own, below one directory."""

    def setUp(self):
        self.base = tempfile.mkdtemp(prefix="lumetra-mounts-")
        self.addCleanup(shutil.rmtree, self.base, ignore_errors=True)

    def point(self, name):
        path = os.path.join(self.base, name)
        os.makedirs(path, exist_ok=True)
        return path

    def mounted(self, source, name, kind="", flags=0, options=""):
        point = self.point(name)
        mount(source, point, kind, flags, options)
        self.addCleanup(self.unmounted, point)
        return point

    def unmounted(self, point):
        try:
            umount(point)
        except OSError:
            pass

    def looped(self, image, name, options="rw"):
        """Mounts an image, if this machine can."""
        point = self.point(name)
        done = subprocess.run(["mount", "-o", "loop," + options, image, point], capture_output=True, text=True)
        if done.returncode:
            self.skipTest(f"this machine does not mount such an image: {done.stderr.strip()}")
        self.addCleanup(self.unmounted, point)
        return point

    def formatted(self, command, size):
        """An image of a writable file system, most of it a hole."""
        image = os.path.join(self.base, "image-" + command[0])
        write(image, "")
        os.truncate(image, size)
        subprocess.run([*command, image], check=True, capture_output=True)
        return image

    def squashfs(self):
        image = os.path.join(self.base, "image.squashfs")
        if not os.path.exists(image):
            subprocess.run(["mksquashfs", files_below(os.path.join(self.base, "snap")), image, "-quiet", "-no-progress"],
                           check=True, capture_output=True)
        return image

    def home_under(self, rules="", inputs=FEW + (DISK_SPACE, DISK_INODES)):
        """A home, and the driver's option that sets the rules."""
        home = self.home(inputs=inputs)
        write(home.at("config", "skip.conf"), rules)
        return home, ("--skip", home.at("config", "skip.conf"))

    def watched(self, home):
        """The mount points below the test's directory that have a number, without that directory."""
        points = {name[1].partition(" ")[2] for name in home.numbers() if name[0] == "LogicalDisk" and name[3] == -2}
        return {point[len(self.base) + 1:] for point in points if point.startswith(self.base + "/")}

    def sampled(self, home):
        """The same of those with a sample in the newest line."""
        newest = home.archive_lines()[-1][1]
        return {name for name in self.watched(home)
                if home.number_of(os.path.join(self.base, name)) in newest}


class Images(Mounted):
    @needs_mounts
    @needs_tool("mksquashfs")
    def test_a_squashfs_is_left_out_and_takes_no_number_but_without_a_host_it_is_watched_as_ever(self):
        self.looped(self.squashfs(), "snap", "ro")
        self.mounted("tmpfs", "memory", "tmpfs", 0, "size=1m")
        home, rules = self.home_under()
        self.run_agent(home, *rules, "--cycles", 3)
        self.assertEqual(self.watched(home), {"memory"})
        self.assertEqual(self.sampled(home), {"memory"})
        plain = self.home(inputs=FEW + (DISK_SPACE,))
        self.run_agent(plain, "--cycles", 2)
        self.assertEqual(self.sampled(plain), {"memory", "snap"})
        self.assertEqual(self.values_of(plain, plain.number_of(os.path.join(self.base, "snap")))[-1], "100.00")

    @needs_mounts
    @needs_tool("mkfs.erofs")
    def test_an_erofs_is_left_out(self):
        image = os.path.join(self.base, "image.erofs")
        subprocess.run(["mkfs.erofs", image, files_below(os.path.join(self.base, "files"))], check=True,
                       capture_output=True)
        self.looped(image, "erofs", "ro")
        home, rules = self.home_under()
        self.run_agent(home, *rules, "--cycles", 2)
        self.assertEqual(self.watched(home), set())

    @needs_mounts
    @needs_tool("mksquashfs")
    def test_an_image_whose_name_a_declaration_has_is_watched(self):
        point = self.looped(self.squashfs(), "snap", "ro")
        home, rules = self.home_under(inputs=FEW + (declaration("LogicalDisk", f"{source_of(point)} {point}", "PercentFreeSpaceUsed"),))
        self.run_agent(home, *rules, "--cycles", 2)
        self.assertEqual(self.sampled(home), {"snap"})

    @needs_mounts
    @needs_tool("mksquashfs")
    def test_nothing_is_left_out_where_the_table_of_mounts_cannot_be_read(self):
        self.looped(self.squashfs(), "snap", "ro")
        home, rules = self.home_under("fstype squashfs\n")
        self.run_agent(home, *rules, "--mount-info", home.at("nothing"), "--cycles", 2)
        self.assertEqual(self.sampled(home), {"snap"})


class Disks(Mounted):
    @needs_mounts
    @needs_tool("mkfs.xfs")
    def test_ext4_and_xfs_are_watched_and_one_that_becomes_read_only_stays(self):
        ext4 = self.looped(self.formatted(["mkfs.ext4", "-q"], 8 * MEBIBYTE), "ext4")
        self.looped(self.formatted(["mkfs.xfs", "-q"], 320 * MEBIBYTE), "xfs")
        home, rules = self.home_under()
        agent = self.running(home, *rules)
        agent.grows()
        self.assertEqual(self.sampled(home), {"ext4", "xfs"})
        number = home.number_of(ext4)
        mount("", ext4, "", MS_REMOUNT | MS_RDONLY)
        agent.grows()
        self.assertEqual(self.sampled(home), {"ext4", "xfs"})
        self.end(agent)
        self.assertEqual(home.number_of(ext4), number)

    @needs_mounts
    @needs_tool("mkfs.btrfs")
    def test_of_the_subvolumes_of_a_btrfs_the_first_is_watched_and_the_next_when_it_goes(self):
        image = self.formatted(["mkfs.btrfs", "-q"], 128 * MEBIBYTE)
        whole = self.looped(image, "whole")
        for name in ("home", "var"):
            subprocess.run(["btrfs", "subvolume", "create", os.path.join(whole, name)], check=True, capture_output=True)
        umount(whole)
        home_point = self.looped(image, "home", "subvol=home")
        var_point = self.mounted(source_of(home_point), "var", "btrfs", 0, "subvol=var")
        home, rules = self.home_under()
        agent = self.running(home, *rules)
        agent.grows()
        self.assertEqual(self.watched(home), {"home"})
        umount(home_point)
        agent.until(lambda: self.sampled(home) == {"var"}, "the other subvolume")
        self.end(agent)
        self.assertIsNotNone(home.number_of(var_point))

    @needs_mounts
    def test_a_bind_mount_is_the_same_disk_and_is_not_watched_twice(self):
        disk = self.mounted("tmpfs", "disk", "tmpfs", 0, "size=1m")
        self.mounted(disk, "again", "", MS_BIND)
        home, rules = self.home_under()
        self.run_agent(home, *rules, "--cycles", 2)
        self.assertEqual(len(self.watched(home)), 1)

    @needs_mounts
    def test_a_disk_that_is_moved_gets_a_number_of_its_new_place_and_its_old_one_there(self):
        here = self.mounted("tmpfs", "here", "tmpfs", 0, "size=1m")
        there = self.point("there")
        home, rules = self.home_under()
        agent = self.running(home, *rules)
        agent.until(lambda: home.archive_lines() and self.sampled(home) == {"here"}, "the disk")
        number = home.number_of(here)
        mount(here, there, "", MS_MOVE)
        self.addCleanup(self.unmounted, there)
        agent.until(lambda: self.sampled(home) == {"there"}, "the disk in its new place")
        mount(there, here, "", MS_MOVE)
        agent.until(lambda: self.sampled(home) == {"here"}, "the disk in its old place")
        self.end(agent)
        self.assertEqual(home.number_of(here), number)

    @needs_mounts
    @needs_tool("mksquashfs")
    def test_a_disk_that_an_image_takes_the_place_of_goes_and_returns_under_its_number(self):
        self.squashfs()
        point = self.mounted("tmpfs", "place", "tmpfs", 0, "size=1m")
        home, rules = self.home_under()
        agent = self.running(home, *rules)
        agent.until(lambda: home.archive_lines() and self.sampled(home) == {"place"}, "the disk")
        number = home.number_of(point)
        umount(point)
        self.looped(self.squashfs(), "place", "ro")
        agent.until(lambda: self.sampled(home) == set(), "its end")
        agent.grows()
        self.assertEqual(self.sampled(home), set())
        umount(point)
        mount("tmpfs", point, "tmpfs", 0, "size=1m")
        agent.until(lambda: self.sampled(home) == {"place"}, "its return")
        self.end(agent)
        self.assertEqual(home.number_of(point), number)
        self.assertEqual(self.watched(home), {"place"})


class Rules(Mounted):
    @needs_mounts
    def test_types_and_patterns_leave_out_what_they_match_and_nothing_else(self):
        self.mounted("tmpfs", "run", "tmpfs", 0, "size=1m")
        for name in ("media/My Disk", "media/deep/er", "other"):
            self.mounted("ramdisk", name, "tmpfs", 0, "size=1m")
        home, rules = self.home_under(f"mount {self.base}/media/*\nmount {self.base}/ru[m-o]  # sessions\nnonsense\n")
        self.run_agent(home, *rules, "--cycles", 2)
        self.assertEqual(self.sampled(home), {"media/deep/er", "other"})
        home, rules = self.home_under("fstype tmpfs\n")
        self.run_agent(home, *rules, "--cycles", 2)
        self.assertEqual(self.watched(home), set())

    @needs_mounts
    def test_hostile_names_are_matched_by_their_bytes(self):
        names = ["a b", "tab\there", "line\nfeed", "back\\slash", "#x", "*", "\udcff\udcfe", "é"]
        for name in [*names, "plain"]:
            self.mounted("tmpfs", "hostile/" + name, "tmpfs", 0, "size=4k")
        escaped = [name.replace("\\", "\\\\").replace("*", "\\*").replace("\n", "?") for name in names]
        text = "".join(f"mount {self.base}/hostile/{name}\n" for name in escaped)
        home, rules = self.home_under(os.fsencode(text))
        self.run_agent(home, *rules, "--cycles", 2)
        self.assertEqual(self.watched(home), {"hostile/plain"})

    @needs_mounts
    def test_three_hundred_overlays_of_containers_cost_no_number_and_no_sample(self):
        for name in ("lower", "upper", "work"):
            self.point("layers/" + name)
        self.mounted("tmpfs", "c", "tmpfs", 0, "size=4m,nr_inodes=20k")
        for number in range(300):
            for name in ("upper", "work"):
                self.point(f"c/{number}/{name}")
            layers = f"lowerdir={self.base}/layers/lower,upperdir={self.base}/c/{number}/upper,workdir={self.base}/c/{number}/work"
            try:
                self.mounted("overlay", f"c/{number}/merged", "overlay", 0, layers)
            except OSError as reason:
                self.skipTest(f"this machine mounts no overlay: {reason}")
        home, rules = self.home_under(f"mount {self.base}/c/*/merged\n")
        agent = self.running(home, *rules)
        agent.grows()
        self.assertEqual(self.watched(home), {"c"})
        self.mounted("tmpfs", "c/new", "tmpfs", 0, "size=1m")
        agent.until(lambda: self.sampled(home) == {"c", "c/new"}, "a disk among them")
        self.end(agent)


class Awkward(Mounted):
    @needs_mounts
    def test_autofs_is_not_watched_and_what_it_mounts_is(self):
        reader, writer = os.pipe()
        self.addCleanup(os.close, writer)
        try:
            point = self.mounted("automatic", "auto", "autofs", 0,
                                 f"fd={writer},pgrp={os.getpgrp()},minproto=5,maxproto=5,indirect")
        except OSError as reason:
            os.close(reader)
            self.skipTest(f"this machine has no autofs: {reason}")
        threading.Thread(target=refuse_to_mount, args=(reader, point), daemon=True).start()
        home, rules = self.home_under()
        agent = self.running(home, *rules)
        agent.grows()
        self.assertEqual(self.watched(home), set())
        disk = self.mounted("tmpfs", "auto/disk", "tmpfs", 0, "size=1m")
        agent.until(lambda: self.sampled(home) == {"auto/disk"}, "what autofs mounts")
        umount(disk)
        agent.until(lambda: self.sampled(home) == set(), "its end")
        self.end(agent)

    @needs_mounts
    def test_a_mount_that_never_answers_ends_no_cycle_and_once_it_is_gone_the_disks_are_read_again(self):
        disk = self.mounted("tmpfs", "disk", "tmpfs", 0, "size=1m")
        home, rules = self.home_under("fstype fuse\n", inputs=FEW + (DISK_SPACE,))
        agent = self.running(home, *rules)
        agent.until(lambda: home.archive_lines() and self.sampled(home) == {"disk"}, "the disk")
        write(os.path.join(disk, "half"), b"x" * (MEBIBYTE // 2))
        number = home.number_of(disk)
        agent.until(lambda: self.values_of(home, number)[-1] == "50.00", "a sample of the half")
        try:
            server = os.open("/dev/fuse", os.O_RDWR)
            silent = self.mounted("silent", "silent", "fuse", 0, f"fd={server},rootmode=40000,user_id=0,group_id=0")
        except OSError as reason:
            self.skipTest(f"this machine has no FUSE: {reason}")
        lines = len(home.archive_lines())

        def goes_on():
            """Whether there is a further line; time goes on while a listing is waited for."""
            if listings_of(agent.pid):
                agent.turn(10)
            return len(home.archive_lines()) > lines

        for _ in range(2):
            agent.until(lambda: listings_of(agent.pid), "a listing that hangs")
            agent.until(goes_on, "a cycle without a listing")
            lines = len(home.archive_lines())
            os.truncate(os.path.join(disk, "half"), 0)
        self.assertEqual(self.values_of(home, number)[-1], "50.00", "the disk stays as it was")
        os.close(server)  # whoever waits is answered with an error
        umount(silent)
        agent.until(lambda: self.values_of(home, number)[-1] == "0.00", "a listing again")
        self.end(agent)
        self.assertEqual(self.watched(home), {"disk"})


def refuse_to_mount(requests, point):
    """The daemon of an autofs that knows no name that it is asked for: a df may ask for a disk that is just gone."""
    with os.fdopen(requests, "rb", buffering=0) as stream:
        while packet := stream.read(AUTOFS_PACKET.size):
            directory = os.open(point, os.O_RDONLY)
            fcntl.ioctl(directory, AUTOFS_IOC_FAIL, AUTOFS_PACKET.unpack(packet)[2])
            os.close(directory)


def source_of(point):
    """The device that is mounted there."""
    return subprocess.run(["findmnt", "-nvo", "SOURCE", point], check=True, capture_output=True, text=True).stdout.strip()


def listings_of(pid):
    """The processes named df that this one has started."""
    done = subprocess.run(["ps", "--ppid", str(pid), "-o", "comm="], capture_output=True, text=True)
    return done.stdout.split().count("df")


if __name__ == "__main__":
    unittest.main()
