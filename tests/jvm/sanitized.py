"""The library built with the address and undefined-behaviour sanitizers, for a real Java machine."""

import os
import subprocess
import unittest

_build = os.environ.get("LUMETRA_ASAN_BUILD", "")
NEEDS_ASAN = unittest.skipUnless(_build, "LUMETRA_ASAN_BUILD names no build with the address sanitizer")


def library():
    return os.path.join(os.path.abspath(_build), "libObrinagent.so")


def sanitized(home):
    """The environment of a machine: the run-time library of the sanitizer must come before everything else in a process."""
    name = subprocess.run(["g++", "-print-file-name=libasan.so"], capture_output=True, text=True).stdout.strip()
    return home.environment(LD_PRELOAD=os.path.realpath(name), ASAN_OPTIONS="handle_segv=0:detect_leaks=0:exitcode=77",
                            UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1")
