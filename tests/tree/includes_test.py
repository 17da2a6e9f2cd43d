"""A part of the tree includes what is below it, and nothing above; a packet's path includes neither faults, nor the
tracer, nor the framework."""
import pathlib
import re
import unittest

TOP = pathlib.Path(__file__).resolve().parents[2]
PARTS = ("apps", "fastpath", "include", "net", "platform", "probe", "sim")
FOLDERS_OF_HEADERS = ("", "include/", "platform/", "sim/")
INCLUDE = re.compile(r'^#include "([^"]+)"', re.MULTILINE)

PROCESSOR = r"sim/olv_sim/processor\.hpp"
INTERFACES = r"(include|platform)/[^/]+\.h"
# For the files of a part, what of the tree they may include themselves.
FLOORS = {
    r"net/.*": r"net/.*",
    r"fastpath/core/.*": rf"fastpath/core/.*|net/.*|{PROCESSOR}|{INTERFACES}",
    r"fastpath/udp/.*": rf"fastpath/(core|udp)/.*|net/.*|{PROCESSOR}",
    r"fastpath/[^/]*": r"fastpath/.*|net/.*",
    r"probe/.*": r"(probe|net)/.*",
    r"apps/.*": rf"(apps|net|probe|sim)/.*|{INTERFACES}|fastpath/fast_path\.hpp",
}


def sources():
    """Texts of the files of all parts, by path."""
    paths = (path for part in PARTS for path in (TOP / part).rglob("*") if path.suffix in (".cpp", ".h", ".hpp"))
    return {path.relative_to(TOP).as_posix(): path.read_text(encoding="utf-8") for path in paths}


def includes(files, path):
    """Files of the tree that a file includes itself."""
    folders = (path.rpartition("/")[0] + "/",) + FOLDERS_OF_HEADERS
    for name in INCLUDE.findall(files[path]):
        yield from [folder + name for folder in folders if folder + name in files][:1]


def reached(files, path):
    """Files of the tree that compiling a file reads."""
    found, waiting = set(), [path]
    while waiting:
        for each in includes(files, waiting.pop()):
            if each not in found:
                found.add(each)
                waiting.append(each)
    return found


def above_their_floor(files):
    """Pairs of files of which the first one may not include the second one."""
    return [
        (path, each)
        for path in files
        for floor, allowed in FLOORS.items()
        if re.fullmatch(floor, path)
        for each in includes(files, path)
        if not re.fullmatch(allowed, each)
    ]


class IncludesTest(unittest.TestCase):
    def test_nothing_includes_what_is_above_it(self):
        self.assertEqual(above_their_floor(sources()), [])

    def test_a_packets_path_knows_nothing_of_the_platform_but_the_processor(self):
        files = sources()
        packet_path = [path for path in files if path.startswith("fastpath/")]
        self.assertGreater(len(packet_path), 30)
        of_platform = {each for path in packet_path for each in reached(files, path) if each.startswith("sim/")}
        self.assertEqual(of_platform, {"sim/olv_sim/processor.hpp"})

    def test_a_wrong_include_is_found(self):
        files = {
            "net/a.hpp": '#include "b.hpp"\n',
            "net/b.hpp": '#include <vector>\n#include "fastpath/core/c.hpp"\n',
            "fastpath/core/c.hpp": '#include "olv_sim/processor.hpp"\n',
            "sim/olv_sim/processor.hpp": '#include "olv_sim/faults.hpp"\n',
            "sim/olv_sim/faults.hpp": "",
        }
        self.assertEqual(above_their_floor(files), [("net/b.hpp", "fastpath/core/c.hpp")])
        self.assertIn("sim/olv_sim/faults.hpp", reached(files, "net/a.hpp"))


if __name__ == "__main__":
    unittest.main()
