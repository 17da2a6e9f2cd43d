"""The commands of docs/tracing.md, run as they stand there, and the events that it shows.

    OLV_BUILD=build/dev python3 -B tests/lttng/guide_test.py
"""
import os
import re
import subprocess
import tempfile
import unittest
from pathlib import Path

from session_daemon import become_nobody_s, is_alive, plain, remove_wait_file, wait_for, without_places

BUILD = Path(os.environ["OLV_BUILD"]).resolve()
GUIDE = Path(__file__).parents[2] / "docs/tracing.md"


def blocks(kind):
    return re.findall(rf"^```{kind}\n(.*?)^```$", GUIDE.read_text(encoding="utf-8"), re.MULTILINE | re.DOTALL)


class Guide(unittest.TestCase):
    def setUp(self):
        self.folder = Path(self.enterContext(tempfile.TemporaryDirectory(prefix="olv-lttng-")))
        self.addCleanup(remove_wait_file)
        self.addCleanup(self.end_daemon)
        (self.folder / "build/release").mkdir(parents=True)
        (self.folder / "build/release/apps").symlink_to(BUILD / "apps")

    def end_daemon(self):
        """In case that the commands have not."""
        for file in self.folder.glob("*/.lttng/lttng-sessiond.pid"):
            process = int(file.read_text(encoding="utf-8"))
            if is_alive(process):
                os.kill(process, 15)
                wait_for(lambda process=process: not is_alive(process), "end of the session daemon")

    def test_the_commands_do_what_the_guide_shows(self):
        finished = subprocess.run(["bash", "-eu", "-o", "pipefail", "-c", "".join(blocks("sh"))], cwd=self.folder,
                                  env={**os.environ, "TMPDIR": str(self.folder)}, stdin=subprocess.DEVNULL,
                                  capture_output=True, text=True, timeout=120, check=False)
        self.assertEqual((finished.returncode, finished.stderr), (0, ""))
        events = [without_places(plain(line)) for line in finished.stdout.splitlines() if " olv_twamp:" in line]
        shown = [line for block in blocks("text") for line in block.splitlines() if line != "…"]
        self.assertGreater(len(shown), 10)
        for line in shown:
            with self.subTest(line):
                expected = without_places(plain(line.removesuffix("…")))
                self.assertTrue(any(event.startswith(expected) if line.endswith("…") else event == expected
                                    for event in events))
        self.assertEqual(sorted(path.name for path in self.folder.iterdir()), ["build"])


if __name__ == "__main__":
    become_nobody_s()
    unittest.main()
