"""An archive of the host's classes, with which the Java machines of the tests start in two thirds of the time.

Run as a program, it makes the archive of LUMETRA_JAR. Only the tests have one: of an archive that a full disk has cut short a
machine would die.
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import zipfile

HERE = os.path.dirname(os.path.abspath(__file__))


def words_of(jar):
    """The class path of a jar, as a machine reads it, and the class that it begins with."""
    with zipfile.ZipFile(jar) as file:
        manifest = file.read("META-INF/MANIFEST.MF").decode().replace("\r\n", "\n").replace("\n ", "")
    attributes = dict(re.findall(r"^([\w-]+): (.*)$", manifest, re.MULTILINE))
    return ":".join([jar, *attributes["Class-Path"].split()]), attributes["Main-Class"]


def archive_of(jar):
    return jar.removesuffix(".jar") + ".jsa"


def program_of(jar):
    """What to write behind a machine's options for it to run the jar, from the archive when there is one of just this jar."""
    archive = archive_of(jar)
    if not os.path.exists(archive) or os.path.getmtime(archive) < os.path.getmtime(jar):
        return ("-jar", jar)
    path, main = words_of(jar)
    return (f"-XX:SharedArchiveFile={archive}", "-cp", path, main)


def main():
    jar = os.path.abspath(os.environ["LUMETRA_JAR"])
    with tempfile.TemporaryDirectory(dir=os.path.dirname(jar)) as directory:
        made = os.path.join(directory, "archive")
        path, _ = words_of(jar)
        subprocess.run(["java", "-XX:+UseSerialGC", "-XX:TieredStopAtLevel=1", f"-XX:ArchiveClassesAtExit={made}", "-Xlog:cds=off",
                        "-Xlog:cds+dynamic=off", "-cp", path, os.path.join(HERE, "java", "LoadClasses.java"), jar],
                       stderr=subprocess.DEVNULL, check=False)  # it ends as the command does that it runs: nobody answers
        os.replace(made, archive_of(jar))


if __name__ == "__main__":
    sys.exit(main() if shutil.which("javac") else 0)
