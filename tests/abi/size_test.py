"""Code, constants and stack of the library, as built for the control processor.

    OLV_LIBRARY=... OLV_STACK_USAGE=DIRECTORY python3 tests/abi/size_test.py
"""
import os
import unittest
from pathlib import Path

from elftools.elf.elffile import ELFFile

CODE_AND_CONSTANTS_LIMIT = 12 * 1024
STACK_FRAME_LIMIT = 512
SOURCE_FILES = 7


class Size(unittest.TestCase):
    def test_code_and_constants_fit(self):
        with open(os.environ["OLV_LIBRARY"], "rb") as stream:
            elf = ELFFile(stream)
            sizes = {name: elf.get_section_by_name(name)["sh_size"] for name in (".text", ".rodata")}
        total = sum(sizes.values())
        print(f".text {sizes['.text']} + .rodata {sizes['.rodata']} = {total} bytes, limit {CODE_AND_CONSTANTS_LIMIT}")
        self.assertGreater(sizes[".text"], 0)
        self.assertGreater(sizes[".rodata"], 0)
        self.assertLessEqual(total, CODE_AND_CONSTANTS_LIMIT)

    def test_stack_frames_are_small_and_of_known_size(self):
        reports = list(Path(os.environ["OLV_STACK_USAGE"]).glob("*.su"))
        self.assertEqual(len(reports), SOURCE_FILES)
        frames = []
        for report in reports:
            for line in report.read_text(encoding="utf-8").splitlines():
                function, size, kind = line.rsplit("\t", 2)
                self.assertEqual(kind, "static", function)
                frames.append((int(size), function))
        size, function = max(frames)
        print(f"largest of {len(frames)} stack frames: {size} bytes, limit {STACK_FRAME_LIMIT}: {function[:150]}")
        self.assertLessEqual(size, STACK_FRAME_LIMIT)


if __name__ == "__main__":
    unittest.main()
