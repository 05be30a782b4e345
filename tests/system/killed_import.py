"""Kills imports at random moments. Each day file must be whole after each of them, and the next import must work.

usage: killed_import.py NETDB
"""
import hashlib
import os
import random
import re
import sys
import time

import read_day_file
from harness import KEEP_ALL_DAYS, Netdb, check, run_test, stored_rows
from made_logs import TSV_HEAD, random_lines

CONNECTIONS = 200_000
DIFFERENT_LINES = 10_000
DAYS = 12
KILLS = 25
# The kills come within this time of the start, on average after half of it. Where an import takes longer, the log is cut.
LONGEST_DELAY_S = 0.9


class Folder:
    """What lies in a folder of day files, looked at again and again."""

    def __init__(self, data):
        self.folder = os.path.join(data, "netdb")
        self.known = set()  # days that had a file when last looked at
        self.whole = set()  # digests of contents that were read already
        self.saves = set()  # those that were cut short; the next save of their day replaces them
        self.saves_cut_short = 0

    def is_whole(self, name):
        with open(os.path.join(self.folder, name), "rb") as file:
            data = file.read()
        digest = (name, hashlib.sha256(data).digest())
        if digest not in self.whole:
            read_day_file.read_day_bytes(name, data)
            self.whole.add(digest)

    def look(self):
        names = set(os.listdir(self.folder)) if os.path.isdir(self.folder) else set()
        names = {name for name in names if not name.startswith("cache.")}  # of verdicts, which can be had again
        strange = [name for name in names if not re.fullmatch(r"[0-9]{10}\.db(\.temp)?", name)]
        check(not strange, "left behind: %s", strange)
        saves = {name for name in names if name.endswith(".temp")}
        days = names - saves
        # In the gap between the old file's removal and the new one's rename there is the complete new one.
        gaps = {name + ".temp" for name in self.known - days}
        check(gaps <= saves, "gone without a trace: %s", gaps - saves)
        for name in days | gaps:
            try:
                self.is_whole(name)
            except read_day_file.Violation as violation:
                check(False, "%s: %s", name, violation)
        self.saves_cut_short += len(saves - self.saves)
        self.known, self.saves = days, saves


def write_log(folder, seed, count):
    generator = random.Random(seed)
    lines = list(random_lines(generator, DIFFERENT_LINES, DAYS, addresses=60))
    path = os.path.join(folder, "conn.log")
    with open(path, "w", encoding="utf-8") as log:
        log.write(TSV_HEAD)
        log.writelines(generator.choices(lines, k=count))
    return path


def keys_of(data):
    return {(row["ip"], row["port"], row["first_seen"] // 86400) for row in stored_rows(data)}


def main():
    netdb = Netdb(sys.argv[1])

    def undisturbed_import(folder, seed, count):
        """The log, how long its import takes, and the keys of the rows that it gives."""
        log, data = write_log(folder, seed, count), os.path.join(folder, "undisturbed %d" % count)
        start = time.monotonic()
        netdb.import_logs(data, log)
        return log, time.monotonic() - start, keys_of(data)

    def killed_imports(folder):
        seed = random.randrange(2**32)
        print("seed %d" % seed)
        count = CONNECTIONS // 10
        log, whole_s, keys = undisturbed_import(folder, seed, count)
        if whole_s < LONGEST_DELAY_S:
            count = CONNECTIONS
            log, whole_s, keys = undisturbed_import(folder, seed, count)
        if whole_s > LONGEST_DELAY_S:
            log, whole_s, keys = undisturbed_import(folder, seed, int(count * LONGEST_DELAY_S / whole_s))
        data, generator, killed = os.path.join(folder, "data"), random.Random(seed), 0
        look = Folder(data)
        for _ in range(KILLS):
            running = netdb.start("import", "--policy", KEEP_ALL_DAYS, "--data", data, log)
            time.sleep(generator.uniform(0, min(whole_s, LONGEST_DELAY_S)))
            running.kill()
            killed += running.wait() < 0
            look.look()
        print("%d killed, %d saves cut short, an import takes %.2f s" % (killed, look.saves_cut_short, whole_s))
        check(killed > 0, "every import had ended before it was killed")
        netdb.import_logs(data, log)
        check(keys_of(data) == keys, "after the last import the rows are others than without the kills")

    run_test(killed_imports)


if __name__ == "__main__":
    main()
