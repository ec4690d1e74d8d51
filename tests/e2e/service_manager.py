"""A service manager that only listens, and a machine that stops answering."""

import os
import socket
import struct
import threading

from agent_home import mount, umount, wait_until


# The kernel keeps ten messages that are not read yet, and loses the next: who waits for one that is sent but once has few sent.
SELDOM = 4000000


class ServiceSocket:
    """Takes messages as systemd does: with the number of the process that sent them."""

    def __init__(self, name, watchdog=400000):
        self.name = name
        self.watchdog = watchdog
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_PASSCRED, 1)
        self.socket.bind("\0" + name[1:] if name.startswith("@") else name)
        self.messages = []
        self.senders = set()
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()

    def close(self):
        self.socket.shutdown(socket.SHUT_RDWR)
        self.reader.join()
        self.socket.close()

    def environment(self):
        return {"NOTIFY_SOCKET": self.name, "WATCHDOG_USEC": str(self.watchdog)}

    def read(self):
        while True:
            message, credentials, _, _ = self.socket.recvmsg(8192, socket.CMSG_SPACE(struct.calcsize("3i")))
            if not message:
                return
            self.senders.add(struct.unpack("3i", credentials[0][2])[0])
            self.messages.append(message.decode().split("\n"))

    def lines(self):
        """All that was told so far."""
        return [line for message in list(self.messages) for line in message]

    def signs(self):
        return self.lines().count("WATCHDOG=1")

    def signs_so_far(self):
        """The signs of life of all that was sent before, also of what waits to be read."""
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as own:
            own.sendto(b"so far", self.socket.getsockname())
        self.await_line("so far")
        return self.signs()

    def await_signs(self, count):
        """Waits for so many further signs of life."""
        before = self.signs()
        wait_until(lambda: self.signs() >= before + count, f"{count} signs of life")

    def await_line(self, start):
        """The first line that starts so."""
        return wait_until(lambda: next((line for line in self.lines() if line.startswith(start)), None), f"a line {start}")


class Unanswered:
    """A file in whose place a file system is mounted that never answers."""

    def __init__(self, path):
        self.path = path
        self.device = os.open("/dev/fuse", os.O_RDWR)
        mount("unanswered", path, "fuse", 0, f"fd={self.device},rootmode=100444,user_id=0,group_id=0")

    @staticmethod
    def is_awaited_by(pid):
        """Whether one of the threads of a process waits for an answer of such a file system."""
        for thread in os.listdir(f"/proc/{pid}/task"):
            try:
                with open(f"/proc/{pid}/task/{thread}/stack", encoding="ascii") as file:
                    if "fuse" in file.read():
                        return True
            except OSError:
                pass
        return False

    def end(self):
        """Whoever waits for an answer is given an error."""
        if self.device is not None:
            umount(self.path)
            os.close(self.device)
            self.device = None
