#!/usr/bin/env python3
"""scripts/test and scripts/fuzz beside stand-ins for cmake, ctest and the fuzz targets."""
import os
import shutil
import signal
import unittest

import tree


class BuildingScriptTest(tree.TreeTest):
    def setUp(self):
        super().setUp()
        for program in ("cmake", "ctest"):
            self.stand_in(program)
        self.stand_in("dpkg-query", "echo all installed")
        for package in tree.UNPACKED:
            (self.home / ".cache/norla-test-packages" / package).mkdir(parents=True)

    def signalled(self, script, *arguments, send):
        """Starts the script, waits until a stand-in has made the file "started", and sends the signal."""
        process = self.start_script(script, *arguments)
        self.assertTrue(tree.wait_until((self.folder / "started").exists), "it has not started")
        send(process.pid)
        output, _ = process.communicate(timeout=30)
        (self.folder / "started").unlink()
        self.assertEqual(self.names_in(self.temporary), [])
        self.assertEqual(tree.processes_of(process.pid, self.folder), [])
        return process.returncode, output

    def works_until_ended(self, *more):
        """Lines of a program that keeps files in the temporary folder, has a program of its own and does not end."""
        return [*more, 'mkdir "$TMPDIR/mine"', 'sleep 60 &', f'touch "{self.folder}/started"', "wait"]


# A shell too holds signals back while it starts somebody: who is told then ends when the other one is there already.
STARTS_SOMEBODY_LATE = """
import os, pathlib, signal, sys, time
folder = pathlib.Path(sys.argv[1])
def end(*_):
    (folder / 'told').touch()
    os._exit(0)
signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGTERM})
(folder / 'started').touch()
while signal.SIGTERM not in signal.sigpending():
    time.sleep(0.01)
if os.fork() == 0:
    signal.signal(signal.SIGTERM, end)
signal.pthread_sigmask(signal.SIG_UNBLOCK, {signal.SIGTERM})
time.sleep(60)
"""

CASES = ["1/2 Test #1: first_test ..........***Failed",
         "[----------] 2 tests from ATest",
         "[ RUN      ] ATest.isSilent",
         "[       OK ] ATest.isSilent (1 ms)",
         "[ RUN      ] ATest.fails",
         "file.cpp:3: Failure",
         "[  FAILED  ] ATest.fails (1 ms)",
         "[ RUN      ] ATest.saysSomething",
         "something",
         "[       OK ] ATest.saysSomething (1 ms)",
         "[ RUN      ] ATest.isSilentToo",
         "[       OK ] ATest.isSilentToo (1 ms)",
         "[ RUN      ] ATest.neverEnds"]


class TestScriptTest(BuildingScriptTest):
    def test_options_reach_ctest_as_they_are(self):
        run = self.run_script("test", "-R", "a b*", "-j2", "--rerun-failed", "-E", "-x")
        self.assertEqual(run.returncode, 0, run.stderr)
        self.assertEqual(self.calls("ctest"), ["ctest --preset dev -R a b* -j2 --rerun-failed -E -x"])

    def test_a_failed_run_is_a_failure(self):
        self.stand_in("ctest", "exit 8")
        self.assertEqual(self.run_script("test").returncode, 1)

    def test_repeated_runs_are_counted_with_the_tests_that_failed(self):
        log = self.tree / "build/dev/Testing/Temporary/LastTestsFailed.log"
        log.parent.mkdir(parents=True)
        log.write_text("7:an older one\n")
        os.utime(log, (0, 0))
        self.stand_in("ctest", "log=build/dev/Testing/Temporary/LastTestsFailed.log",
                      'case $(grep -c ^ctest "$CALLS") in', "1) exit 8 ;;", "2) exit 0 ;;",
                      r"3) printf '%s\n' 3:rarely 4:always > $log ;;",
                      "4) echo 4:always > $log ;;", "esac", "exit 8")
        run = self.run_script("test", "--repeat", "4")
        self.assertEqual(run.returncode, 1)
        self.assertRegex(run.stdout, r"3 of 4 runs failed\.\n +2 always\n +1 rarely\n$")

    def test_the_list_for_rerun_failed_is_kept(self):
        log = self.tree / "build/dev/Testing/Temporary/LastTestsFailed.log"
        log.parent.mkdir(parents=True)
        log.write_text("7:it\n")
        self.run_script("test", "--rerun-failed")
        self.assertEqual(log.read_text(), "7:it\n")

    def test_tests_see_no_proxies(self):
        self.environment.update(http_proxy="http://127.0.0.1:1", HTTPS_PROXY="http://127.0.0.1:1", no_proxy="*")
        self.stand_in("ctest", "env")
        self.assertNotRegex(self.run_script("test").stdout.lower(), "_proxy=")

    def test_tests_find_what_is_unpacked_without_a_home(self):
        del self.environment["HOME"]
        for package in tree.UNPACKED:
            (self.tree / "build/cache/norla-test-packages" / package).mkdir(parents=True)
        self.stand_in("ctest", "env")
        self.assertIn(f"XDG_CACHE_HOME={self.tree}/build/cache\n", self.run_script("test").stdout)

    def test_tests_keep_their_files_where_names_are_plain(self):
        odd = self.folder / "Ann's temporary files"
        odd.mkdir()
        self.environment["TMPDIR"] = str(odd)
        self.stand_in("ctest", "env")
        self.assertRegex(self.run_script("test").stdout, r"(?m)^TMPDIR=/tmp/norla-test-\w+$")

    def test_servers_that_give_up_their_rights_reach_their_files(self):
        self.addCleanup(os.umask, os.umask(0o077))
        self.stand_in("ctest", 'find "$TMPDIR" -maxdepth 0 -printf "%m "', 'touch "$TMPDIR/file"',
                      'find "$TMPDIR/file" -printf "%m"')
        self.assertEqual(self.run_script("test").stdout, "711 644")

    def test_busy_processes_end_with_the_tests(self):
        run = self.run_script("test", "--busy")
        self.assertEqual(run.returncode, 0, run.stderr)
        self.assertEqual(tree.processes_of(-1, self.folder), [])

    def test_interrupted_tests_leave_nothing(self):
        for program in ("cmake", "ctest"):
            with self.subTest(program=program):
                self.stand_in(program, *self.works_until_ended())
                status, output = self.signalled("test", "--busy", send=lambda pid: os.killpg(pid, signal.SIGINT))
                self.assertEqual((status, output), (130, ""))
            self.stand_in(program)

    def test_terminated_tests_leave_nothing(self):
        self.stand_in("ctest", *self.works_until_ended())
        status, output = self.signalled("test", "--busy", send=lambda pid: os.kill(pid, signal.SIGTERM))
        self.assertEqual((status, output), (143, ""))

    def documentation(self):
        (self.tree / "docs").mkdir()
        (self.tree / "docs/Doxyfile").touch()

    def test_interrupted_checks_leave_nothing(self):
        self.documentation()
        self.stand_in("doxygen", *self.works_until_ended())
        status, output = self.signalled("check", "docs", send=lambda pid: os.killpg(pid, signal.SIGINT))
        self.assertEqual((status, output), (130, "== docs\n"))

    def test_checks_stop_at_the_first_stage_that_fails(self):
        self.documentation()
        self.stand_in("doxygen", "exit 3")
        self.stand_in("git", "exit 4")
        run = self.run_script("check", "docs", "format")
        self.assertNotEqual(run.returncode, 0)
        self.assertEqual((run.stdout, self.calls("git")), ("== docs\n", []))

    def test_what_failed_is_shown_without_the_cases_that_passed_silently(self):
        self.stand_in("flock")
        self.stand_in("ctest", "cat << 'END'", *CASES, "END", "exit 8")
        run = self.run_script("check", "tsan")
        self.assertNotEqual(run.returncode, 0)
        self.assertEqual(run.stderr.splitlines(), [line for line in CASES if "Silent" not in line and "----" not in line])

    def test_who_does_not_want_to_end_is_killed(self):
        self.stand_in("ctest", *self.works_until_ended("trap '' TERM"))
        status, _ = self.signalled("test", send=lambda pid: os.kill(pid, signal.SIGTERM))
        self.assertEqual(status, 143)

    def test_who_comes_while_the_others_are_told_is_told_too(self):
        self.stand_in("ctest", f'exec python3 -c "{STARTS_SOMEBODY_LATE}" "{self.folder}"')
        self.signalled("test", send=lambda pid: os.kill(pid, signal.SIGTERM))
        self.assertTrue((self.folder / "told").exists(), "it was killed without a word")

    def test_nobody_is_told_twice(self):
        self.stand_in("ctest", *self.works_until_ended(f"trap 'echo told >> \"{self.folder}/told\"; sleep 0.3' TERM"))
        self.signalled("test", send=lambda pid: os.kill(pid, signal.SIGTERM))
        self.assertEqual((self.folder / "told").read_text(), "told\n")

    def test_a_folder_that_somebody_still_writes_to_is_removed_a_moment_later(self):
        self.stand_in("rm", '[ "$(grep -c ^rm "$CALLS")" -gt 3 ] || { echo "not empty" >&2; exit 1; }',
                      f'exec {shutil.which("rm")} "$@"')
        run = self.run_script("test")
        self.assertEqual((run.returncode, run.stderr, self.names_in(self.temporary)), (0, "", []))


BUILDING = "Building fuzz_utf8 in build/fuzz, which takes minutes the first time ...\n"


class FuzzScriptTest(BuildingScriptTest):
    def setUp(self):
        super().setUp()
        self.target()

    def target(self, *lines):
        self.stand_in("fuzz_utf8", *lines, where=self.tree / "build/fuzz/tests/fuzz")

    def test_runs_the_target_so_long_from_its_corpus(self):
        run = self.run_script("fuzz", "fuzz_utf8", "7")
        self.assertEqual(run.returncode, 0, run.stderr)
        self.assertRegex(self.calls("fuzz_utf8")[0], "-max_total_time=7 .* tests/fuzz/corpus/fuzz_utf8$")

    def test_tells_that_it_builds_the_target(self):
        self.assertEqual(self.run_script("fuzz", "fuzz_utf8", "7").stdout, BUILDING)

    def test_a_target_that_does_not_compile_is_shown_and_not_run(self):
        self.stand_in("cmake", '[ "$1" != --build ] || { echo "fuzz_utf8.cpp:1: error"; exit 1; }')
        run = self.run_script("fuzz", "fuzz_utf8", "7")
        self.assertEqual((run.returncode, self.calls("fuzz_utf8")), (1, []))
        self.assertEqual(run.stderr, "fuzz_utf8.cpp:1: error\nfuzz: fuzz_utf8 does not build.\n")

    def test_a_built_target_is_not_built_again(self):
        run = self.run_script("fuzz", "--built", "fuzz_utf8", "7")
        self.assertEqual((run.returncode, run.stdout), (0, ""))
        self.assertEqual((self.calls("cmake"), len(self.calls("fuzz_utf8"))), ([], 1))

    def test_what_breaks_a_target_is_a_failure(self):
        self.target("exit 77")
        self.assertEqual(self.run_script("fuzz", "fuzz_utf8", "7").returncode, 77)

    def test_an_interrupted_target_leaves_nothing(self):
        self.target(*self.works_until_ended())
        status, output = self.signalled("fuzz", "fuzz_utf8", "7", send=lambda pid: os.killpg(pid, signal.SIGINT))
        self.assertEqual((status, output), (130, BUILDING))

    def test_a_terminated_target_leaves_nothing(self):
        self.target(*self.works_until_ended())
        status, output = self.signalled("fuzz", "fuzz_utf8", "7", send=lambda pid: os.kill(pid, signal.SIGTERM))
        self.assertEqual((status, output), (143, BUILDING))


class FuzzAllTest(BuildingScriptTest):
    """All targets are stand-ins, which say what libFuzzer says."""

    SAYS = ["echo '#8 NEW    cov: 9 ft: 9 corp: 1/1b lim: 4' >&2",
            "echo '#20 DONE   cov: 70 ft: 80 corp: 5/60b lim: 4' >&2", "echo 'stat::number_of_executed_units: 20' >&2"]

    def setUp(self):
        super().setUp()
        self.names = sorted(path.stem for path in (self.tree / "tests/fuzz").glob("fuzz_*.cpp"))
        for name in self.names:
            self.target(name, *self.SAYS)

    def target(self, name, *lines):
        self.stand_in(name, *lines, where=self.tree / "build/fuzz/tests/fuzz")

    def rows(self, run):
        return [line.split() for line in run.stdout.splitlines()]

    def test_shows_what_each_target_has_done(self):
        run = self.run_script("fuzz", "--built", "--all", "7")
        self.assertEqual(run.returncode, 0, run.stderr)
        rows = self.rows(run)
        self.assertEqual(rows[0], ["target", "runs", "edges", "inputs", "CPU", "s"])
        self.assertEqual(rows[1:-1], [[name, "20", "70", "5", "0"] for name in self.names])
        count = len(self.names)
        self.assertEqual(run.stdout.splitlines()[-1],
                         f"{count} targets, {20 * count} runs, 0 CPU s, nothing found")

    def test_each_target_goes_on_from_what_it_has_found_and_from_its_seeds(self):
        self.run_script("fuzz", "--built", "--all", "7")
        self.assertRegex(self.calls("fuzz_utf8")[0],
                         "^fuzz_utf8 -max_total_time=7 .* build/fuzz/corpus/fuzz_utf8 tests/fuzz/corpus/fuzz_utf8$")
        self.assertEqual(self.names_in(self.tree / "build/fuzz/corpus"), self.names)

    def test_builds_all_targets_at_once(self):
        run = self.run_script("fuzz", "--all", "7")
        self.assertEqual(run.stdout.splitlines()[0],
                         "Building all targets in build/fuzz, which takes minutes the first time ...")
        self.assertEqual(self.calls("cmake")[-1], "cmake --build --preset fuzz --target " + " ".join(self.names))

    def test_goes_on_behind_a_target_that_breaks(self):
        self.target("fuzz_cookie_line", *self.SAYS, "echo 'ERROR: AddressSanitizer' >&2", "exit 77")
        run = self.run_script("fuzz", "--built", "--all", "7")
        self.assertEqual((run.returncode, len(self.rows(run))), (1, len(self.names) + 2))
        self.assertIn("Broken, each with its input in build/fuzz: fuzz_cookie_line\n", run.stdout)
        self.assertEqual(run.stderr, "ERROR: AddressSanitizer\n")

    def test_a_target_that_was_kept_waiting_runs_until_it_has_had_its_time(self):
        self.target("fuzz_utf8", *self.SAYS, "sleep 0.5",
                    'end=$((SECONDS + 1)); [ "$(grep -c ^fuzz_utf8 "$CALLS")" = 1 ] || while ((SECONDS < end)); do :; done')
        run = self.run_script("fuzz", "--built", "--all", "1")
        self.assertEqual(run.returncode, 0, run.stderr)
        self.assertGreater(len(self.calls("fuzz_utf8")), 1)

    def test_several_run_at_once(self):
        meet = [f'mkdir -p "{self.folder}/here"', f'touch "{self.folder}/here/$$"',
                f'until [ "$(find "{self.folder}/here" -type f | grep -c .)" -ge 2 ]; do sleep 0.01; done']
        for name in self.names:
            self.target(name, *meet, *self.SAYS)
        self.assertEqual(self.run_script("fuzz", "--built", "--all", "--jobs", "2", "7").returncode, 0)

    def test_what_is_interrupted_leaves_nothing(self):
        self.target(self.names[0], *self.works_until_ended())
        status, _ = self.signalled("fuzz", "--built", "--all", "7", send=lambda pid: os.killpg(pid, signal.SIGINT))
        self.assertEqual(status, 130)


class MinimizeCorpusTest(BuildingScriptTest):
    """The stand-in adds to the first folder what the test gives it, as libFuzzer does."""

    def setUp(self):
        super().setUp()
        self.corpus = self.tree / "tests/fuzz/corpus/fuzz_utf8"
        self.found = self.tree / "build/fuzz/corpus/fuzz_utf8"
        self.gift = self.folder / "gift"
        self.gift.mkdir()
        self.seeds = self.names_in(self.corpus)
        self.stand_in("fuzz_utf8", 'kept=${@: -3:1}', f'cp "{self.gift}"/* "$kept"',
                      where=self.tree / "build/fuzz/tests/fuzz")

    def give(self, number, size=1):
        name = f"{number:040x}"
        (self.gift / name).write_text("x" * size)
        return name

    def minimize(self):
        run = self.run_script("fuzz", "--built", "--minimize", "fuzz_utf8")
        self.assertEqual(run.returncode, 0, run.stderr)
        return run.stdout

    def test_adds_what_was_found_to_the_seeds(self):
        name = self.give(1, 3)
        self.assertEqual(self.minimize(), "tests/fuzz/corpus/fuzz_utf8 has 1 inputs of 3 bytes that were found; "
                                          "0 more are too many.\n")
        self.assertEqual(self.names_in(self.corpus), sorted(self.seeds + [name]))
        self.assertRegex(self.calls("fuzz_utf8")[0],
                         " -merge=1 .* tests/fuzz/corpus/fuzz_utf8 build/fuzz/corpus/fuzz_utf8$")

    def test_removes_what_was_added_before_and_is_not_needed(self):
        (self.corpus / f"{7:040x}").write_text("older")
        name = self.give(1)
        self.minimize()
        self.assertEqual(self.names_in(self.corpus), sorted(self.seeds + [name]))

    def test_takes_no_more_than_a_hundred_inputs(self):
        for number in range(103):
            self.give(number)
        self.assertIn("; 3 more are too many.", self.minimize())
        self.assertEqual(len(self.names_in(self.corpus)), len(self.seeds) + 100)

    def test_takes_the_smallest_first_up_to_64_kibibytes(self):
        large, small = self.give(1, 60000), self.give(2, 6000)
        self.assertIn(" 1 inputs of 6000 bytes ", self.minimize())
        self.assertEqual(self.names_in(self.corpus), sorted(self.seeds + [small]))
        self.assertNotIn(large, self.names_in(self.corpus))

    def test_a_target_that_fails_leaves_the_corpus_as_it_was(self):
        (self.corpus / f"{7:040x}").write_text("older")
        before = self.names_in(self.corpus)
        self.stand_in("fuzz_utf8", "echo broken >&2", "exit 1", where=self.tree / "build/fuzz/tests/fuzz")
        run = self.run_script("fuzz", "--built", "--minimize", "fuzz_utf8")
        self.assertEqual((run.returncode, run.stderr, self.names_in(self.corpus)), (1, "broken\n", before))


class PackageScriptTest(BuildingScriptTest):
    def setUp(self):
        super().setUp()
        for name in ("CMakeLists.txt", "CHANGELOG.md"):
            shutil.copy(tree.TOP / name, self.tree)
        shutil.copytree(tree.TOP / "debian", self.tree / "debian")
        self.stand_in("git", "echo 1700000000")
        self.packs()

    def packs(self, *lines):
        """What packs makes two files of the first line of the changelog, beside its folder as the real one does."""
        self.stand_in("dpkg-buildpackage", *lines, "version=$(sed -n '1s/.*(\\(.*\\)).*/\\1/p' debian/changelog)",
                      'for type in amd64.deb amd64.changes amd64.buildinfo; do touch "../libnorla0_${version}_$type"; done')

    def version(self):
        lines = (tree.TOP / "CMakeLists.txt").read_text().splitlines()
        return next(line.split()[1] for line in lines if line.startswith("    VERSION "))

    def test_the_packages_have_the_version_of_the_tree(self):
        run = self.run_script("package")
        package = self.tree / f"build/packages/libnorla0_{self.version()}_amd64.deb"
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertEqual(run.stdout.splitlines()[1:], [str(package)])
        self.assertTrue(package.exists())
        self.assertEqual(self.calls("dpkg-buildpackage"), ["dpkg-buildpackage --build=binary --no-sign"])

    def test_the_packages_come_where_the_caller_wants_them(self):
        run = self.run_script("package", "--output", "out put", cwd=self.folder)
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertEqual(len(self.names_in(self.folder / "out put")), 3)

    def test_a_copy_is_packed_without_what_was_built_before(self):
        (self.tree / "build/dev").mkdir(parents=True)
        self.packs(f'find . -name build -prune -o -name dev > "{self.folder}/found"', "test -e CMakeLists.txt || exit 1")
        run = self.run_script("package")
        self.assertEqual((run.returncode, (self.folder / "found").read_text()), (0, ""), run.stderr)
        self.assertFalse((self.tree / "debian/changelog").exists())

    def test_the_change_log_is_as_old_as_the_sources(self):
        self.packs(f'tail -1 debian/changelog > "{self.folder}/last"')
        self.assertEqual(self.run_script("package").returncode, 0)
        self.assertRegex((self.folder / "last").read_text(), r"^ -- .*<.*@.*>  Tue, 14 Nov 2023 \d\d:13:20 ")

    def test_what_cannot_be_packed_is_shown(self):
        self.packs("echo 'a symbol is gone'", "exit 2")
        run = self.run_script("package")
        self.assertNotEqual(run.returncode, 0)
        self.assertIn("a symbol is gone", run.stderr)
        self.assertEqual(self.names_in(self.tree / "build/packages") + self.names_in(self.temporary), [])

    def test_an_interrupted_build_leaves_nothing(self):
        self.stand_in("dpkg-buildpackage", *self.works_until_ended())
        status, output = self.signalled("package", send=lambda pid: os.killpg(pid, signal.SIGINT))
        self.assertEqual((status, output.count("\n")), (130, 1))


class MutateScriptTest(BuildingScriptTest):
    def test_tells_that_it_builds_a_copy(self):
        for name in ("cmake", "docs", "kx", "norla", "sela"):
            (self.tree / name).mkdir(exist_ok=True)
        (self.tree / "CMakeLists.txt").touch()
        (self.tree / "kx/text.cpp").write_text("int size = 1;\n")
        self.stand_in("cmake", "exit 1")
        run = self.run_script("mutate", "--only", "kx/text.cpp", cwd=self.tree)
        self.assertRegex(run.stdout, "\nBuilding the library and its unit tests in a copy, which takes minutes ")


if __name__ == "__main__":
    unittest.main()
