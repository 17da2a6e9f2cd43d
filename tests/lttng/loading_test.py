"""What of LTTng is loaded when, and what happens where it is not there.

    OLV_BUILD=build/dev python3 -B tests/lttng/loading_test.py
"""
import os
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

from elftools.elf.elffile import ELFFile

from session_daemon import PATIENCE, wait_for

BUILD = Path(os.environ["OLV_BUILD"])
TWAMPCTL = BUILD / "apps/twampctl"
PROVIDER = BUILD / "sim/libolv-sim-lttng.so"
LTTNG = "liblttng-ust.so.1"


def needed(file):
    with file.open("rb") as stream:
        dynamic = ELFFile(stream).get_section_by_name(".dynamic")
        return [tag.needed for tag in dynamic.iter_tags() if tag.entry.d_tag == "DT_NEEDED"]


class Loading(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.folder = Path(self.enterContext(tempfile.TemporaryDirectory(prefix="olv-lttng-")))

    def run_twampctl(self, *options, program=TWAMPCTL, **environment):
        """No session daemon has its home where the program looks for the user's."""
        return subprocess.run([program, "run", "--listen", "127.0.0.1:0", "--duration", "0", *options],
                              env={**os.environ, "LTTNG_HOME": str(self.folder), **environment}, cwd=self.folder,
                              capture_output=True, text=True, timeout=PATIENCE, check=False)

    def expect_refusal_of_a_copy(self, reason):
        """The program with its libraries, in a folder of its own."""
        for file in ("apps/twampctl", "sim/libolv-sim.so.1", "twamp/libolv-twamp.so.1"):
            shutil.copy(BUILD / file, self.folder)
        finished = self.run_twampctl("--trace", "lttng", program=self.folder / "twampctl",
                                     LD_LIBRARY_PATH=str(self.folder))
        self.assertEqual(finished.returncode, 1)
        self.assertEqual(finished.stdout, "")
        self.assertEqual(finished.stderr, f"twampctl: cannot trace to LTTng: {reason}\n")

    def loaded_by_a_run(self, *options):
        """Names of the libraries in the process once it is ready, without their versions."""
        path = self.folder / "output"
        with path.open("wb") as output, subprocess.Popen(
                [TWAMPCTL, "run", "--listen", "127.0.0.1:0", *options], stdout=output,
                env={**os.environ, "LTTNG_HOME": str(self.folder)}) as control:
            try:
                wait_for(lambda: "\nready " in path.read_text(), "ready")
                maps = Path(f"/proc/{control.pid}/maps").read_text(encoding="utf-8")
            finally:
                control.kill()
        return set(re.findall(r"/([^/\s]+)\.so[^/\s]*$", maps, re.MULTILINE))

    def test_only_the_provider_needs_lttng(self):
        self.assertIn(LTTNG, needed(PROVIDER))
        for file in ("sim/libolv-sim.so", "twamp/libolv-twamp.so", "apps/twampctl", "apps/twamp-probe"):
            with self.subTest(file):
                self.assertEqual([name for name in needed(BUILD / file) if "lttng" in name], [])

    def test_a_run_loads_nothing_of_lttng_unless_told_to(self):
        self.assertEqual({name for name in self.loaded_by_a_run() if "lttng" in name}, set())
        self.assertLessEqual({"libolv-sim-lttng", "liblttng-ust"}, self.loaded_by_a_run("--trace", "lttng"))

    def test_without_a_session_daemon_a_run_is_as_ever(self):
        usual = self.run_twampctl("--log-level", "3")
        # Should LTTng wait for a daemon, it is for longer than the run may take.
        traced = self.run_twampctl("--log-level", "3", "--trace", "lttng",
                                   LTTNG_UST_REGISTER_TIMEOUT=str(10 * PATIENCE * 1000))
        self.assertEqual((usual.returncode, traced.returncode, traced.stderr), (0, 0, ""))
        port = re.compile(r"(?<=127\.0\.0\.1:)\d+")
        self.assertEqual(port.sub("PORT", traced.stdout), port.sub("PORT", usual.stdout))

    def test_a_missing_provider_is_named(self):
        self.expect_refusal_of_a_copy(
            f"{self.folder}/libolv-sim-lttng.so: cannot open shared object file: No such file or directory; build with "
            "OLV_TWAMP_LTTNG=ON, for which Debian has liblttng-ust-dev")

    def test_a_missing_lttng_is_named(self):
        provider = PROVIDER.read_bytes()
        self.assertEqual(provider.count(LTTNG.encode()), 1)
        (self.folder / PROVIDER.name).write_bytes(provider.replace(LTTNG.encode(), b"liblttng-ust.so.0"))
        self.expect_refusal_of_a_copy(
            "liblttng-ust.so.0: cannot open shared object file: No such file or directory; install LTTng-UST, on "
            "Debian the package liblttng-ust1")

    def test_a_file_can_still_have_the_name(self):
        finished = self.run_twampctl("--trace", "./lttng")
        self.assertEqual(finished.returncode, 0)
        self.assertIn("trace entry twamp.c:", (self.folder / "lttng").read_text(encoding="utf-8"))


if __name__ == "__main__":
    unittest.main()
