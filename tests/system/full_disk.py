"""Imports into a disk that gets full. The import must say that it failed, and the files of the last good dump stay whole.

usage: full_disk.py NETDB

Runs itself again in a mount namespace of its own, where the small disk is a tmpfs.
"""
import contextlib
import errno
import os
import random
import subprocess
import sys

import read_day_file
from harness import (KEEP_ALL_DAYS, VERDICT_CACHES, Netdb, check, compare, expected, run_test, skip, stored_rows,
                     temporary_folder)
from made_logs import TSV_HEAD, random_lines

INSIDE = "--inside"
DISK_BYTES = 256 * 1024


def enter_namespace():
    isolate = ["unshare", "--mount"]
    if os.geteuid() != 0:
        isolate = ["unshare", "--user", "--map-root-user", "--mount"]
    with temporary_folder() as folder:
        try:
            can = subprocess.run([*isolate, "mount", "-t", "tmpfs", "none", folder], capture_output=True, check=False)
        except FileNotFoundError as error:
            skip("there is no %s" % error.filename)
        if can.returncode != 0:
            skip("this system allows no private mount namespace: " + can.stderr.decode().strip())
    os.execvp(isolate[0], [*isolate, sys.executable, os.path.abspath(__file__), *sys.argv[1:], INSIDE])


@contextlib.contextmanager
def small_disk(folder):
    disk = os.path.join(folder, "disk")
    os.mkdir(disk)
    subprocess.run(["mount", "-t", "tmpfs", "-o", "size=%d,mode=0700" % DISK_BYTES, "none", disk], check=True)
    try:
        yield disk
    finally:
        subprocess.run(["umount", disk], check=True)


def fill(disk):
    """A file that takes all the room there is."""
    path = os.path.join(disk, "filler")
    with open(path, "wb", buffering=0) as filler:
        try:
            while filler.write(bytes(4096)):
                pass
        except OSError as error:
            check(error.errno == errno.ENOSPC, "%s", error)
    return path


def key_of(row):
    return row["ip"], row["port"], row["first_seen"] // 86400


def write_log(folder, name, lines):
    path = os.path.join(folder, name)
    with open(path, "w", encoding="utf-8") as log:
        log.write(TSV_HEAD)
        log.writelines(lines)
    return path


def whole_days(data):
    """The contents of the day files, by name; each is read whole. A save that failed may have left a part of itself."""
    found, folder = {}, os.path.join(data, "netdb")
    names = [name for name in os.listdir(folder) if not name.endswith(".temp") and name not in VERDICT_CACHES]
    for name in sorted(names):
        with open(os.path.join(folder, name), "rb") as file:
            content = file.read()
        try:
            read_day_file.read_day_bytes(name, content)
        except read_day_file.Violation as violation:
            check(False, "%s: %s", name, violation)
        found[name] = content
    return found


def main():
    if INSIDE not in sys.argv:
        enter_namespace()
    netdb = Netdb(sys.argv[1])
    generator = random.Random(4)

    def a_disk_without_room(folder):
        with small_disk(folder) as disk:
            data = os.path.join(disk, "data")
            first, second = (write_log(folder, name, random_lines(generator, 500, 1)) for name in ("1.log", "2.log"))
            netdb.import_logs(data, first)
            good = whole_days(data)
            check(good, "the first import gave no file")
            filler = fill(disk)
            said = netdb.run("import", "--policy", KEEP_ALL_DAYS, "--data", data, second, exit_code=1).stderr.decode()
            check("not everything was stored" in said, "said: %s", said)
            check(whole_days(data) == good, "the day file is another")
            os.unlink(filler)
            netdb.import_logs(data, second)
            compare("both logs", expected(first, second), "the day files", stored_rows(data))

    def a_disk_that_fills_day_by_day(folder):
        with small_disk(folder) as disk:
            data = os.path.join(disk, "data")
            log = write_log(folder, "conn.log", random_lines(generator, 30000, 10, ports=range(1, 60000)))
            netdb.run("import", "--policy", KEEP_ALL_DAYS, "--data", data, log, exit_code=1)
            wanted, stored = {key_of(row) for row in expected(log)}, set()
            for name, content in whole_days(data).items():
                stored |= {key_of(row) for row in read_day_file.read_day_bytes(name, content)}
            check(stored < wanted, "%d rows stored, %d of them in the log", len(stored), len(stored & wanted))
            check(stored, "no row fitted")

    run_test(a_disk_without_room, a_disk_that_fills_day_by_day)


if __name__ == "__main__":
    main()
