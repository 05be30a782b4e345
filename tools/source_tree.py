"""The source files of the tree and what they include."""

import pathlib
import re
import subprocess

ROOT = pathlib.Path(__file__).resolve().parent.parent
INCLUDE_ROOTS = (ROOT, ROOT / "base", ROOT / "velmarlib")
INCLUDE = re.compile(rb'^[ \t]*#[ \t]*include[ \t]+"([^"]+)"', re.MULTILINE)


def files(*patterns):
    """Paths from the root of files that git tracks or would track."""
    command = ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard", "--", *patterns]
    listed = subprocess.run(command, cwd=ROOT, check=True, capture_output=True).stdout.decode().split("\0")
    return sorted(path for path in set(listed) if path and (ROOT / path).is_file())


def includes(path):
    """Paths from the root of the tree's own files that the file includes; the build reports what is not found."""
    found = []
    for name in INCLUDE.findall((ROOT / path).read_bytes()):
        for folder in ((ROOT / path).parent, *INCLUDE_ROOTS):
            candidate = (folder / name.decode()).resolve()
            if candidate.is_file() and candidate.is_relative_to(ROOT):
                found.append(str(candidate.relative_to(ROOT)))
                break
    return found


def all_includes(path, known):
    """The file and all that it includes, at any depth. `known` remembers the includes of each file between calls."""
    seen, waiting = {path}, [path]
    while waiting:
        current = waiting.pop()
        if current not in known:
            known[current] = includes(current)
        for included in known[current]:
            if included not in seen:
                seen.add(included)
                waiting.append(included)
    return sorted(seen)
