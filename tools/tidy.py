#!/usr/bin/env python3
"""clang-tidy over the product's sources, on all cores, with a memory of what was clean.

usage: tools/tidy.py BUILD_FOLDER [FILE...]

A source is checked again only when it, anything that it includes from the tree, its command, .clang-tidy or clang-tidy
itself has changed. The memory holds one empty file for each clean source, so it serves every clone of the tree.
"""

import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

import source_tree

FOLDERS = ("base/", "velmarlib/", "common/", "osquery/", "host/")
# Options of GCC that clang refuses.
GCC_ONLY = {"-fno-gnu-unique"}
MEMORY = pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache") / "libryl_netdb" / "tidy"


def load_commands(build_folder):
    """Command of each of the product's sources, by its path from the root."""
    commands = {}
    for entry in json.loads((build_folder / "compile_commands.json").read_text()):
        path = pathlib.Path(entry["directory"], entry["file"]).resolve()
        name = str(path.relative_to(source_tree.ROOT)) if path.is_relative_to(source_tree.ROOT) else ""
        if name.startswith(FOLDERS):
            arguments = [argument for argument in shlex.split(entry["command"]) if argument not in GCC_ONLY]
            if pathlib.Path(arguments[0]).name == "ccache":
                del arguments[0]
            commands[name] = {"directory": entry["directory"], "file": entry["file"], "arguments": arguments}
    return commands


def key_of(path, command, tool, known):
    digest = hashlib.sha256(tool)
    digest.update(" ".join(command["arguments"]).replace(str(source_tree.ROOT), "").encode())
    for included in source_tree.all_includes(path, known):
        digest.update(included.encode() + b"\0" + (source_tree.ROOT / included).read_bytes())
    return digest.hexdigest()


def tidy(path, database):
    """What clang-tidy has to say of the source, and nothing when it is clean."""
    command = ["clang-tidy", "--quiet", "-p", database, str(source_tree.ROOT / path)]
    result = subprocess.run(command, cwd=source_tree.ROOT, capture_output=True, text=True)
    if result.returncode == 0:
        return ""
    return result.stdout + re.sub(r"^\d+ warnings? .*\n", "", result.stderr, flags=re.MULTILINE)


def main():
    if len(sys.argv) < 2:
        print(__doc__, file=sys.stderr)
        return 2
    commands = load_commands(pathlib.Path(sys.argv[1]))
    if sys.argv[2:]:
        commands = {path: commands[path] for path in sys.argv[2:]}
    MEMORY.mkdir(parents=True, exist_ok=True)
    version = subprocess.run(["clang-tidy", "--version"], check=True, capture_output=True).stdout
    tool = version + (source_tree.ROOT / ".clang-tidy").read_bytes()
    known = {}
    keys = {path: key_of(path, command, tool, known) for path, command in commands.items()}
    stale = sorted(path for path in commands if not (MEMORY / keys[path]).exists())
    failed = 0
    with tempfile.TemporaryDirectory() as database, concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        pathlib.Path(database, "compile_commands.json").write_text(json.dumps(list(commands.values())))
        for path, output in zip(stale, pool.map(lambda path: tidy(path, database), stale)):
            if output:
                failed += 1
                print(output, flush=True)
            else:
                (MEMORY / keys[path]).touch()
    print(f"clang-tidy: {len(commands)} sources, {len(stale)} checked, {failed} with findings")
    return 1 if failed else 0


sys.exit(main())
