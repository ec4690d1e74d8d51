"""The agent on every Java that is installed: it starts as it is shipped, and no Java warns of what it does."""

import glob
import os
import re
import subprocess
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from java_host import COMPLAINTS, JAR, LIBRARY, PROGRAM, JavaTest, host_command, remaining  # noqa: E402


def installed_jdks():
    """One development kit of each version from 17 on: version to directory."""
    found = {}
    for directory in sorted(glob.glob("/usr/lib/jvm/*")):
        if not os.access(os.path.join(directory, "bin", "javac"), os.X_OK):
            continue
        told = subprocess.run([os.path.join(directory, "bin", "javac"), "-version"], capture_output=True, text=True)
        version = re.match(r"javac (\d+)", told.stdout)
        if version and int(version.group(1)) >= 17:
            found.setdefault(int(version.group(1)), os.path.realpath(directory))
    return found


JDKS = installed_jdks()


@unittest.skipUnless(len(JDKS) > 1, "only one version of the Java development kit is installed")
class JdksTest(JavaTest):
    def run_with(self, version, *command, **environment):
        """Runs a command with a Java that tells its version and checks native calls; what it printed without a warning."""
        done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              timeout=remaining(), env={**os.environ, "JAVA_HOME": JDKS[version], "LUMETRA_JAR": JAR,
                                                          "LUMETRA_LIBRARY": LIBRARY,
                                                          "JDK_JAVA_OPTIONS": "-showversion -Xcheck:jni", **environment})
        self.assertEqual(0, done.returncode, done.stdout)
        self.assertRegex(done.stdout, rf'version "{version}\b')
        for complaint in ("WARNING: ", *COMPLAINTS):
            self.assertNotIn(complaint, done.stdout)
        return done.stdout

    def test_the_start_script_gives_each_java_what_it_wants(self):
        checkout = self.checkout()
        path = os.pathsep.join([os.path.join(checkout, "bin"), os.environ["PATH"]])
        for version in JDKS:
            with self.subTest(java=version):
                home = os.path.join(checkout, f"home{version}")
                printed = self.run_with(version, os.path.join(checkout, "lumetra"), "run", "--home", home, "--for", "1",
                                        "--port", "0", PATH=path)
                self.assertIn("The agent has stopped after", printed)
                with open(os.path.join(home, "data", "LumetraArchive.txt"), encoding="ascii") as archive:
                    self.assertTrue(archive.readline())

    def test_the_other_commands_run_on_each_java(self):
        home = self.fresh_home(period=1000)
        machine, port = self.page(home)
        self.lines(machine, home, 1)
        for version in JDKS:
            with self.subTest(java=version):
                self.assertIn("Nothing found.", self.run_with(version, PROGRAM, "check", "--home", home.path))
                self.assertIn("PercentProcessesUsed", self.run_with(version, PROGRAM, "status", "--port", str(port)))

    @unittest.skipUnless(max(JDKS, default=0) >= 24, "no installed Java warns of native access")
    def test_a_java_that_is_not_told_warns(self):
        home = self.fresh_home(period=2000)
        java, *options = host_command(home, self.library, "--for", "1", program=("-jar", JAR))
        self.assertEqual("java", java)
        machine = self.start(home, [os.path.join(JDKS[max(JDKS)], "bin", "java"), *options])
        machine.end()
        self.assertRegex(machine.output(), r"WARNING: .*(native|restricted)")


if __name__ == "__main__":
    unittest.main()
