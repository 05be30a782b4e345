"""Imports real logs, and compares every field of every row with what an independent script computes from them.

usage: import_of_recorded_logs.py NETDB FOLDER_OF_LOGS
"""
import glob
import os
import sys

from harness import Netdb, check, check_import, run_test, skip

LOCAL_SIDES = "10.0.1.0/24,192.168.33.10,54.245.228.191"


def main():
    netdb, folder = Netdb(sys.argv[1]), sys.argv[2]
    if not os.path.isdir(folder):
        skip("there are no recorded logs at %s" % folder)
    zeek = sorted(glob.glob(os.path.join(folder, "zeek", "*")))
    sysmon = sorted(glob.glob(os.path.join(folder, "sysmon", "*")))

    def must_give_rows(data, *arguments):
        check(check_import(netdb, data, *arguments), "no row at all")

    def zeek_logs(data):
        must_give_rows(data, *zeek)

    def zeek_logs_with_local_sides_given(data):
        must_give_rows(data, "--local", LOCAL_SIDES, *zeek)

    def zeek_logs_under_the_usual_limit(folder):
        policy = os.path.join(folder, "empty.toml")
        with open(policy, "w", encoding="utf-8"):
            pass
        check_import(netdb, os.path.join(folder, "data"), *zeek, policy=policy, means=("--max-days", "3653"))

    def sysmon_logs(data):
        must_give_rows(data, *sysmon)

    def sysmon_logs_in_the_other_order(data):
        must_give_rows(data, *reversed(sysmon))

    def all_logs_together(data):
        must_give_rows(data, *zeek, *sysmon)

    run_test(zeek_logs, zeek_logs_with_local_sides_given, zeek_logs_under_the_usual_limit, sysmon_logs, sysmon_logs_in_the_other_order, all_logs_together)


if __name__ == "__main__":
    main()
