"""Filters real days against a real service over real sockets, and compares what remains with what this script computes
from the lists.

usage: filtered_history.py NETDB FOLDER_OF_DATA
"""
import contextlib
import glob
import ipaddress
import json
import os
import random
import re
import shutil
import signal
import socket
import subprocess
import sys
import time

from harness import KEEP_ALL_DAYS, Netdb, check, compare, queried_rows, run_test, skip

SYSMON = "sysmon"
LISTS = "reputation"
KILLS = 8
CACHE = "cache.4.db"


def harmless_networks(folder):
    """The IPv4 networks of the lists, by length: what is no network is left out."""
    by_length = {}
    for path in glob.glob(os.path.join(folder, "*.json")):
        with open(path, encoding="utf-8") as file:
            entries = json.load(file)["list"]
        for entry in entries:
            try:
                network = ipaddress.ip_network(entry, strict=False)
            except ValueError:
                continue
            if network.version == 4:
                by_length.setdefault(network.prefixlen, set()).add(int(network.network_address))
    return by_length


def is_harmless(address, networks):
    number = int(ipaddress.IPv4Address(address))
    return any(number >> (32 - length) << (32 - length) in known for length, known in networks.items())


def write_policy(folder, port=None, rest=""):
    path = os.path.join(folder, "policy.toml")
    with open(KEEP_ALL_DAYS, encoding="utf-8") as file:
        text = file.read()
    with open(path, "w", encoding="utf-8") as file:
        file.write(text + rest)
        if port is not None:
            file.write('\n[cloud]\nendpoint = "http://127.0.0.1:%d"\n' % port)
    return path


def unused_port():
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        return listener.getsockname()[1]


@contextlib.contextmanager
def service(netdb, lists):
    """A running service; gives its port."""
    port = unused_port()
    running = subprocess.Popen(
        [netdb.program, "reputation", "serve", "--lists", lists, "--listen", "127.0.0.1:%d" % port],
        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        until = time.monotonic() + 30
        while True:
            with socket.socket() as probe:
                if probe.connect_ex(("127.0.0.1", port)) == 0:
                    break
            check(running.poll() is None and time.monotonic() < until, "the service does not listen")
            time.sleep(0.02)
        yield port
    finally:
        running.terminate()
        running.wait()


def names_of(data):
    return sorted(os.listdir(os.path.join(data, "netdb")))


def days_of(data):
    """Those that are not filtered."""
    return [name for name in names_of(data) if re.fullmatch(r"[0-9]{10}\.db", name)]


def mend_cut_saves(data):
    """What a save that was killed leaves: a day without its file has it, whole, under the other name."""
    folder = os.path.join(data, "netdb")
    for name in names_of(data):
        path, day = os.path.join(folder, name), os.path.join(folder, name.removesuffix(".temp"))
        if not name.endswith(".temp"):
            continue
        if os.path.exists(day) or name.startswith("cache."):
            os.remove(path)
        else:
            os.rename(path, day)


def rows_of(netdb, data):
    return queried_rows(netdb.query(data))


def run_filter(netdb, data, policy, *arguments, exit_code=0):
    done = netdb.run("filter", "--data", data, "--policy", policy, "--format", "json", *arguments, exit_code=exit_code)
    return json.loads(done.stdout), done.stderr.decode()


def is_complete_filter(netdb, data, before, networks):
    """Every day is filtered, what remains is what the lists leave, and the folder verifies."""
    wanted = [row for row in before if not is_harmless(row["ip"], networks)]
    compare("the lists", wanted, "the filtered history", rows_of(netdb, data))
    strange = [name for name in names_of(data) if not re.fullmatch(r"[0-9]{10}\.db\.f|cache\.4\.db", name)]
    check(not strange, "left: %s", strange)
    netdb.run("verify", "--data", data)
    return wanted


def main():
    netdb, folder = Netdb(sys.argv[1]), sys.argv[2]
    lists = os.path.join(folder, LISTS)
    logs = sorted(glob.glob(os.path.join(folder, SYSMON, "*")))
    if not logs or not os.path.isdir(lists):
        skip("there is no recorded data at %s" % folder)
    networks = harmless_networks(lists)

    def filtered_days(folder):
        data, policy = os.path.join(folder, "data"), write_policy(folder)
        netdb.import_logs(data, "--policy", policy, *logs)
        before, days = rows_of(netdb, data), days_of(data)
        with service(netdb, lists) as port:
            policy = write_policy(folder, port)
            summary, _ = run_filter(netdb, data, policy)
            wanted = is_complete_filter(netdb, data, before, networks)
            removed = len(before) - len(wanted)
            check(0 < removed < len(before), "%d of %d rows are harmless, which shows nothing", removed, len(before))
            check(summary["rows_removed"] == removed, "%d rows were removed, not %d", summary["rows_removed"], removed)
            check(summary["filtered"] == len(days) and summary["failed"] == 0 and summary["left"] == 0,
                  "%s of %d days", summary, len(days))
            check(summary["requests"] >= len({row["ip"] for row in before}) / 50 - 1, "%s", summary)
            again, _ = run_filter(netdb, data, policy)
            check(again["files"] == [], "there was something left: %s", again)
            print("%d of %d rows removed from %d days in %d requests" % (removed, len(before), len(days),
                                                                         summary["requests"]))
        harmless_are_dropped_at_intake(data, policy, wanted)
        cache_is_rebuilt(data, policy, wanted)

    def harmless_are_dropped_at_intake(data, policy, wanted):
        """The service is gone; the cache survived from command to command."""
        cached = os.path.getsize(os.path.join(data, "netdb", CACHE))
        netdb.import_logs(data, "--policy", policy, *logs)
        check(os.path.getsize(os.path.join(data, "netdb", CACHE)) == cached, "the cache has another size now")
        known = {row["ip"] for row in wanted}
        strange = {row["ip"] for row in rows_of(netdb, data)} - known
        check(not strange, "stored though they are harmless: %s", sorted(strange)[:10])

    def cache_is_rebuilt(data, policy, wanted):
        path = os.path.join(data, "netdb", CACHE)
        with open(path, "r+b") as file:
            file.seek(-1, os.SEEK_END)
            last = file.read(1)
            file.seek(-1, os.SEEK_END)
            file.write(bytes([last[0] ^ 0xFF]))
        netdb.run("verify", "--data", data, exit_code=3)
        fresh = os.path.join(os.path.dirname(data), "fresh")
        os.makedirs(fresh)
        shutil.copytree(os.path.join(data, "netdb"), os.path.join(fresh, "netdb"))
        netdb.import_logs(fresh, "--policy", policy, *logs)
        check({row["ip"] for row in rows_of(netdb, fresh)} > {row["ip"] for row in wanted},
              "verdicts came out of a damaged cache")
        netdb.run("verify", "--data", fresh)

    def absent_service_loses_nothing(folder):
        data = os.path.join(folder, "data")
        netdb.import_logs(data, "--policy", write_policy(folder), *logs)
        before, days = rows_of(netdb, data), days_of(data)
        for policy in (write_policy(folder, unused_port()), write_policy(folder)):
            summary, said = run_filter(netdb, data, policy, exit_code=1)
            check(summary["filtered"] == 0 and summary["failed"] == 1 and summary["left"] == len(days) - 1,
                  "%s", summary)
            check("the cloud cannot be reached; %d files are left" % len(days) in said, "it said: %s", said)
            check(days_of(data) == days, "the folder holds %s", names_of(data))
            compare("before", before, "after", rows_of(netdb, data))
        netdb.run("verify", "--data", data)

    def killed_filters_are_completed(folder):
        data, generator, killed = os.path.join(folder, "data"), random.Random(), 0
        netdb.import_logs(data, "--policy", write_policy(folder), *logs)
        before = rows_of(netdb, data)
        with service(netdb, lists) as port:
            policy = write_policy(folder, port)
            for _ in range(KILLS):
                running = netdb.start("filter", "--data", data, "--policy", policy)
                time.sleep(generator.uniform(0, 1.2))
                running.kill()
                killed += running.wait() == -signal.SIGKILL
                mend_cut_saves(data)
                rows = rows_of(netdb, data)
                check(all(row in rows for row in before if not is_harmless(row["ip"], networks)), "a row is lost")
            check(killed > 0, "every filter had ended before it was killed")
            run_filter(netdb, data, policy)
            is_complete_filter(netdb, data, before, networks)
            print("%d of %d killed" % (killed, KILLS))

    def interrupted_filter_says_so(folder):
        data = os.path.join(folder, "data")
        netdb.import_logs(data, "--policy", write_policy(folder), *logs)
        before = rows_of(netdb, data)
        with service(netdb, lists) as port:
            policy = write_policy(folder, port)
            running = subprocess.Popen([netdb.program, "filter", "--data", data, "--policy", policy, "--format", "json"],
                                       stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            until = time.monotonic() + 60
            while not any(name.endswith(".f") for name in names_of(data)):
                check(running.poll() is None and time.monotonic() < until, "no day was filtered")
                time.sleep(0.01)
            running.send_signal(signal.SIGINT)
            out, said = running.communicate(timeout=60)
            summary = json.loads(out)
            check(running.returncode == 3, "it ended with %d: %s", running.returncode, said)
            check(b"interrupted; what the cloud said until then is kept" in said, "it said: %s", said)
            check(summary["filtered"] > 0 and summary["failed"] + summary["left"] > 0, "%s", summary)
            run_filter(netdb, data, policy)
            is_complete_filter(netdb, data, before, networks)

    run_test(filtered_days, absent_service_loses_nothing, killed_filters_are_completed, interrupted_filter_says_so)


if __name__ == "__main__":
    main()
