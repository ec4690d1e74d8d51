"""Follows the agent's log through its turning over, and tells apart what it says of each resource."""

import os
import re
import threading

HEADING = re.compile(r"^(?:LogicalDisk|Percent\w+) (.*) Percent\w+: \d+/\d+ points ")


class LogFollower:
    """Reads along on a thread. The log may be renamed at any time: the open file is read to its end first."""

    def __init__(self, path):
        self.path = path
        self.lines = {}  # what was said of each instance, in order
        self.instance = None
        self.rest = ""
        self.lock = threading.Lock()
        self.ended = threading.Event()
        self.thread = threading.Thread(target=self.follow, daemon=True)
        self.thread.start()

    def follow(self):
        file = None
        while not self.ended.wait(0.02):
            if file is None:
                try:
                    file = open(self.path, "rb")
                except OSError:
                    continue
            turned_over = self.is_elsewhere(file)
            self.take(file.read())
            if turned_over:
                file.close()
                file = None
        if file is not None:
            file.close()

    def is_elsewhere(self, file):
        try:
            return os.stat(self.path).st_ino != os.fstat(file.fileno()).st_ino
        except OSError:
            return True

    def take(self, data):
        *lines, self.rest = (self.rest + data.decode("latin-1")).split("\n")
        with self.lock:
            for line in lines:
                heading = HEADING.match(line)
                if heading:
                    self.instance = heading[1]
                    self.lines.setdefault(self.instance, [])
                elif self.instance is not None:
                    self.lines[self.instance].append(line)

    def told(self, instance):
        """The lines on an instance's notification."""
        with self.lock:
            return [line for line in self.lines.get(instance, ())
                    if line.startswith(("Onset of", "Exhaustion notification", "Clearing intent", "No exhaustion"))]

    def holds(self, instance, start):
        return any(line.startswith(start) for line in self.told(instance))

    def number(self, instance, start):
        """The number at the end of the first line that starts so."""
        return next(float(line[len(start):]) for line in self.told(instance) if line.startswith(start))

    def end(self):
        self.ended.set()
        self.thread.join()
