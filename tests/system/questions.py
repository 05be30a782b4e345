"""Asks an imported history by `netdb query` with filters, `show`, `top` and `new`, and compares each answer with what Python
makes of the rows that an independent script computes from the same logs.

usage: questions.py NETDB FOLDER_OF_LOGS
"""
import collections
import glob
import ipaddress
import json
import os
import random
import re
import sys
from datetime import datetime, timezone

from harness import PROTOCOLS, Netdb, check, check_import, compare, queried_rows, run_test
from import_of_made_logs import good_tsv_lines, made_connections, made_processes, write
from made_logs import TSV_HEAD, json_lines, random_lines

QUERIES = 100
KEYS = {"ip": lambda row: int(ipaddress.ip_address(row["ip"]))}
NAMES = {"http": "HTTP", "https": "HTTP", "ssl": "SSL", "TCP": "TCP", "ftps": "FTP", "dce_rpc": "RPC", "icmp": "ICMP",
         "rdp": "RDP", "Smb": "SMB", "telnet": "Telnet"}


def seeded():
    seed = int(os.environ.get("NETDB_TEST_SEED", random.randrange(2**32)))
    print("seed %d" % seed)
    return random.Random(seed)


def date(second):
    return datetime.fromtimestamp(second, timezone.utc).strftime("%Y-%m-%d")


def like(pattern):
    parts = {"%": ".*", "_": "."}
    text = "".join(parts.get(character, re.escape(character)) for character in pattern)
    return re.compile(text, re.IGNORECASE | re.DOTALL | re.ASCII).fullmatch


class Filters:
    """Options of a query, each with the test that its rows have to pass."""

    def __init__(self, rows, generator):
        self.rows, self.generator = rows, generator

    def value(self, column, absent):
        return self.generator.choice([row[column] for row in self.rows] + [absent])

    def ip(self):
        address = self.value("ip", "8.8.4.4")
        if self.generator.random() < 0.5:
            return address, lambda row: row["ip"] == address
        block = "%s/%d" % (address, self.generator.randrange(8, 33))
        network = ipaddress.ip_network(block, strict=False)
        return block, lambda row: ipaddress.ip_address(row["ip"]) in network

    def process(self):
        path = self.value("proc_fpath", "/nowhere") or "System"
        if self.generator.random() < 0.5:
            return path, lambda row: row["proc_fpath"] == path
        middle = path[self.generator.randrange(len(path)):].swapcase()
        pattern = "%" + middle.replace(middle[0], "_", 1) + self.generator.choice(("", "%"))
        matches = like(pattern)
        return pattern, lambda row: matches(row["proc_fpath"]) is not None

    def port(self):
        port = self.value("port", 9)
        return str(port), lambda row: row["port"] == port

    def proto(self):
        name = self.generator.choice(list(NAMES))
        bit = 1 << PROTOCOLS.index(NAMES[name])
        return name, lambda row: row["protos"] & bit != 0

    def md5(self):
        digest = self.value("proc_md5", "f" * 32)
        return self.generator.choice((digest, digest.upper())), lambda row: row["proc_md5"] == digest

    def qid(self):
        digest = self.value("proc_qid", "f" * 64)
        return digest, lambda row: row["proc_qid"] == digest

    def range(self):
        """Two options at once, or one of them."""
        ends = sorted(self.value("first_seen", 2) + self.generator.randrange(-2, 3) for _ in range(2))
        since, until = self.generator.choice(((ends[0], ends[1]), (ends[0], 2**62), (0, ends[1])))
        options = [text for name, end, usual in (("--since", since, 0), ("--until", until, 2**62)) if end != usual
                   for text in (name, str(end))]
        return options, lambda row: row["first_seen"] <= until and row["last_seen"] >= since

    def pick(self):
        """Options, and the test of all of them."""
        options, tests = self.range() if self.generator.random() < 0.3 else ([], lambda row: True)
        tests = [tests]
        for name in self.generator.sample(("ip", "process", "port", "proto", "md5", "qid"), self.generator.choice((1, 1, 2, 3))):
            picked = [getattr(self, name)() for _ in range(self.generator.choice((1, 1, 2, 4)))]
            options += [text for value, _ in picked for text in ("--" + name, value)]
            tests.append(lambda row, picked=picked: any(test(row) for _, test in picked))
        return options, lambda row: all(test(row) for test in tests)


def check_filters(netdb, data, rows, generator):
    """Every answer is the whole history in its order, without the rows that fail."""
    filters = Filters(rows, generator)
    whole = queried_rows(netdb.query(data))
    days = [row["first_seen"] // 86400 for row in whole]
    check(days == sorted(days), "days out of order")
    found = 0
    for _ in range(QUERIES):
        options, test = filters.pick()
        wanted = [row for row in whole if test(row)]
        got = queried_rows(netdb.query(data, *options))
        if got != wanted:
            compare("the log", wanted, "the query " + " ".join(options), got)
            check(False, "the query %s has another order", " ".join(options))
        found += len(wanted) > 0
    check(found > QUERIES // 10, "only %d queries found anything", found)


def check_order(netdb, data, rows, generator):
    columns = list(rows[0])
    for _ in range(20):
        order = generator.sample([name for name in columns if name not in ("ip", "protos")], 2)
        marks = [generator.choice(("", ":asc", ":desc")) for _ in order]
        shown = generator.sample(columns, 3)
        limit = generator.choice((1, 7, 10**6))
        options = ["--order", ",".join(map(str.__add__, order, marks)), "--limit", str(limit)]
        wanted = list(rows)
        for name, mark in reversed(list(zip(order, marks))):
            wanted.sort(key=lambda row, name=name: row[name], reverse=mark == ":desc")
        got = queried_rows(netdb.query(data, *options))
        check([[row[name] for name in order] for row in got] == [[row[name] for name in order] for row in wanted[:limit]],
              "%s gives another order", options)
        lines = netdb.query(data, "--columns", ",".join(shown).upper(), *options).decode().splitlines()
        check(all(list(json.loads(line)) == shown for line in lines), "columns %s: %s", shown, lines[:1])
        check(len(lines) == len(got), "%d rows of columns, %d rows", len(lines), len(got))
    for mark in (":asc", ":desc"):
        addresses = [KEYS["ip"](row) for row in queried_rows(netdb.query(data, "--order", "ip" + mark))]
        check(addresses == sorted(addresses, reverse=mark == ":desc"), "addresses do not sort as numbers")


def sums(rows):
    received, sent = (sum(row[name] for row in rows) for name in ("bytes_in", "bytes_out"))
    return {"conns": sum(row["conns_total"] for row in rows), "bytes_in": received, "bytes_out": sent}


def grouped(rows, key):
    groups = collections.defaultdict(list)
    for row in rows:
        groups[key(row)].append(row)
    return groups


def check_top(netdb, data, rows):
    keys = {"ip": lambda row: row["ip"], "process": lambda row: row["proc_fpath"], "port": lambda row: row["port"],
            "day": lambda row: date(row["first_seen"])}
    middle = sorted(row["first_seen"] for row in rows)[len(rows) // 2]
    for of, key in keys.items():
        for by in ("bytes", "conns", "bytes_in", "bytes_out"):
            for since, limit in ((0, 10), (middle, 10**6)):
                wanted = []
                for name, group in grouped((row for row in rows if row["last_seen"] >= since), key).items():
                    total = sums(group)
                    wanted.append(dict({of: name}, **total, bytes=total["bytes_in"] + total["bytes_out"]))
                wanted = [entry for entry in wanted if entry[of] != ""]
                wanted.sort(key=lambda entry, of=of, by=by: (-entry[by], entry[of]))
                got = netdb.run("top", "--data", data, "--of", of, "--by", by, "--limit", str(limit), "--since",
                                str(since), "--format", "json").stdout
                check(json.loads(got) == wanted[:limit], "top of %s by %s: %s, not %s", of, by, got.decode(), wanted[:limit])


def check_new(netdb, data, rows, generator):
    times = [row["first_seen"] for row in generator.sample(rows, 10)]
    for since in times + [0, max(times) + 10**6]:
        wanted = []
        for kind, column in (("ip", "ip"), ("process", "proc_fpath")):
            for name, group in grouped(rows, lambda row, column=column: row[column]).items():
                first = min(row["first_seen"] for row in group)
                if name and first >= since:
                    last = max(row["last_seen"] for row in group)
                    wanted.append(dict({"kind": kind, "name": name, "first_seen": first * 1000,
                                        "last_seen": last * 1000}, **sums(group)))
        wanted.sort(key=lambda entry: (entry["kind"], entry["first_seen"], entry["name"]))
        got = json.loads(netdb.run("new", "--data", data, "--since", str(since), "--format", "json").stdout)
        check(got == wanted, "new since %d: %s, not %s", since, got, wanted)


def ranking(rows, name, keys):
    groups = collections.defaultdict(lambda: [0, 0])
    for row in rows:
        for key in keys(row):
            groups[key][0] += row["conns_total"]
            groups[key][1] += row["bytes_in"] + row["bytes_out"]
    entries = [{name: key, "conns": conns, "bytes": size} for key, (conns, size) in groups.items()]
    entries.sort(key=lambda entry: (-entry["conns"], -entry["bytes"], str(entry[name])))
    return {"count": len(entries), "top": entries[:10]}


def check_show(netdb, data, rows, generator):
    subjects = [("ip", row["ip"], lambda other, row=row: other["ip"] == row["ip"]) for row in generator.sample(rows, 10)]
    subjects += [("process", path, lambda other, path=path: other["proc_fpath"] == path)
                 for path in sorted({row["proc_fpath"] for row in rows} - {""})]
    for of, name, test in subjects:
        mine = [row for row in rows if test(row)]
        total = sums(mine)
        wanted = {of: name, "first_seen": min(row["first_seen"] for row in mine) * 1000,
                  "last_seen": max(row["last_seen"] for row in mine) * 1000,
                  "days": len({row["first_seen"] // 86400 for row in mine}), "conns_total": total["conns"],
                  "conns_in": sum(row["conns_in"] for row in mine), "conns_out": sum(row["conns_out"] for row in mine),
                  "bytes_in": total["bytes_in"], "bytes_out": total["bytes_out"],
                  "ports": ranking(mine, "port", lambda row: [row["port"]]),
                  "protocols": ranking(mine, "protocol", lambda row: [
                      protocol for bit, protocol in enumerate(PROTOCOLS) if row["protos"] >> bit & 1])}
        if of == "ip":
            wanted["processes"] = ranking(mine, "process", lambda row: [row["proc_fpath"]])
        else:
            wanted["peers"] = ranking(mine, "ip", lambda row: [row["ip"]])
        got = json.loads(netdb.run("show", "--data", data, name, "--format", "json").stdout)
        check(got == wanted, "show %s: %s, not %s", name, got, wanted)


def main():
    netdb, logs = Netdb(sys.argv[1]), sys.argv[2]

    def ask(data, generator, files):
        rows = check_import(netdb, data, *files)
        check_filters(netdb, data, rows, generator)
        check_order(netdb, data, rows, generator)
        check_top(netdb, data, rows)
        check_new(netdb, data, rows, generator)
        check_show(netdb, data, rows, generator)

    def made_logs(folder):
        generator = seeded()
        lines = list(good_tsv_lines()) + list(random_lines(generator, 1000, 5, addresses=30))
        ask(os.path.join(folder, "data"), generator,
            [write(folder, "conn.log", TSV_HEAD + "".join(lines)),
             write(folder, "sysmon.ndjson", json_lines([*made_processes(), *made_connections()]))])

    def recorded_logs(folder):
        files = sorted(glob.glob(os.path.join(logs, "zeek", "*")) + glob.glob(os.path.join(logs, "sysmon", "*")))
        if not files:
            print("there are no recorded logs at %s" % logs)
            return
        ask(os.path.join(folder, "data"), seeded(), files)

    run_test(made_logs, recorded_logs)


if __name__ == "__main__":
    main()
