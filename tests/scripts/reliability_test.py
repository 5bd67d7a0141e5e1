#!/usr/bin/env python3
"""tests/reliability with the real programs of the build folder NORLA_BUILD_DIR, and with some that do no work."""
import os
import pathlib
import shutil
import subprocess
import sys
import unittest

import tree

BUILD = pathlib.Path(os.environ["NORLA_BUILD_DIR"])
MEASURE = tree.TOP / "tests/reliability/measure.py"
PROTOCOLS = ["http", "https", "ftp", "ftps", "sftp", "s3"]


class ReliabilityTest(tree.TreeTest):
    def measure(self, *arguments, program=None):
        """Its exit status, and the rows by protocol and direction."""
        programs = {name: program or str(BUILD / "tests/live" / name) for name in ("file_downloader", "file_uploader")}
        run = subprocess.run([sys.executable, "-B", str(MEASURE), "--downloader", programs["file_downloader"],
                              "--uploader", programs["file_uploader"], "--only-ours", "--verbose", "--runs", "1",
                              *arguments],
                             env={**os.environ, "TMPDIR": str(self.temporary)}, stdin=subprocess.DEVNULL,
                             capture_output=True, text=True, timeout=300)
        tables = {}
        for line in run.stdout.splitlines():
            if line.startswith("| ") and not line.startswith("| Fault"):
                tables[title].append(line.split(" | ")[-1].strip(" |"))
            elif line.endswith((", down", ", up")):
                title = line
                tables[title] = []
        self.assertEqual(self.names_in(self.temporary), [])
        return run.returncode, tables, run.stderr

    def program(self, *lines):
        path = self.folder / "program"
        path.write_text("\n".join(["#!" + shutil.which("bash"), *lines]) + "\n")
        path.chmod(0o755)
        return str(path)

    def test_files_survive_in_both_directions_over_each_protocol(self):
        faults = ["truncated", "changed", "killed"]
        status, tables, errors = self.measure(*[word for fault in faults for word in ("--fault", fault)], "--jobs", "8")
        self.assertEqual(status, 0, errors)
        titles = [f"{protocol.upper()}, {direction}" for direction in ("down", "up") for protocol in PROTOCOLS]
        self.assertEqual(tables, {title: ["1 done"] * 3 for title in titles}, errors)

    def test_a_file_that_is_not_there_is_wrong(self):
        for direction in ("down", "up"):
            status, tables, errors = self.measure("--direction", direction, "--protocol", "ftp", "--fault", "truncated",
                                                  program=self.program("exit 0"))
            self.assertEqual((status, *tables.values()), (1, ["**1 wrong**"]))
            self.assertIn("wrong, --fault truncated, run 0", errors)

    def test_what_is_not_the_file_may_not_have_its_name(self):
        status, tables, _ = self.measure("--direction", "down", "--protocol", "http", "--fault", "reset",
                                         program=self.program('echo x | tee "$2"', "exit 1"))
        self.assertEqual((status, *tables.values()), (1, ["1 left"]))

    def test_an_error_has_words(self):
        arguments = ["--direction", "down", "--protocol", "http", "--fault", "reset"]
        self.assertEqual(self.measure(*arguments, program=self.program("exit 1"))[1], {"HTTP, down": ["**1 mute**"]})
        status, tables, _ = self.measure(*arguments, program=self.program("echo no", "exit 1"))
        self.assertEqual((status, tables), (0, {"HTTP, down": ["1 error"]}))

    def test_a_crash_is_told(self):
        status, tables, _ = self.measure("--direction", "up", "--protocol", "http", "--fault", "reset",
                                         program=self.program("kill -SEGV $$"))
        self.assertEqual((status, tables), (1, {"HTTP, up": ["**1 crash**"]}))


if __name__ == "__main__":
    unittest.main()
