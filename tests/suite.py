"""What the Python tests of all folders share: how they wait, what they leave to the long run, ports that are free."""

import atexit
import contextlib
import ctypes
import os
import random
import select
import signal
import socket
import time
import unittest

LONG = os.environ.get("LUMETRA_LONG") == "1"

# A test has no give-up time of its own: a busy machine would reach it. This one is that of a whole run, and only says what it
# was that hung.
DEADLINE = time.monotonic() + float(os.environ.get("LUMETRA_TEST_SECONDS", "4800" if not LONG else "14400"))
long_only = unittest.skipUnless(LONG, "long tier only: ./run-tests --long")

# In the background of a script it is ignored, and so would be in every program that a test starts and interrupts.
if signal.getsignal(signal.SIGINT) == signal.SIG_IGN:
    signal.signal(signal.SIGINT, signal.default_int_handler)


_libc = ctypes.CDLL(None)
PR_SET_PDEATHSIG = 1


def die_with_parent():
    """For a new process: when these tests are killed, it goes with them."""
    _libc.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


def has_ended(process):
    """Whether a program has ended. Its number stays its own, unlike after Popen.poll()."""
    return process.returncode is not None or os.waitid(os.P_PID, process.pid, os.WEXITED | os.WNOHANG | os.WNOWAIT) is not None


def await_end(process):
    """Whether a program has ended before the deadline of all tests. Its number stays its own, unlike after Popen.wait()."""
    if process.returncode is None:
        descriptor = os.pidfd_open(process.pid)
        try:
            return bool(select.select([descriptor], [], [], remaining())[0])
        finally:
            os.close(descriptor)
    return True


def end_group(process):
    """Ends a program that leads a group, and what it left there. Only once: the number of what was awaited is another's soon."""
    if process.returncode is None:
        with contextlib.suppress(ProcessLookupError, PermissionError):
            os.killpg(process.pid, signal.SIGKILL)
        process.wait()


def remaining():
    """Seconds until the deadline, for a call that wants a number."""
    return max(0.1, DEADLINE - time.monotonic())


def wait_until(condition, what="it"):
    """Returns the condition's value once it is true. Looks less and less often: looking costs what is waited for."""
    pause = 0.005
    while not (value := condition()):
        if time.monotonic() > DEADLINE:
            raise AssertionError(f"{what} did not happen before the deadline of all tests")
        time.sleep(pause)
        pause = min(0.05, 1.2 * pause)
    return value


def often(ordinary, long):
    """How often to repeat something, or how large to make it: in an ordinary run and in a long one."""
    return long if LONG else ordinary


def some(items, count):
    """All of them in the long run, otherwise so many, spread over the whole."""
    items = list(items)
    return items if LONG or count >= len(items) else [items[i * len(items) // count] for i in range(count)]


_claims = []
atexit.register(lambda: [claim.close() for claim in _claims])


def free_port():
    """A port on which nobody listens and that no other test is given, nor the kernel gives away by itself."""
    while True:
        port = random.randrange(20000, 32000)
        claim = socket.socket(socket.AF_UNIX)
        try:
            claim.bind(f"\0lumetra-test-port-{port}")
            with socket.socket() as probe:
                probe.bind(("127.0.0.1", port))
        except OSError:
            claim.close()
            continue
        _claims.append(claim)
        return port
