"""Imports a day with so many rows that its file has several pages, and compares every field of every row.

usage: import_of_a_large_day.py NETDB
"""
import os
import sys

from harness import Netdb, check, check_import, run_test
from made_logs import DAY, LOCAL, TSV_HEAD, tsv_line

ROWS = 115_000  # 46 bytes each, in pages of 5 MiB
PORTS = 20_000


def lines():
    """In the order in which rows are kept, which is the cheapest to store."""
    for number in range(ROWS):
        remote = ("192.0.2.%d" % (number // PORTS), number % PORTS)
        yield tsv_line(DAY + number % 80_000, (LOCAL, 50000), remote, proto="udp", duration="0.5", sent=number * number,
                       received=number)


def main():
    netdb = Netdb(sys.argv[1])

    def a_large_day(folder):
        log = os.path.join(folder, "conn.log")
        with open(log, "w", encoding="utf-8") as file:
            file.write(TSV_HEAD)
            file.writelines(lines())
        rows = check_import(netdb, os.path.join(folder, "data"), log)
        check(len(rows) == ROWS, "%d rows", len(rows))

    run_test(a_large_day)


if __name__ == "__main__":
    main()
