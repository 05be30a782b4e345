"""What `netdb query --format jsonl` prints, `netdb import` takes back: the rows of the new folder equal those of the old,
but for those whose sums are above what one line may say.

usage: jsonl_round_trip.py NETDB
"""
import json
import os
import random
import subprocess
import sys

from harness import KEEP_ALL_DAYS, Netdb, check, compare, queried_rows, run_test, stored_rows
from import_of_made_logs import good_tsv_lines, made_connections, made_processes, write
from made_logs import TSV_HEAD, json_lines, random_lines

MAX_BYTES = 2**40  # of one line


def main():
    netdb = Netdb(sys.argv[1])

    def through_a_pipe(folder):
        old, new = os.path.join(folder, "old"), os.path.join(folder, "new")
        lines = list(good_tsv_lines()) + list(random_lines(random.Random(2), 1000, 4, addresses=30))
        netdb.import_logs(old, write(folder, "conn.log", TSV_HEAD + "".join(lines)),
                          write(folder, "sysmon.ndjson", json_lines([*made_processes(), *made_connections()])))
        with subprocess.Popen([netdb.program, "query", "--data", old, "--format", "jsonl"],
                              stdout=subprocess.PIPE) as query:
            done = subprocess.run([netdb.program, "import", "--policy", KEEP_ALL_DAYS, "--data", new, "--json", "-"], stdin=query.stdout, check=False,
                                  capture_output=True)
        check((query.returncode, done.returncode) == (0, 0), "exit codes %d and %d\n%s", query.returncode,
              done.returncode, done.stderr.decode())
        rows = stored_rows(old)
        kept = [row for row in rows if max(row["bytes_in"], row["bytes_out"]) <= MAX_BYTES]
        skipped = json.loads(done.stdout)["skipped"]
        check(skipped["bytes_too_large"] == len(rows) - len(kept) == sum(skipped.values()), "skipped: %s", skipped)
        check(kept, "no row at all")
        compare("the old folder", kept, "the new folder", stored_rows(new))
        compare("the old folder", kept, "the query of the new", queried_rows(netdb.query(new)))

    run_test(through_a_pipe)


if __name__ == "__main__":
    main()
