#!/usr/bin/env python3
"""Rules of the tree that no compiler checks: layers, the platform door, lengths, left-overs, message tables."""

import re
import sys

import source_tree

# From the lowest to the highest; the longest matching folder counts. A file includes nothing from a floor above its own.
FLOORS = {
    "base": 0,
    "velmarlib": 1,
    "common": 2,
    "common/cloud": 3,
    "common/netdb_storage": 4,
    "common/cloud/filter_job": 5,
    "osquery/netdb_osquery_schema": 5,
    "osquery/osquery": 6,
    "common/libryl_netdb": 7,
    "host": 8,
}
# These see every floor, and no floor sees them.
OUTSIDE = ("tests", "bench", "fuzz", "docs", "demo")

MAX_LINES = 600
CODE = ("*.cpp", "*.h", "*.ipp", "*.def")
SCRIPTS = ("*.py", "*.sh", "*.cmake", "*CMakeLists.txt", "dev", ".ci/run")

PLATFORM_CONDITION = re.compile(
    r"^[ \t]*#[ \t]*(?:el)?if.*\b_*(?:WIN32|WIN64|linux|unix|APPLE|FreeBSD|MINGW32|MINGW64|MSC_VER)", re.MULTILINE)
# Written in pieces, so that this file passes its own check.
LEFT_OVERS = re.compile(
    r"\b(?:TO" r"DO|FIX" r"ME|X" r"XX|HA" r"CK)\b|#[ \t]*if[ \t]+0\b|\bDIS" r"ABLED_\w|GTEST_" r"SKIP\(\)[ \t]*;")
MESSAGE = re.compile(r'^MESSAGE\(\s*(\w+),\s*(\d+),\s*\(([^)]*)\),\s*((?:"(?:[^"\\]|\\.)*"\s*)+)\)', re.MULTILINE)
MESSAGE_USE = re.compile(r"\bRYL_LOG\(\s*(\w+),\s*(\w+)")

problems = []


def report(path, line, text):
    problems.append(f"{path}:{line}: {text}" if line else f"{path}: {text}")


def line_of(text, position):
    return text.count("\n", 0, position) + 1


def folder_of(path, folders):
    matching = [folder for folder in folders if path.startswith(folder + "/")]
    return max(matching, key=len, default=None)


def check_layers(path):
    folder = folder_of(path, FLOORS)
    if folder is None:
        if folder_of(path, OUTSIDE) is None:
            report(path, 0, "this folder has no floor; give it one in tools/check_tree.py")
        return
    back = folder_of(path, ("base/platform",))
    for included in source_tree.includes(path):
        target = folder_of(included, FLOORS)
        if target is None or FLOORS[target] > FLOORS[folder]:
            report(path, 0, f"includes {included}, which lies above it")
        if back is None and re.match("base/platform/.+/", included):
            report(path, 0, f"includes {included}, which is behind the platform door")


def check_text(path, text):
    for match in LEFT_OVERS.finditer(text):
        report(path, line_of(text, match.start()), f"left-over: {match.group().strip()}")
    lines = text.count("\n")
    if lines > MAX_LINES:
        report(path, 0, f"{lines} lines; at most {MAX_LINES}")
    if text and not text.endswith("\n"):
        report(path, 0, "no newline at the end")


def check_platform(path, text):
    if not path.startswith("base/platform/"):
        for match in PLATFORM_CONDITION.finditer(text):
            report(path, line_of(text, match.start()), "a platform conditional outside base/platform")


def check_messages(path, text, used):
    """Each row stands once, is logged somewhere, and its text names each argument."""
    names = set()
    for match in MESSAGE.finditer(text):
        name, _, arguments, message = match.groups()
        line = line_of(text, match.start())
        if name in names:
            report(path, line, f"message {name} stands twice")
        names.add(name)
        if name not in used:
            report(path, line, f"message {name} is logged nowhere")
        count = len(arguments.split(",")) if arguments.strip() else 0
        if {int(number) for number in re.findall(r"\{(\d+)\}", message)} != set(range(count)):
            report(path, line, f"the text of message {name} does not name each of its {count} arguments")
    if len(re.findall(r"^MESSAGE\(", text, re.MULTILINE)) != len(names):
        report(path, 0, "a row that this check cannot read")


def main():
    texts = {path: (source_tree.ROOT / path).read_text() for path in source_tree.files(*CODE, *SCRIPTS)}
    code = [path for path in texts if path.endswith((".cpp", ".h", ".ipp", ".def"))]
    for path, text in texts.items():
        check_text(path, text)
    for path in code:
        check_layers(path)
        check_platform(path, texts[path])
    used = {name for path in code for _, name in MESSAGE_USE.findall(texts[path])}
    for path in code:
        if path.endswith("Messages.def"):
            check_messages(path, texts[path], used)
    print(*problems, sep="\n", end="\n" if problems else "")
    return 1 if problems else 0


sys.exit(main())
