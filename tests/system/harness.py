"""What the tests of the whole program share: running it, reading a data folder in three ways, comparing rows."""
import contextlib
import json
import os
import subprocess
import sys
import tempfile

import read_day_file

HERE = os.path.dirname(os.path.abspath(__file__))
SKIP_EXIT_CODE = 77
# In the order of their bits.
PROTOCOLS = ("HTTP", "SMB", "FTP", "Telnet", "RDP", "SSH", "SSL", "WMI", "RPC", "ICMP", "UDP", "TCP")
MOST_DIFFERENCES_SHOWN = 10
VERDICT_CACHES = ("cache.4.db", "cache.6.db")
KEEP_ALL_DAYS = os.path.join(HERE, "keep_all_days.toml")


class Failure(Exception):
    """A check that did not hold, as a sentence."""


def check(condition, message, *arguments):
    if not condition:
        raise Failure(message % arguments)


def skip(reason):
    print("skipped:", reason)
    sys.exit(SKIP_EXIT_CODE)


@contextlib.contextmanager
def temporary_folder():
    with tempfile.TemporaryDirectory(prefix="netdb-test-") as folder:
        yield folder


def run_test(*steps):
    """Runs the functions in turn, each with a temporary folder of its own. A failed check ends the test."""
    for step in steps:
        with temporary_folder() as folder:
            try:
                step(folder)
            except Failure as failure:
                sys.exit("%s: %s" % (step.__name__, failure))
        print("%s: good" % step.__name__, flush=True)


class Netdb:
    """The program under test."""

    def __init__(self, program):
        self.program = os.path.abspath(program)

    def start(self, *arguments):
        """Without output of its own."""
        return subprocess.Popen([self.program, *arguments], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def run(self, *arguments, exit_code=0, stdin=None):
        """The outcome, once the exit code is the wanted one."""
        done = subprocess.run([self.program, *arguments], capture_output=True, input=stdin, check=False)
        check(done.returncode == exit_code, "netdb %s ended with %d, not %d\n%s", " ".join(arguments[:8]),
              done.returncode, exit_code, done.stderr.decode(errors="replace")[-2000:])
        return done

    def import_logs(self, data, *arguments, **wanted):
        """The summary of the import. Every day is kept unless the arguments name another policy."""
        policy = () if "--policy" in arguments else ("--policy", KEEP_ALL_DAYS)
        return json.loads(self.run("import", "--data", data, "--json", *policy, *arguments, **wanted).stdout)

    def query(self, data, *arguments):
        """What the query prints, one row a line."""
        return self.run("query", "--data", data, "--format", "jsonl", *arguments).stdout


def day_files(data):
    """Names in the folder of the day files; besides them a complete import leaves only the verdict caches."""
    folder = os.path.join(data, "netdb")
    names = sorted(name for name in os.listdir(folder) if name not in VERDICT_CACHES)
    strange = [name for name in names if not name.endswith(".db")]
    check(not strange, "left behind: %s", strange)
    for path in [folder] + [os.path.join(folder, name) for name in names]:
        mode = os.stat(path).st_mode & 0o777
        check(mode == (0o700 if path == folder else 0o600), "%s has mode %o", path, mode)
    return [os.path.join(folder, name) for name in names]


def stored_rows(data):
    rows = []
    for path in day_files(data):
        try:
            rows += read_day_file.read_day_file(path)
        except read_day_file.Violation as violation:
            raise Failure("%s: %s" % (path, violation)) from violation
    return rows


def queried_rows(output):
    """Rows as `netdb query` prints them, in the form of the other two."""
    rows = []
    for line in output.decode().splitlines():
        row = json.loads(line)
        for name in ("first_seen", "last_seen"):
            check(row[name] % 1000 == 0, "%s is no whole second: %s", name, line)
            row[name] //= 1000
        names = row["protos"].split(",") if row["protos"] else []
        check(names == sorted(names, key=PROTOCOLS.index), "protocols out of order: %s", line)
        row["protos"] = sum(1 << PROTOCOLS.index(name) for name in names)
        rows.append(row)
    return rows


def expected(*arguments):
    done = subprocess.run([sys.executable, os.path.join(HERE, "expected_rows.py"), *arguments], capture_output=True,
                          check=False)
    check(done.returncode == 0, "expected_rows.py: %s", done.stderr.decode()[-2000:])
    return [json.loads(line) for line in done.stdout.decode().splitlines()]


def compare(what, rows, others_name, others):
    """Both must hold the same rows with the same fields, as often."""
    lines, other_lines = (sorted(json.dumps(row, sort_keys=True) for row in side) for side in (rows, others))
    if lines == other_lines:
        return
    mine, theirs = (sorted(set(a) - set(b)) for a, b in ((lines, other_lines), (other_lines, lines)))
    shown = ["%s only: %s" % (name, line) for name, side in ((what, mine), (others_name, theirs))
             for line in side[:MOST_DIFFERENCES_SHOWN]]
    raise Failure("%s has %d rows, %s %d; %d and %d differ\n%s" % (
        what, len(rows), others_name, len(others), len(mine), len(theirs), "\n".join(shown)))


def check_import(netdb, data, *arguments, policy=KEEP_ALL_DAYS, means=()):
    """Imports, then compares the expected rows, those in the files, those of the query, and the summary.

    `means` says what the policy says, in options of expected_rows.py."""
    summary = netdb.import_logs(data, "--policy", policy, *arguments)
    *wanted, wanted_summary = expected("--summary", *means, *arguments)
    compare("the log", wanted, "the day files", stored_rows(data))
    compare("the log", wanted, "the query", queried_rows(netdb.query(data)))
    check(summary == wanted_summary, "the summary is %s, not %s", summary, wanted_summary)
    return wanted
