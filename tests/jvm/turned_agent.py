"""An agent whose cycles wait for the test, and whose time of day the test turns: what a disk does in an hour, the agent sees
as it happens, however busy the machine is."""

import os
import select
import struct
import subprocess
import time

from java_host import TESTS, built_once, remaining
from agent_home import size, write


def time_shim():
    source = os.path.join(TESTS, "jvm", "turnedTime.c")
    directory = built_once("turnedTime", [source], lambda target: subprocess.run(
        ["gcc", "-O1", "-Wall", "-Wextra", "-Werror", "-shared", "-fPIC", "-o", os.path.join(target, "turnedTime.so"), source],
        check=True))
    return os.path.join(directory, "turnedTime.so")


class TurnedAgent:
    """Stands in for the df of a home's agent: it asks the test before it looks, and then only at one directory. The resources
    of the home must include disks."""

    def __init__(self, home, directory, now=None):
        self.home = home
        self.clock = os.open(home.at("clock"), os.O_RDWR | os.O_CREAT)
        self.turn_to(int(time.time()) if now is None else now)
        self.archived = 0
        for name in ("asked", "go"):
            os.mkfifo(home.at(name))
        self.asked, self.go = (os.open(home.at(name), os.O_RDWR) for name in ("asked", "go"))
        home.stub_df("", before=f"if [ ! -e ../free ]; then echo >../asked; read -r _ <../go; fi\n"
                     f"PATH=${{PATH#*:}} exec df \"$@\" '{directory}'")

    def environment(self):
        return self.home.environment(LD_PRELOAD=time_shim(), TURNED_TIME=self.home.at("clock"))

    def turn_to(self, seconds):
        self.now = seconds
        os.pwrite(self.clock, struct.pack("=q", seconds), 0)  # in place: a shorter file would kill who has mapped it

    def cycle(self, seconds=0, meanwhile=lambda: None):
        """Waits for the first look at the disk in the agent's next cycle; time goes by and something happens before it sees
        it. In the same cycle it may look again."""
        while True:
            if not select.select([self.asked], [], [], remaining())[0]:
                raise AssertionError("the agent does not look at its disks")
            os.read(self.asked, 1)
            archived = size(self.home.layout.archive)
            if archived > self.archived:
                break
            os.write(self.go, b"\n")
        self.archived = archived
        meanwhile()
        self.turn_to(self.now + seconds)
        os.write(self.go, b"\n")

    def release(self):
        """Lets the agent go on by itself, so that it can be ended."""
        write(self.home.at("free"), "")
        os.write(self.go, b"\n\n\n\n")

    def close(self):
        for file in (self.clock, self.asked, self.go):
            os.close(file)
