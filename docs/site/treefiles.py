"""Which files there are in a tree."""
import pathlib
import subprocess


def files_of(top):
    """The files of the tree, without what is built in it; also where it is no repository."""
    root = git(top, "rev-parse", "--show-toplevel")  # a copy of the tree may lie in a folder that a repository ignores
    if root and pathlib.Path(root.strip()).resolve() == pathlib.Path(top).resolve():
        return git(top, "ls-files", "-z", "--cached", "--others", "--exclude-standard").split("\0")[:-1]
    files = (path.relative_to(top) for path in top.glob("**/*") if path.is_file())
    return [path.as_posix() for path in files if not is_built(path)]


def git(top, *words):
    """What it prints; nothing where it fails."""
    run = subprocess.run(["git", *words], cwd=top, capture_output=True, check=False, text=True)
    return run.stdout if run.returncode == 0 else ""


def is_built(path):
    """Whether the file stands where CMake, or who makes Debian's packages, writes."""
    return path.parts[0] in ("build", ".git") or path.parts[0].startswith("obj-") \
        or (path.parts[0] == "debian" and len(path.parts) > 2)
