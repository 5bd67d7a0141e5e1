#!/usr/bin/env python3
"""What the scripts say about themselves, and about what they do not understand."""
import subprocess
import unittest

import tree

SCRIPTS = ["abi", "check", "check-includes", "demo", "fuzz", "install-packages", "mutate", "package", "reliability", "site",
           "test"]

# Script, its arguments, what the answer must name.
MISTAKES = [
    ("abi", ["--recrod"], "'--recrod'"),
    ("abi", ["libnorla"], "'libnorla'"),
    ("check", ["--quick"], "'--quick'"),
    ("check", ["docs", "tody"], "'tody'"),
    ("check-includes", ["--slef-test"], "--slef-test"),
    ("demo", ["--quick"], "'--quick'"),
    ("demo", ["s3"], "'s3'"),
    ("fuzz", [], "fuzz_utf8"),
    ("fuzz", ["--bilt", "fuzz_utf8", "1"], "'--bilt'"),
    ("fuzz", ["fuzz_utf9", "1"], "'fuzz_utf9'"),
    ("fuzz", ["fuzz_utf.", "1"], "'fuzz_utf.'"),
    ("fuzz", ["fuzz_utf8"], "seconds"),
    ("fuzz", ["fuzz_utf8", "20s"], "'20s'"),
    ("fuzz", ["fuzz_utf8", "-3"], "'-3'"),
    ("fuzz", ["fuzz_utf8", "0"], "'0'"),
    ("fuzz", ["fuzz_utf8", "99999999999"], "'99999999999'"),
    ("fuzz", ["fuzz_utf8", "1", "2"], "'2'"),
    ("fuzz", ["--all"], "seconds"),
    ("fuzz", ["--all", "fuzz_utf8"], "'fuzz_utf8'"),
    ("fuzz", ["--all", "3", "4"], "'4'"),
    ("fuzz", ["--all", "--jobs", "0", "3"], "'0'"),
    ("fuzz", ["--all", "--jobs"], "--jobs"),
    ("fuzz", ["--jobs", "2", "fuzz_utf8", "3"], "--jobs"),
    ("fuzz", ["--all", "--minimize", "fuzz_utf8"], "--minimize"),
    ("fuzz", ["--minimize"], "fuzz_utf8"),
    ("fuzz", ["--minimize", "fuzz_utf9"], "'fuzz_utf9'"),
    ("fuzz", ["--minimize", "fuzz_utf8", "3"], "'3'"),
    ("install-packages", [], "groups"),
    ("install-packages", ["--all"], "'--all'"),
    ("install-packages", ["build", "tets"], "'tets'"),
    ("mutate", ["--conut", "3"], "--conut"),
    ("mutate", ["--count", "-3"], "'-3'"),
    ("mutate", ["--count", "3x"], "'3x'"),
    ("mutate", ["--only", "kx/nothing"], "'kx/nothing'"),
    ("package", ["--ouptut", "x"], "'--ouptut'"),
    ("package", ["--output"], "--output"),
    ("package", ["--output", ""], "--output"),
    ("package", ["--output", "--quick"], "'--quick'"),
    ("package", ["x"], "'x'"),
    ("reliability", ["--rnus", "3"], "--rnus"),
    ("reliability", ["--runs", "0"], "'0'"),
    ("reliability", ["--runs"], "--runs"),
    ("reliability", ["50"], "'50'"),
    ("reliability", ["--fault", "stal"], "'stal'"),
    ("reliability", ["--fault", "s.all"], "'s.all'"),
    ("reliability", ["--fault"], "killed reset stall"),
    ("reliability", ["--verbose", "--protocol", "gopher"], "'gopher': http https ftp ftps sftp s3."),
    ("reliability", ["--direction", "sideways"], "'sideways': down up."),
    ("site", ["--opne"], "'--opne'"),
    ("site", ["one", "two"], "'two'"),
    ("site", [""], "''"),
    ("site", ["/"], "'/'"),
    ("test", ["--repaet", "3"], "'--repaet'"),
    ("test", ["--repeat"], "--repeat"),
    ("test", ["--repeat", "0"], "'0'"),
    ("test", ["--repeat", "three"], "'three'"),
    ("test", ["-R"], "-R"),
    ("test", ["Proxy"], "-R 'Proxy'"),
]


class ScriptUsageTest(tree.TreeTest):
    def setUp(self):
        super().setUp()
        for program in ("apt-get", "cmake", "ctest", "dpkg", "sudo"):
            self.stand_in(program)

    def test_help_is_printed_and_nothing_done(self):
        for script in SCRIPTS:
            for option in ("--help", "-h"):
                with self.subTest(script=script, option=option):
                    run = self.run_script(script, option)
                    self.assertRegex(run.stdout, f"^[Uu]sage: (scripts/)?{script}")
                    self.assertEqual((run.returncode, run.stderr, self.calls()), (0, "", []))

    def test_they_find_themselves_from_any_folder(self):
        decoy = self.folder / "elsewhere" / self.tree.name / "scripts"
        decoy.mkdir(parents=True)
        self.environment["CDPATH"] = str(self.folder / "elsewhere")
        for script in SCRIPTS:
            with self.subTest(script=script):
                run = subprocess.run([f"{self.tree.name}/scripts/{script}", "--help"], env=self.environment,
                                     cwd=self.folder, capture_output=True, text=True, timeout=60)
                self.assertRegex(run.stdout, "^[Uu]sage")
                self.assertEqual((run.returncode, run.stderr), (0, ""))

    def test_what_is_not_understood_is_named_and_nothing_done(self):
        for script, arguments, named in MISTAKES:
            with self.subTest(script=script, arguments=arguments):
                run = self.run_script(script, *arguments)
                self.assertIn(named, run.stderr)
                self.assertEqual((run.returncode, run.stdout, self.calls()), (2, "", []))


if __name__ == "__main__":
    unittest.main()
