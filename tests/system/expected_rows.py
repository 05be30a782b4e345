#!/usr/bin/env python3
"""Computes the rows that an import must give, straight from recorded logs.

Shares nothing with the program: it reads Zeek conn.log (TSV or JSON) and Sysmon events 1 and 3 (one JSON object a
line), and prints one JSON object a row, sorted. Times are epoch seconds; numbers are exact (decimal arithmetic).

usage: expected_rows.py [--local ADDRESS|NETWORK,...] [--max-days DAYS] [--keep-private] [--summary] FILE...

--max-days and --keep-private say what the policy of the import says; without them every day is kept, and no private
address. --summary adds a last line with the numbers of the import's summary, as one JSON object.
"""
import argparse
import collections
import decimal
import gzip
import hashlib
import ipaddress
import json
import re
import time
from datetime import datetime, timezone

PRIVATE = [ipaddress.ip_network(n) for n in ("10.0.0.0/8", "172.16.0.0/12", "192.168.0.0/16")]
SPECIAL = [ipaddress.ip_network(n) for n in ("127.0.0.0/8", "169.254.0.0/16", "0.0.0.0/32")]
BITS = {"http": 0x1, "https": 0x1, "http(s)": 0x1, "smb": 0x2, "ftp": 0x4, "ftps": 0x4, "telnet": 0x8, "rdp": 0x10,
        "ssh": 0x20, "ssl": 0x40, "wmi": 0x80, "rpc": 0x100, "dce_rpc": 0x100, "tcp": 0x800}
NO_PROCESS = ("", "0" * 32, "0" * 64, 0, -1)
REASONS = ("malformed", "ipv6", "not_one_local_side", "time_out_of_range", "bytes_too_large", "too_old",
           "private_address", "special_address")
MALFORMED = (ValueError, KeyError, TypeError, AttributeError, decimal.InvalidOperation)
MAX_BYTES = 2**40
MAX_EVENT_BYTES = 2**32 - 1


class Skipped(Exception):
    """A connection that does not count, by its reason."""


def within(address, networks):
    return any(address in network for network in networks)


def open_text(path):
    return gzip.open(path, "rt", encoding="utf-8") if path.endswith(".gz") else open(path, encoding="utf-8")


def lines_of(path):
    with open_text(path) as lines:
        yield from (line.rstrip("\r\n") for line in lines)


class Rows:
    """Rows by (day, address, process, port), merged as they come, and what the summary says of them."""

    def __init__(self, local, max_days, keep_private):
        self.local = local
        self.now = time.time()
        self.past_days = range(int(self.now) // 86400 - max_days + 1 if max_days is not None else 0)
        self.keep_private = keep_private
        self.rows = {}
        self.summary = {"lines_read": 0, "connections": 0, "events": 0, "skipped": dict.fromkeys(REASONS, 0)}

    def row(self, second, ip, port, process):
        row = self.rows.setdefault((second // 86400, ip, process, port), {
            "first_seen": second, "last_seen": second, "protos": 0, "conns_total": 0, "conns_in": 0, "conns_out": 0,
            "bytes_in": 0, "bytes_out": 0})
        row["first_seen"] = min(row["first_seen"], second)
        row["last_seen"] = max(row["last_seen"], second)
        return row

    def read_line(self, read, line):
        self.summary["lines_read"] += 1
        try:
            read(self, line)
        except Skipped as skipped:
            self.summary["skipped"][str(skipped)] += 1
        except MALFORMED:
            self.summary["skipped"]["malformed"] += 1

    def remote_side(self, a, b):
        """0 or 1 for the side that is remote."""
        a, b = ipaddress.ip_address(a), ipaddress.ip_address(b)
        if a.version == 6 or b.version == 6:
            raise Skipped("ipv6")
        if within(a, self.local) == within(b, self.local):
            raise Skipped("not_one_local_side")
        return 0 if within(b, self.local) else 1

    def connection(self, start, end, remote, port, process, outbound, tcp, services, received, sent):
        """end is None when neither a duration nor byte counts are known."""
        ip = ipaddress.ip_address(remote)
        if start < 10**9 or int(end or start) > self.now:
            raise Skipped("time_out_of_range")
        if max(received, sent) > MAX_BYTES:
            raise Skipped("bytes_too_large")
        if int(start) // 86400 in self.past_days:
            raise Skipped("too_old")
        if within(ip, PRIVATE) and not self.keep_private:
            raise Skipped("private_address")
        if within(ip, SPECIAL):
            raise Skipped("special_address")
        known = [name.lower() for name in services if name.lower() in BITS]
        parts = 0 if end is None else max(1, -(-max(received, sent) // MAX_EVENT_BYTES))
        self.summary["connections"] += 1
        self.summary["events"] += 1 + len(known) + parts
        row = self.row(int(start), ip, port, process)
        row["conns_total"] += 1
        row["conns_out" if outbound else "conns_in"] += 1
        for name in known + (["tcp"] if tcp else []):
            row["protos"] |= BITS[name]
        if end is not None:
            row = self.row(int(end), ip, port, process)
            row["bytes_in"] += received
            row["bytes_out"] += sent

    def print(self):
        out = []
        for (_, ip, process, port), row in self.rows.items():
            path, md5, qid, puid, pid = process
            out.append(dict(row, ip=str(ip), port=port, proc_fpath=path, proc_md5=md5, proc_qid=qid, proc_puid=puid,
                            proc_pid=pid))
        for line in sorted(json.dumps(row, sort_keys=True) for row in out):
            print(line)


def number(value, highest):
    value = int(value)
    if not 0 <= value <= highest:
        raise ValueError(value)
    return value


class ZeekLog:
    """Reads lines of one conn.log; the names of TSV columns come in a line of their own."""

    def __init__(self):
        self.fields = []

    def record(self, line):
        if line.startswith("{"):
            record = json.loads(line, parse_float=decimal.Decimal)
            return {key.replace("id_orig", "id.orig").replace("id_resp", "id.resp"): value
                    for key, value in record.items()}
        values = line.split("\t")
        if len(values) != len(self.fields):
            raise ValueError(line)
        return {key: None if value in ("-", "(empty)") else value for key, value in zip(self.fields, values)}

    def read(self, rows, line):
        if line.startswith("#fields"):
            self.fields = line.split("\t")[1:]
        if not line or line.startswith("#"):
            return
        r = self.record(line)
        start = decimal.Decimal(str(r["ts"]))
        port = number(r["id.resp_p"], 65535)
        duration = None if r.get("duration") is None else decimal.Decimal(str(r["duration"]))
        counts = [None if r.get(name) is None else number(r[name], 2**64 - 1) for name in ("orig_bytes", "resp_bytes")]
        if start < 0 or (duration or 0) < 0:
            raise ValueError(line)
        outbound = rows.remote_side(r["id.orig_h"], r["id.resp_h"]) == 1
        sent, received = counts if outbound else counts[::-1]
        known = duration is not None or counts != [None, None]
        rows.connection(start, start + (duration or 0) if known else None, r["id.resp_h" if outbound else "id.orig_h"],
                        port, NO_PROCESS, outbound, r["proto"] == "tcp", (r.get("service") or "").split(","),
                        received or 0, sent or 0)


def sysmon_record(line):
    record = json.loads(line)
    if isinstance(record.get("EventData"), str):
        record.update(json.loads(record["EventData"]))
        record.setdefault("EventID", 3 if "DestinationIp" in record else 1)
    return record


def sysmon_time(text):
    text = text.rstrip("Z").replace("T", " ")
    whole, _, fraction = text.partition(".")
    seconds = int(datetime.strptime(whole, "%Y-%m-%d %H:%M:%S").replace(tzinfo=timezone.utc).timestamp())
    return seconds + decimal.Decimal("0." + (fraction or "0"))


def process_id(record):
    """The number "ProcessID" comes last: the collectors that write it put the id of the logging process there."""
    if record.get("ProcessId"):
        return int(record["ProcessId"])
    found = re.search(r"^ProcessId: (\d+)", record.get("Message") or "", re.MULTILINE)
    return int(found.group(1)) if found else record.get("ProcessID")


def digest(hashes, name, size):
    found = re.search(r"\b%s=([0-9A-Fa-f]{%d})\b" % (name, size), hashes or "")
    return found.group(1).lower() if found else "0" * size


class Identities:
    """What the files say of processes: by GUID the first path and the first known id; by path the latest digests."""

    def __init__(self):
        self.path, self.pid, self.hashes = {}, {}, {}

    def learn(self, record):
        guid, pid = self.key(record), process_id(record)
        self.path.setdefault(guid, record["Image"])
        if pid is not None:
            self.pid.setdefault(guid, pid)
        if record.get("Hashes"):
            at = sysmon_time(record["UtcTime"])
            for path in (record["Image"], record["Image"].lower()):
                if path not in self.hashes or self.hashes[path][0] <= at:
                    self.hashes[path] = (at, record["Hashes"])

    @staticmethod
    def key(record):
        guid = record["ProcessGuid"].strip("{}").lower()
        if set(guid) <= set("0-"):  # no identity: the id and the path have to tell processes apart
            return "%s/%s/%s" % (guid, process_id(record) or 0, record["Image"])
        return guid

    def process(self, record):
        guid = self.key(record)
        path = self.path[guid]
        hashes = self.hashes.get(path, self.hashes.get(path.lower(), (0, "")))[1]
        puid = int.from_bytes(hashlib.sha256(guid.encode()).digest()[:8], "little")
        return path, digest(hashes, "MD5", 32), digest(hashes, "SHA256", 64), puid, self.pid.get(guid, 0)


class SysmonLogs:
    """Events 1 and 3 of all files; who made a connection may stand in another file than the connection."""

    def __init__(self, paths):
        self.identities = Identities()
        records = []
        for path in paths:
            for line in lines_of(path):
                try:
                    records.append(sysmon_record(line))
                except MALFORMED:
                    continue  # counted when it is read as a connection
        for record in sorted(records, key=lambda r: r["EventID"]):
            if record["EventID"] in (1, 3):
                self.identities.learn(record)

    def read(self, rows, line):
        if not line:
            return
        r = sysmon_record(line)
        if r["EventID"] != 3:
            return
        at = sysmon_time(r["UtcTime"])
        ports = [number(r["SourcePort"], 65535), number(r["DestinationPort"], 65535)]
        outbound = {"true": True, "false": False}[str(r["Initiated"]).lower()]
        remote = rows.remote_side(r["SourceIp"], r["DestinationIp"])
        rows.connection(at, None, r["SourceIp" if remote == 0 else "DestinationIp"],
                        ports[remote if outbound else 1 - remote], self.identities.process(r), outbound,
                        r["Protocol"] == "tcp", [], 0, 0)


def is_sysmon(path):
    first = next(lines_of(path), "")
    return first.startswith("{") and ("EventID" in first or "EventData" in first)


def main():
    parser = argparse.ArgumentParser(description="Computes the rows that an import must give.")
    parser.add_argument("--local", default=",".join(map(str, PRIVATE + SPECIAL[:2])))
    parser.add_argument("--max-days", type=int)
    parser.add_argument("--keep-private", action="store_true")
    parser.add_argument("--summary", action="store_true")
    parser.add_argument("files", metavar="FILE", nargs="+")
    arguments = parser.parse_args()
    local = [ipaddress.ip_network(n) for n in arguments.local.split(",")]
    rows = Rows(local, arguments.max_days, arguments.keep_private)
    kinds = collections.defaultdict(list)
    for path in arguments.files:
        kinds[is_sysmon(path)].append(path)
    sysmon = SysmonLogs(kinds[True])
    for path in arguments.files:
        read = sysmon.read if path in kinds[True] else ZeekLog().read
        for line in lines_of(path):
            rows.read_line(read, line)
    rows.print()
    if arguments.summary:
        print(json.dumps(rows.summary, sort_keys=True))


if __name__ == "__main__":
    main()
