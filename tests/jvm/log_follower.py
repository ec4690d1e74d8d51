"""Follows the agent's log through its turning over, and tells apart what it says of each resource."""

import os
import re

CYCLE = re.compile(r"^\*+ TimeStamp = (\d+) ")
HEADING = re.compile(r"^(?:LogicalDisk|Percent\w+) (.*) Percent\w+: \d+/\d+ points ")


class LogFollower:
    """Reads on whenever it is asked. The log may be renamed meanwhile: the open file is read to its end first."""

    def __init__(self, path):
        self.path = path
        self.file = None
        self.lines = {}  # what was said of each instance, in order
        self.dated = []  # the same of all, as (time of the cycle, instance, line)
        self.now = None
        self.instance = None
        self.rest = ""

    def look(self):
        """Takes up what has been written since."""
        if self.file is None:
            try:
                self.file = open(self.path, "rb")
            except OSError:
                return
        turned_over = self.is_elsewhere()
        self.take(self.file.read())
        if turned_over:
            self.close()
            self.look()

    def is_elsewhere(self):
        try:
            return os.stat(self.path).st_ino != os.fstat(self.file.fileno()).st_ino
        except OSError:
            return True

    def take(self, data):
        *lines, self.rest = (self.rest + data.decode("latin-1")).split("\n")
        for line in lines:
            heading, cycle = HEADING.match(line), CYCLE.match(line)
            if cycle:
                self.now, self.instance = int(cycle[1]), None
            elif heading:
                self.instance = heading[1]
                self.lines.setdefault(self.instance, [])
            elif self.instance is not None:
                self.lines[self.instance].append(line)
                self.dated.append((self.now, self.instance, line))

    def told(self, instance):
        """The lines on an instance's notification."""
        self.look()
        return [line for line in self.lines.get(instance, ())
                if line.startswith(("Onset of", "Exhaustion notification", "Clearing intent", "No exhaustion"))]

    def holds(self, instance, start):
        return any(line.startswith(start) for line in self.told(instance))

    def number(self, instance, start):
        """The number at the end of the first line that starts so."""
        return next(float(line[len(start):]) for line in self.told(instance) if line.startswith(start))

    def close(self):
        if self.file is not None:
            self.file.close()
            self.file = None
