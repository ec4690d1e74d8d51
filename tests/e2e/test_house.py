"""The rules of the house: floors, no circles, Java types and time in their rooms, no unsafe calls."""

import pathlib
import re
import subprocess
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
FOLDERS = ["support", "numeric", "agent", "resources", "acquisition", "prediction", "trendviewer", "diagnosis", "replay"]

FLOORS = [
    (1, r"support/.*|numeric/.*|prediction/modelSelection|agent/(debugLog|argumentlessFormat|serviceNotice|stopSync)"),
    (2, r"resources/(resourceRecords|resourceChain|chainReport|scratchPad.*|windowSizing)|agent/agentState"),
    (3, r"prediction/(eventDelivery|javaEventSink)|agent/errorExit"),
    (5, r"acquisition/samplingCycle|agent/agentConfig|prediction/(exhaustion|predictor|scorekeeper)"),
    (4, r"acquisition/.*|resources/.*|trendviewer/trendFiles|diagnosis/.*|prediction/trendFileFormat"),
    (7, r"agent/.*|trendviewer/trendViewer"),
    (6, r"replay/.*"),
]

JAVA = "com.quorin.sysmgt.tavl.LumetraAgent"

JNI_ROOMS = {"agent/Obrinagent", "agent/agentState", "agent/hostDoor", "prediction/javaEventSink", "support/jniSupport",
             "trendviewer/trendViewer"}

# Where memory is refused to the toolkit, and where it is called wrongly: its promises say so.
ENDS_THE_PROCESS = {"numeric/workArrays", "numeric/vectorKernels", "prediction/modelSelection"}


def sources():
    for folder in FOLDERS:
        yield from sorted((ROOT / folder).glob("*.h"))
        yield from sorted((ROOT / folder).glob("*.cpp"))


def room(path):
    return path.relative_to(ROOT).with_suffix("").as_posix()


def sources_of_the_library():
    return [path for path in sources() if path.suffix == ".cpp"]


def java_sources():
    return sorted((ROOT / "java" / "src").rglob("*.java"))


def words(text):
    return re.findall(r"\w+", text.lower())


def empty_tags(source):
    """The tags of Javadoc that repeat a name, or the text that they stand behind."""
    empty = []
    for comment in re.findall(r"/\*\*.*?\*/", source, re.S):
        text, *tags = re.split(r"(?<!\{)@(?=param|return|throws)", re.sub(r"^\s*\*+/?|/\*+|\*+/", "", comment, flags=re.M))
        for tag in tags:
            kind, *rest = words(tag)
            if kind == "param" and rest[1:] in (rest[:1], ["the"] + rest[:1]) or (
                    kind == "return" and set(rest) <= set(words(text))):
                empty.append("@" + " ".join(tag.split()))
    return empty


def includes(path):
    for name in re.findall(r'^#include "([^"]+)"', path.read_text(), re.M):
        yield ROOT / name


def floor(name):
    return next(number for number, rooms in FLOORS if re.fullmatch(rooms, name))


class House(unittest.TestCase):
    def test_there_is_something_to_check(self):
        self.assertGreater(len(list(sources())), 40)

    def test_a_file_includes_only_its_own_floor_or_a_lower_one(self):
        for path in sources():
            for included in includes(path):
                self.assertTrue(included.exists(), f"{path} includes {included}")
                self.assertLessEqual(floor(room(included)), floor(room(path)),
                                     f"{room(path)} reaches up to {room(included)}")

    def test_there_are_no_circles_between_headers(self):
        state = {}

        def visit(path, trail):
            if state.get(path) == "done":
                return
            self.assertNotEqual(state.get(path), "open", f"circle: {trail + [path.name]}")
            state[path] = "open"
            for included in includes(path):
                visit(included, trail + [path.name])
            state[path] = "done"

        for path in sources():
            if path.suffix == ".h":
                visit(path, [])

    def test_a_library_has_the_sources_of_one_floor_and_depends_on_libraries_before_it(self):
        text = (ROOT / "CMakeLists.txt").read_text()
        known = {}
        for name, sources, depends in re.findall(r"^lumetra_library\((\w+)\s+SOURCES ([^)]*?)(?:DEPENDS ([^)]*))?\)", text, re.M):
            files = [file for pattern in sources.split() for file in ROOT.glob(pattern)]
            self.assertTrue(files, name)
            floors = {floor(room(file)) for file in files}
            if name != "obrin_natives":
                self.assertEqual(len(floors), 1, f"{name} stands on the floors {floors}")
            self.assertLessEqual({d for d in depends.split() if d.startswith("obrin_")}, set(known), name)
            known[name] = files
        built = {file for files in known.values() for file in files}
        self.assertEqual({room(p) for p in sources_of_the_library()}, {room(p) for p in built})

    def test_java_types_appear_in_their_rooms_only(self):
        rooms = {room(path) for path in sources() if re.search(r"<jni\.h>|\bJNIEnv\b|\bjstring\b|\bjobject\b",
                                                              path.read_text())}
        self.assertEqual(rooms - JNI_ROOMS, set())

    def test_no_call_that_has_a_safer_form_here(self):
        unsafe = re.compile(r"\b(system|popen|v?fork|f?chdir|umask|setenv|putenv|unsetenv|signal|sigaction|sigprocmask|raise|"
                            r"abort|_exit|quick_exit|atexit|str[nt]?cpy|strn?cat|v?sprintf|gets|strtok|alloca|tmpnam|tempnam|"
                            r"mktemp|s?rand|asctime|ctime|localtime|gmtime)\s*\(")
        exits = re.compile(r"\bexit\s*\(")
        for path in sources():
            for line in path.read_text().splitlines():
                code = re.sub(r'"(\\.|[^"\\])*"', '""', line.split("//")[0])
                self.assertIsNone(unsafe.search(code), f"{path}: {line}")
                self.assertFalse(exits.search(code) and room(path) not in ENDS_THE_PROCESS, f"{path}: {line}")
                if "setlocale" in code:
                    self.assertIn("setlocale(LC_ALL, nullptr)", code, f"{path}: {line}")

    def test_time_enters_through_the_clock_only(self):
        past_it = re.compile(r"(?<![\w.>])(::|std::)?(time|gettimeofday|clock_gettime|clock|ftime|sleep|usleep|nanosleep|"
                             r"clock_nanosleep|pthread_cond_(timed|clock)wait)\s*\(|_clock::now\b|\bthis_thread::sleep|"
                             r"\bTIME_UTC\b|\bwait_(for|until)\s*\(")
        for text in ("std::time(nullptr)", "::time(&now)", "x = time(0)", "steady_clock::now()", "::sleep(1)", "usleep (5)",
                     "std::this_thread::sleep_for(x)", "::clock_gettime(CLOCK_REALTIME, &t)", "gettimeofday(&t, nullptr)"):
            self.assertIsNotNone(past_it.search(text), text)
        for path in sources():
            if room(path) == "support/clock":
                continue
            for line in path.read_text().splitlines():
                code = re.sub(r'"(\\.|[^"\\])*"', '""', line.split("//")[0])
                self.assertIsNone(past_it.search(code), f"{path}: {line}")

    def test_memory_and_files_are_taken_in_the_support_rooms_only(self):
        naked = re.compile(r"\bnew\s+\w|\b(malloc|calloc|realloc|fopen|delete)\b\s*[(\w]")
        for path in sources():
            if path.parent.name == "support" or room(path) == "numeric/workArrays":
                continue
            for line in path.read_text().splitlines():
                code = re.sub(r'"(\\.|[^"\\])*"', '""', line.split("//")[0])
                self.assertIsNone(naked.search(code), f"{path}: {line}")

    def test_the_library_alone_knows_the_grammar_of_the_declarations(self):
        # The words for people name some of the others; without these nobody can read an input.
        keywords = re.findall(r'constexpr std::string_view \w+ = "((?:\w+Resource|Find)\w+)";',
                              (ROOT / "resources" / "resourceTokens.h").read_text())
        self.assertEqual(len(keywords), 7)
        wording = "FindingKind.java"
        sources = list((ROOT / "java" / "src" / "main").rglob("*.java"))
        self.assertIn(wording, [path.name for path in sources])
        for path in sources:
            if path.name != wording:
                known = [word for word in keywords if re.search(rf"\b{word}\b", path.read_text())]
                self.assertEqual(known, [], f"{path} has a grammar of its own")

    def test_a_java_package_uses_only_those_before_it(self):
        order = ["text", "", "files", "events", "score", "resource", "watch", "http", "tell", "api", "metrics", "check",
                 "client", "doctor", "replay", "host"]
        root = ROOT.joinpath("java/src/main/java", *JAVA.split("."))
        found = {path.parent.relative_to(root).as_posix().replace(".", "") for path in root.rglob("*.java")}
        self.assertEqual(found, set(order))
        for path in root.rglob("*.java"):
            own = path.parent.relative_to(root).as_posix().replace(".", "")
            for package in re.findall(re.escape(JAVA) + r"(?:\.([a-z]+))?\.[A-Z]", path.read_text()):
                self.assertLessEqual(order.index(package), order.index(own), f"{path.name} uses {package or 'the top'}")

    def test_a_tag_of_javadoc_says_more_than_the_name_and_the_sentence_before_it(self):
        self.assertEqual(empty_tags("/** Reads.\n * @param item the item\n * @param size size\n * @param name a text\n */"),
                         ["@param item the item", "@param size size"])
        self.assertEqual(empty_tags("/**\n * The size of a {@code File}.\n *\n * @return the\n *     size\n */"),
                         ["@return the size"])
        self.assertEqual(empty_tags("/** The size. @return bytes */ /** Bytes, and more. */"), [])
        for path in java_sources():
            self.assertEqual(empty_tags(path.read_text()), [], path)

    def test_a_line_of_java_has_120_characters_at_most(self):
        for path in java_sources():
            for number, line in enumerate(path.read_text().splitlines(), 1):
                self.assertLessEqual(len(line), 120, f"{path}:{number}")

    def test_every_mutant_still_finds_its_line_and_its_test(self):
        checked = subprocess.run([sys.executable, ROOT / "tests" / "mutants" / "run", "--check"],
                                 capture_output=True, text=True)
        self.assertEqual(checked.returncode, 0, checked.stdout + checked.stderr)


if __name__ == "__main__":
    unittest.main()
