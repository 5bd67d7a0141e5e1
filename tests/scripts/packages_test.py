#!/usr/bin/env python3
"""Which packages scripts/install-packages asks for, and whom. apt, dpkg and sudo are stand-ins."""
import os
import re
import signal
import unittest

import tree


class InstallPackagesTest(tree.TreeTest):
    """An ordinary user without sudo on a Debian on which everything is installed but what a test says."""

    def setUp(self):
        super().setUp()
        self.stand_in("id", "echo 1000")
        self.stand_in("dpkg", '[ "$1" = -x ] && mkdir -p "$3/usr/sbin"')
        self.stand_in("apt-get", "CODENAME=$(sed -n s/^VERSION_CODENAME=//p /etc/os-release)", 'case "$*" in',
                      '*"download "*) touch "${@: -1}.deb" ;;',
                      '*indextargets*) echo "http://mirror/debian $CODENAME main Debian" ;;',
                      'esac')
        self.lacks()

    def lacks(self, *packages):
        patterns = "|".join(packages) or "nothing"
        self.stand_in("dpkg-query", f'case ${{@: -1}} in {patterns}) exit 1 ;; esac', "echo all installed")

    def has_sudo(self):
        self.stand_in("sudo", "cat > /dev/null")

    def cache(self):
        return self.home / ".cache/norla-test-packages"

    def installations(self):
        return [call for call in self.calls() if " install " in call or call.startswith("sudo")]

    def test_root_is_not_asked_when_everything_is_installed(self):
        self.has_sudo()
        run = self.run_script("install-packages", "build", "demo", "mutate", "clang", "docs", "lint",
                              "coverage", "valgrind", "package", "root", "abi")
        self.assertEqual((run.returncode, run.stdout, run.stderr), (0, "", ""))
        self.assertEqual(self.calls("sudo") + self.calls("apt-get"), [])

    def knows_icu_as(self, *lines):
        """On an amd64, which also has packages for programs of i386."""
        self.stand_in("dpkg-query", "case ${@: -1} in", "dpkg) echo amd64 ;;",
                      f"libicu72) printf '%s\\n' {' '.join(map(repr, lines))} ;;", "*) echo all installed ;;", "esac")

    def test_a_package_for_two_architectures_is_installed(self):
        self.knows_icu_as("amd64 installed", "i386 installed")
        run = self.run_script("install-packages", "test")
        self.assertEqual((run.returncode, self.installations()), (0, []), run.stderr)

    def test_a_package_for_another_architecture_alone_is_missing(self):
        self.knows_icu_as("i386 installed", "amd64 config-files")
        run = self.run_script("install-packages", "test")
        self.assertIn("  apt-get install --no-install-recommends libicu72\n", run.stderr)

    def test_a_stage_of_the_checks_asks_for_its_own_packages(self):
        self.lacks("clang", "nginx-light", "valgrind")
        self.stand_in("site", where=self.tree / "scripts")
        run = self.run_script("check", "docs")
        self.assertEqual((run.returncode, self.calls("site")), (0, ["site "]), run.stderr)
        self.lacks("doxygen")
        run = self.run_script("check", "docs")
        self.assertEqual(run.returncode, 1)
        self.assertIn("  apt-get install --no-install-recommends doxygen\n", run.stderr)

    def test_servers_are_unpacked_without_root(self):
        run = self.run_script("install-packages", "test")
        self.assertEqual((run.returncode, self.installations()), (0, []), run.stderr)
        self.assertEqual(self.names_in(self.cache()), tree.UNPACKED)

    def test_a_newer_library_is_unpacked_without_root(self):
        run = self.run_script("install-packages", "newer", "newer-headers")
        self.assertEqual((run.returncode, self.installations()), (0, []), run.stderr)
        self.assertEqual(self.names_in(self.cache()), ["libcurl4-8.14.1", "libcurl4-openssl-dev-8.14.1"])

    def test_the_lists_of_the_machine_are_not_renewed_for_what_is_unpacked(self):
        self.run_script("install-packages", "test", "newer")
        updates = [call for call in self.calls("apt-get") if " update" in call]
        self.assertEqual(len(updates), 2)
        for call in updates:
            self.assertIn(f"Dir::State::Lists={self.temporary}", call)

    def test_what_is_unpacked_already_is_not_fetched_again(self):
        self.run_script("install-packages", "test")
        self.calls_file.unlink()
        run = self.run_script("install-packages", "test")
        self.assertEqual((run.returncode, self.calls("apt-get")), (0, []))

    def test_the_demo_needs_nothing_that_is_unpacked(self):
        run = self.run_script("install-packages", "build", "demo")
        self.assertEqual((run.returncode, self.names_in(self.cache())), (0, []))

    def test_who_cannot_be_root_is_told_each_missing_package_and_one_command(self):
        self.lacks("cmake", "squid")
        run = self.run_script("install-packages", "build", "test")
        self.assertEqual((run.returncode, run.stdout, self.calls("apt-get")), (1, "", []))
        self.assertRegex(run.stderr, "missing:\n  cmake\n  squid\n(?!  )")
        self.assertIn("\n  apt-get install --no-install-recommends cmake squid\n", run.stderr)

    def test_who_may_not_use_sudo_is_not_asked_for_a_password(self):
        self.lacks("cmake")
        self.stand_in("sudo", "exit 1")
        run = self.run_script("install-packages", "build")
        self.assertEqual((run.returncode, self.calls("sudo")), (1, ["sudo -n true"]))
        self.assertIn("apt-get install --no-install-recommends cmake\n", run.stderr)

    def test_only_what_is_missing_is_installed_through_sudo(self):
        self.lacks("cmake", "squid")
        self.has_sudo()
        run = self.run_script("install-packages", "build", "test")
        self.assertEqual(run.returncode, 0, run.stderr)
        installed = [call for call in self.calls("sudo") if " install " in call]
        self.assertEqual([re.sub(".*-recommends ", "", call) for call in installed], ["cmake squid"])

    def test_a_package_of_two_groups_is_named_once(self):
        self.lacks("libgtest-dev")
        run = self.run_script("install-packages", "demo", "test", "mutate")
        self.assertIn("--no-install-recommends libgtest-dev\n", run.stderr)

    def test_a_download_that_fails_is_shown_and_leaves_nothing(self):
        self.stand_in("apt-get", 'case "$*" in *"download "*) echo "E: no such mirror"; exit 100 ;; esac')
        run = self.run_script("install-packages", "test")
        self.assertNotEqual(run.returncode, 0)
        self.assertIn("E: no such mirror", run.stderr)
        self.assertEqual(self.names_in(self.cache()) + self.names_in(self.temporary), [])

    def test_an_interrupted_download_leaves_nothing(self):
        self.stand_in("apt-get", 'case "$*" in *"download "*) exec sleep 60 ;; esac')
        process = self.start_script("install-packages", "test")
        self.assertTrue(tree.wait_until(lambda: any("download " in call for call in self.calls("apt-get"))))
        os.killpg(process.pid, signal.SIGINT)
        output, _ = process.communicate(timeout=30)
        self.assertEqual((process.returncode, output), (130, f"Unpacking: {tree.UNPACKED[0]}\n"))
        self.assertEqual(self.names_in(self.cache()) + self.names_in(self.temporary), [])
        self.assertEqual(tree.processes_of(process.pid, self.folder), [])

    def test_without_a_home_servers_are_unpacked_in_the_build_folder(self):
        for home in (None, "/nonexistent", "relative"):
            with self.subTest(home=home):
                self.environment.pop("HOME", None)
                if home:
                    self.environment["HOME"] = home
                run = self.run_script("install-packages", "test")
                self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertIn("vsftpd", self.names_in(self.tree / "build/cache/norla-test-packages"))
        self.assertEqual(len([call for call in self.calls("apt-get") if " download " in call]), len(tree.UNPACKED))

    def test_the_cache_is_where_the_environment_says(self):
        self.environment["XDG_CACHE_HOME"] = str(self.folder / "other cache")
        self.run_script("install-packages", "test")
        self.assertIn("vsftpd", self.names_in(self.folder / "other cache/norla-test-packages"))

    def test_a_relative_folder_for_caches_does_not_count(self):
        self.environment["XDG_CACHE_HOME"] = "cache"
        self.run_script("install-packages", "test")
        self.assertIn("vsftpd", self.names_in(self.cache()))

    def test_a_cache_that_cannot_be_made_is_explained(self):
        self.environment["XDG_CACHE_HOME"] = "/proc/norla"
        run = self.run_script("install-packages", "test")
        self.assertEqual(run.returncode, 1)
        self.assertIn("there is no place to unpack packages; XDG_CACHE_HOME can name a folder", run.stderr)

    def test_other_systems_are_told_what_they_need(self):
        (self.folder / "bin/dpkg-query").unlink()
        run = self.run_script("install-packages", "build")
        self.assertEqual(run.returncode, 1)
        self.assertIn("This is no Debian", run.stderr)
        self.assertIn(" libcurl4-openssl-dev ", run.stderr)


if __name__ == "__main__":
    unittest.main()
