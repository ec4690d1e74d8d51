"""The recordings of real work: whole homes whose archives tell the story that stands beside them."""

import gzip
import os
import re
import shutil
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
RECORDINGS = os.path.join(HERE, "recordings")
sys.path.insert(0, os.path.join(os.path.dirname(HERE), "e2e"))
import check_home  # noqa: E402

SCENES = ("build", "descriptor-leak", "disk-fills", "packages")


class Recording:
    """A recording as the home that it was, and its samples: {counter and instance: [(time, per cent)]}."""

    def __init__(self, home, scene):
        shutil.copytree(os.path.join(RECORDINGS, scene), home)
        os.makedirs(os.path.join(home, "bin"))
        archive = os.path.join(home, "data", "LumetraArchive.txt")
        if not os.path.exists(archive):
            with gzip.open(archive + ".gz") as packed, open(archive, "wb") as file:
                shutil.copyfileobj(packed, file)
        self.layout = check_home.Layout(home)
        with open(os.path.join(home, "story.txt"), encoding="ascii") as file:
            self.story = [(int(moment), words.strip()) for moment, words in (line.split(" ", 1) for line in file)]
        numbers = {rid: (name[3].decode(), name[2].decode()) for name, rid in check_home.parse_scratch_pad(
            check_home.content(self.layout.scratch_pad))}
        self.samples = {}
        with open(archive, encoding="ascii") as file:
            for words in map(str.split, file):
                for number, value in zip(words[1::3], words[3::3]):
                    self.samples.setdefault(numbers[int(number)], []).append((int(words[0]), float(value)))

    def series(self, counter, instance=""):
        return next(samples for (name, where), samples in self.samples.items() if name == counter and instance in where)

    def moments(self, words):
        found = [moment for moment, told in self.story if words in told]
        if not found:
            raise AssertionError(f"the story does not tell of {words}")
        return found


def between(samples, begin, end):
    return [value for moment, value in samples if begin <= moment <= end]


class Recordings(unittest.TestCase):
    def recording(self, scene):
        folder = tempfile.TemporaryDirectory(prefix="lumetra-recording-")
        self.addCleanup(folder.cleanup)
        return Recording(os.path.join(folder.name, "home"), scene)

    def test_they_are_small_and_told_of(self):
        size = sum(os.path.getsize(os.path.join(folder, name)) for folder, _, names in os.walk(RECORDINGS) for name in names)
        self.assertLess(size, 1_000_000)
        with open(os.path.join(RECORDINGS, "README.md"), encoding="utf-8") as file:
            told = set(re.findall(r"^## `(.*)`$", file.read(), re.M))
        self.assertEqual(told, set(SCENES))
        self.assertEqual({name for name in os.listdir(RECORDINGS) if os.path.isdir(os.path.join(RECORDINGS, name))}, set(SCENES))

    def test_each_is_a_home_in_order_of_some_hundred_samples(self):
        for scene in SCENES:
            recording = self.recording(scene)
            self.assertEqual(check_home.check(recording.layout), [], scene)
            for name, samples in recording.samples.items():
                self.assertGreater(len(samples), 400, (scene, name))
                self.assertLessEqual(recording.story[0][0] - 5, samples[0][0] + 5)
                self.assertGreater(samples[-1][0], recording.story[-2][0])

    def test_the_disk_is_full_when_the_story_says(self):
        recording = self.recording("disk-fills")
        disk = recording.series("PercentFreeSpaceUsed", "recorded ")
        filled, emptied = recording.moments("the disk is full"), recording.moments("everything was removed")
        begun = recording.moments("files are copied")
        self.assertEqual((len(filled), len(emptied), len(begun)), (2, 2, 2))
        for begin, full, empty in zip(begun, filled, emptied):
            self.assertLess(max(between(disk, begin - 20, begin)), 5)
            self.assertGreater(min(between(disk, full + 2, empty - 2)), 99)
            self.assertLess(min(between(disk, empty, empty + 20)), 5)

    def test_descriptors_leak_until_the_program_ends(self):
        recording = self.recording("descriptor-leak")
        descriptors = recording.series("PercentFileDescriptorsUsed")
        begin, end = recording.moments("a program opens")[0], recording.moments("the program has ended")[0]
        self.assertLess(max(between(descriptors, begin - 20, begin)), 30)
        self.assertGreater(max(between(descriptors, begin, end)), 100)
        self.assertGreater(min(between(descriptors, end - 10, end - 2)), 100)
        self.assertLess(min(between(descriptors, end, end + 20)), 30)

    def test_a_build_takes_room_and_gives_it_back(self):
        recording = self.recording("build")
        disk = recording.series("PercentFreeSpaceUsed", "recorded ")
        begin, end, removed = (recording.moments(words)[0] for words in ("cmake configures", "the build has ended with 0", "was removed"))
        self.assertLess(max(between(disk, begin - 20, begin)), 1)
        self.assertGreater(max(between(disk, begin, end)), 5)
        self.assertLess(min(between(disk, removed, removed + 20)), 1)

    def test_packages_fill_a_disk_step_by_step(self):
        recording = self.recording("packages")
        disk = recording.series("PercentFreeSpaceUsed", "recorded ")
        self.assertEqual([words for _, words in recording.story if "could not be had" in words], [])
        moments = recording.moments("is downloaded")
        self.assertGreater(len(moments), 5)
        for before, after in zip(moments, moments[1:]):
            self.assertGreaterEqual(max(between(disk, after - 3, after)), min(between(disk, before - 3, before)))
        self.assertGreater(max(between(disk, moments[-1], moments[-1] + 60)), 20)


if __name__ == "__main__":
    unittest.main()
