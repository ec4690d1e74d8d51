"""What the library that is shipped is hardened with, read from the library itself, and what it may not call."""

import os
import pathlib
import platform
import re
import subprocess
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
LIBRARY = pathlib.Path(os.environ.get("LUMETRA_BUILD", ROOT / "build" / "release")) / "libObrinagent.so"

# The process is Java's: its locale, directory, environment, signals and end are not the library's to change; and no call
# that has a safer form. What stands here as "exit" is for the three sources that the house knows.
FORBIDDEN = """
    sprintf vsprintf strcpy stpcpy strcat strncat gets strtok tmpnam tempnam mktemp tmpfile asctime localtime gmtime ctime
    system popen fork vfork clone execl execlp execle execv execvp execve execvpe
    chdir fchdir chroot umask setuid setgid seteuid setegid setenv putenv unsetenv clearenv
    signal sigaction sigprocmask pthread_sigmask sigwait raise alarm setitimer
    abort _exit _Exit quick_exit pthread_exit pthread_kill atexit rand srand random srandom dlopen dlclose
""".split()


def readelf(*options):
    return subprocess.run(["readelf", "-W", *options, LIBRARY], capture_output=True, text=True, check=True).stdout


def called():
    """The functions that the library takes from others, in the names that a source calls them by."""
    text = subprocess.run(["nm", "-D", "--undefined-only", LIBRARY], capture_output=True, text=True, check=True).stdout
    names = {line.split()[-1].split("@")[0] for line in text.splitlines()}
    return {re.sub(r"^__(\w+)_chk$", r"\1", name) for name in names}, names


class Hardening(unittest.TestCase):
    def test_addresses_are_bound_at_once_and_read_only_from_then_on(self):
        self.assertIn("GNU_RELRO", readelf("--segments"))
        self.assertRegex(readelf("--dynamic"), r"\(FLAGS\)\s+BIND_NOW")

    def test_nothing_is_writable_and_executable(self):
        segments = re.findall(r"^\s+(LOAD|GNU_STACK)\s.*0x\w+ ([RWE ]{3}) 0x\w+$", readelf("--segments"), re.M)
        self.assertEqual({name for name, _ in segments}, {"LOAD", "GNU_STACK"})
        for name, flags in segments:
            self.assertFalse("W" in flags and "E" in flags, f"{name} is {flags}")
        self.assertNotIn("TEXTREL", readelf("--dynamic"))

    def test_libraries_are_found_where_the_system_has_them(self):
        self.assertNotRegex(readelf("--dynamic"), r"RPATH|RUNPATH")

    def test_stacks_and_buffers_are_watched(self):
        _, names = called()
        self.assertIn("__stack_chk_fail", names)
        self.assertLessEqual({"__snprintf_chk", "__vsnprintf_chk"}, names)

    @unittest.skipUnless(platform.machine() == "x86_64", "only this processor has such landing places")
    def test_a_jump_from_outside_lands_where_one_may(self):
        code = subprocess.run(["objdump", "-d", "--no-show-raw-insn", "--disassemble=JNI_OnLoad", LIBRARY],
                              capture_output=True, text=True, check=True).stdout
        self.assertRegex(code, r"<JNI_OnLoad>:\n\s+\w+:\s+endbr64")

    def test_no_thread_asks_the_loader_for_memory(self):
        # Where it is refused, the loader ends the process. What every thread has from its beginning is little.
        self.assertIn("STATIC_TLS", readelf("--dynamic"))
        _, names = called()
        self.assertNotIn("__tls_get_addr", names)
        size = re.search(r"^\s+TLS\s+0x\w+ 0x\w+ 0x\w+ 0x\w+ (0x\w+)", readelf("--segments"), re.M)
        self.assertLessEqual(int(size[1], 16), 128)

    def test_every_source_is_compiled_so(self):
        settings = (ROOT / "cmake" / "CompilerSettings.cmake").read_text()
        for option in ("-fstack-protector-strong", "-fstack-clash-protection", "-D_FORTIFY_SOURCE=2", "-ffp-contract=off"):
            self.assertIn(option, settings)

    def test_it_calls_nothing_that_changes_the_process_or_has_a_safer_form(self):
        plain, _ = called()
        self.assertGreater(len(plain), 100)
        self.assertEqual(plain & set(FORBIDDEN), set())


if __name__ == "__main__":
    unittest.main()
