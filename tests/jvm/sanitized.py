"""The library built with the address and undefined-behaviour sanitizers, for a real Java machine."""

import os
import platform
import shutil
import subprocess
import unittest

_build = os.environ.get("LUMETRA_ASAN_BUILD", "")
NEEDS_ASAN = unittest.skipUnless(_build, "LUMETRA_ASAN_BUILD names no build with the address sanitizer")


def library():
    return os.path.join(os.path.abspath(_build), "libObrinagent.so")


def sanitized(home):
    """The environment of a machine: the run-time library of the sanitizer must come before everything else in a process."""
    compiler = shutil.which("clang-14") or "clang"
    name = f"libclang_rt.asan-{platform.machine()}.so"
    found = subprocess.check_output([compiler, f"-print-file-name={name}"], text=True).strip()
    return home.environment(LD_PRELOAD=os.path.realpath(found), ASAN_OPTIONS="handle_segv=0:detect_leaks=0:exitcode=77",
                            UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1")
