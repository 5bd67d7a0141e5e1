#!/usr/bin/env python3
"""scripts/demo with the real programs and servers of the build folder NORLA_BUILD_DIR; cmake is a stand-in."""
import os
import pathlib
import signal
import subprocess
import unittest

import tree

BUILD = pathlib.Path(os.environ["NORLA_BUILD_DIR"])
PROGRAMS = ["downloads", "fetch", "ftp", "get", "hello", "mail", "s3", "upload"]


class DemoTest(tree.TreeTest):
    def setUp(self):
        super().setUp()
        self.environment["PATH"] += ":/usr/bin:/bin:/usr/sbin:/sbin"
        self.stand_in("cmake")
        self.stand_in("apt-get", "exit 1")  # nothing is to be fetched
        self.stand_in("dpkg-query", "echo all installed")
        release = self.tree / "build/release"
        (release / "examples").mkdir(parents=True)
        for program in PROGRAMS:
            (release / "examples" / program).symlink_to(BUILD / "examples" / program)
        (release / "tests/servers").mkdir(parents=True)
        (release / "tests/servers/demo_servers").symlink_to(BUILD / "tests/servers/demo_servers")


class WholeDemoTest(DemoTest):
    """The tree's name holds a blank and a quote."""

    def assert_shows_all(self):
        run = self.run_script("demo")
        self.assertEqual((run.returncode, run.stdout.count("\nDone: ")), (0, 1), run.stdout + run.stderr)
        self.assertNotIn("scripts/demo: line", run.stderr)

    def test_shows_all_and_leaves_nothing(self):
        self.assert_shows_all()
        self.assertEqual(self.names_in(self.temporary), [])
        self.assertTrue(tree.wait_until(lambda: not tree.processes_of(-1, self.folder)))

    def test_needs_no_proxy_for_loopback(self):
        for name in ("http_proxy", "https_proxy", "ftp_proxy", "all_proxy"):
            self.environment[name] = self.environment[name.upper()] = "http://127.0.0.1:1"
        self.assert_shows_all()

    def test_needs_no_home_no_locale_no_rights_of_others_and_no_plain_names(self):
        odd = self.folder / "Ann's temporary files"
        odd.mkdir()
        self.environment.update(TMPDIR=str(odd), LANG="de_DE", LC_ALL="de_DE", CDPATH="/usr")
        del self.environment["HOME"]
        self.addCleanup(os.umask, os.umask(0o077))
        self.assert_shows_all()
        self.assertEqual(self.names_in(odd), [])


class BrokenDemoTest(DemoTest):
    def test_a_build_that_fails_is_shown(self):
        self.stand_in("cmake", "echo 'error: no such thing'", "exit 1")
        run = self.run_script("demo")
        self.assertEqual((run.returncode, run.stderr), (1, "error: no such thing\n"))

    def test_servers_that_do_not_start_end_it_with_their_own_words(self):
        self.stand_in("demo_servers", "echo big_url=http://127.0.0.1:1/", "echo 'there is no nginx' >&2", "exit 1",
                      where=self.tree / "build/release/tests/servers")
        run = self.run_script("demo")
        self.assertEqual((run.returncode, run.stderr), (1, "there is no nginx\ndemo: the servers have not started.\n"))

    def test_missing_packages_are_named(self):
        self.stand_in("dpkg-query", 'case ${@: -1} in radosgw) exit 1 ;; esac', "echo all installed")
        self.stand_in("id", "echo 1000")
        self.stand_in("sudo", "exit 1")
        run = self.run_script("demo")
        self.assertEqual((run.returncode, run.stdout, self.calls("cmake")), (1, "", []))
        self.assertIn("are missing:\n  radosgw\n", run.stderr)


class InterruptedDemoTest(DemoTest):
    """At several instants: while it builds, while the servers start, early and late among what is shown."""

    INSTANTS = ["Building the library", "Starting the servers", "A download of 200 MiB", "Three downloads at once",
                "Objects in an S3 store"]

    def interrupt_at(self, instant, send):
        process = self.start_script("demo")
        for line in process.stdout:
            if line.startswith(instant):
                break
        else:
            self.fail(f"{instant} was never reached")
        send(process.pid)
        try:
            output, _ = process.communicate(timeout=30)
        except subprocess.TimeoutExpired:
            self.fail(f"{instant}: after 30 s there is still {tree.processes_of(process.pid, self.folder)}")
        self.assertNotRegex(output, "line [0-9]+:|Terminated|Killed")
        self.assertEqual(self.names_in(self.temporary), [])
        self.assertTrue(tree.wait_until(lambda: not tree.processes_of(process.pid, self.folder), 3),
                        tree.processes_of(process.pid, self.folder))
        return process.returncode

    def test_what_a_terminal_interrupts_leaves_nothing(self):
        self.stand_in("cmake", '[ "$1" != --build ] || sleep 0.3')
        for instant in self.INSTANTS:
            with self.subTest(instant=instant):
                self.assertEqual(self.interrupt_at(instant, lambda pid: os.killpg(pid, signal.SIGINT)), 130)

    def test_what_is_interrupted_as_soon_as_it_runs_leaves_nothing(self):
        slow = self.folder / "slow"  # whoever starts another process is told of it late
        slow.write_text("set -T\ntrap '[ \"${FUNCNAME-}\" != supervise ] || [ $BASHPID != $$ ] || sleep 0.5' DEBUG\n")
        self.environment["BASH_ENV"] = str(slow)
        self.stand_in("cmake", '[ "$1" != --build ] || sleep 60')
        self.assertEqual(self.interrupt_at(self.INSTANTS[0], lambda pid: os.killpg(pid, signal.SIGINT)), 130)

    def test_what_is_terminated_leaves_nothing(self):
        for instant in self.INSTANTS[1::2]:
            with self.subTest(instant=instant):
                self.assertEqual(self.interrupt_at(instant, lambda pid: os.kill(pid, signal.SIGTERM)), 143)

    def test_a_terminal_that_is_closed_leaves_nothing(self):
        self.assertEqual(self.interrupt_at("A download of 200 MiB", lambda pid: os.killpg(pid, signal.SIGHUP)), 129)


if __name__ == "__main__":
    unittest.main()
