"""A copy of scripts/ in a temporary tree, in which stand-ins serve for the programs that the scripts call."""
import os
import pathlib
import shutil
import signal
import subprocess
import tempfile
import time
import unittest

TOP = pathlib.Path(__file__).resolve().parents[2]

# What the scripts use of a Debian without any further package.
TOOLS = ["awk", "bash", "cat", "chmod", "cmp", "cp", "cut", "date", "dirname", "env", "find", "grep", "head", "id", "mkdir",
         "mktemp", "mv", "paste", "python3", "rm", "sed", "sleep", "sort", "stat", "tail", "tar", "touch", "uniq"]

UNPACKED = ["postfix", "proftpd-core", "proftpd-mod-crypto", "pure-ftpd", "vsftpd"]


class TreeTest(unittest.TestCase):
    """Each test has a tree, a home and a temporary folder of its own; their names hold a blank and a quote."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="norla-scripts-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.addCleanup(self.kill_what_is_left)
        self.tree = self.folder / "a checkout of Ann's"
        self.home = self.folder / "home"
        self.temporary = self.folder / "tmp"
        self.calls_file = self.folder / "calls"
        for new in (self.tree / "tests", self.home, self.temporary, self.folder / "bin"):
            new.mkdir(parents=True)
        shutil.copytree(TOP / "scripts", self.tree / "scripts")
        for part in ("fuzz", "reliability"):
            shutil.copytree(TOP / "tests" / part, self.tree / "tests" / part)
        for tool in TOOLS:
            (self.folder / "bin" / tool).symlink_to(shutil.which(tool))
        self.environment = {
            "PATH": str(self.folder / "bin"), "HOME": str(self.home), "TMPDIR": str(self.temporary),
            "CALLS": str(self.calls_file), "LANG": "C.UTF-8"}

    def kill_what_is_left(self):
        """Whatever a test has started names its folder in its environment."""
        for number, _ in processes_of(-1, self.folder):
            try:
                os.kill(number, signal.SIGKILL)
            except ProcessLookupError:
                pass

    def stand_in(self, name, *lines, where=None):
        """Makes a program of these lines of bash, which first notes its call: the name and the arguments."""
        path = (where or self.folder / "bin") / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.unlink(missing_ok=True)  # it may link to the real one
        path.write_text("\n".join(["#!" + shutil.which("bash"), 'echo "${0##*/} $*" >> "$CALLS"', *lines]) + "\n")
        path.chmod(0o755)

    def calls(self, name=""):
        """The lines that stand-ins (of that name) have noted."""
        lines = self.calls_file.read_text().splitlines() if self.calls_file.exists() else []
        return [line for line in lines if line.split(" ")[0] == name or not name]

    def command(self, script, *arguments):
        return [str(self.tree / "scripts" / script), *arguments]

    def run_script(self, script, *arguments, cwd="/"):
        return subprocess.run(self.command(script, *arguments), env=self.environment, cwd=cwd, stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, timeout=60, errors="replace")

    def start_script(self, script, *arguments):
        """As a terminal does: in a session of its own, whose first group gets what is typed."""
        process = subprocess.Popen(self.command(script, *arguments), env=self.environment, cwd="/", text=True,
                                   stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                   start_new_session=True, errors="replace", preexec_fn=heed_interrupts)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        return process

    def names_in(self, folder):
        return sorted(path.name for path in folder.iterdir()) if folder.exists() else []


def heed_interrupts():
    """Whoever runs the tests in the background ignores them, and a shell cannot change that."""
    signal.signal(signal.SIGINT, signal.SIG_DFL)


def processes_of(session, tree):
    """What runs in the session, or names the folder in its command line or environment: (number, command line)."""
    found = []
    for entry in pathlib.Path("/proc").iterdir():
        if not entry.name.isdigit() or int(entry.name) == os.getpid():
            continue
        try:
            state, _, _, its_session = (entry / "stat").read_bytes().rpartition(b")")[2].split()[:4]
            command = (entry / "cmdline").read_bytes()
            named = os.fsencode(tree) in command + (entry / "environ").read_bytes()
        except OSError:  # it has just ended, or is somebody else's
            continue
        if state != b"Z" and (int(its_session) == session or named):
            found.append((int(entry.name), command.replace(b"\0", b" ").decode(errors="replace")))
    return found


def wait_until(condition, seconds=10):
    """Whether the condition has come true within these seconds."""
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.02)
    return True
