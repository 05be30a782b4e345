#!/usr/bin/env python3
"""Computes the rows that an import must give, straight from recorded logs.

Shares nothing with the program: it reads Zeek conn.log (TSV or JSON) and Sysmon events 1 and 3 (one JSON object a
line), and prints one JSON object a row, sorted. Times are epoch seconds; numbers are exact (decimal arithmetic).

usage: expected_rows.py FILE...
"""
import collections
import decimal
import gzip
import hashlib
import ipaddress
import json
import re
import sys
import time
from datetime import datetime, timezone

LOCAL = [ipaddress.ip_network(n) for n in
         ("10.0.0.0/8", "172.16.0.0/12", "192.168.0.0/16", "127.0.0.0/8", "169.254.0.0/16")]
BITS = {"http": 0x1, "https": 0x1, "http(s)": 0x1, "smb": 0x2, "ftp": 0x4, "ftps": 0x4, "telnet": 0x8, "rdp": 0x10,
        "ssh": 0x20, "ssl": 0x40, "wmi": 0x80, "rpc": 0x100, "dce_rpc": 0x100, "tcp": 0x800}
NO_PROCESS = ("", "0" * 32, "0" * 64, 0, -1)


def is_local(address):
    return any(address in network for network in LOCAL)


def open_text(path):
    return gzip.open(path, "rt", encoding="utf-8") if path.endswith(".gz") else open(path, encoding="utf-8")


class Rows:
    """Rows by (day, address, process, port), merged as they come."""

    def __init__(self):
        self.rows = {}

    def row(self, second, ip, port, process):
        day = second // 86400 * 86400
        row = self.rows.setdefault((day, ip, process, port), {
            "first_seen": second, "last_seen": second, "protos": 0, "conns_total": 0, "conns_in": 0, "conns_out": 0,
            "bytes_in": 0, "bytes_out": 0})
        row["first_seen"] = min(row["first_seen"], second)
        row["last_seen"] = max(row["last_seen"], second)
        return row

    def connection(self, start, end, ip, port, process, outbound, names, received, sent):
        """end is None when neither a duration nor byte counts are known."""
        row = self.row(int(start), ip, port, process)
        row["conns_total"] += 1
        row["conns_out" if outbound else "conns_in"] += 1
        for name in names:
            row["protos"] |= BITS.get(name.lower(), 0)
        if end is not None:
            row = self.row(int(end), ip, port, process)
            row["bytes_in"] += received
            row["bytes_out"] += sent

    def print(self):
        out = []
        for (day, ip, process, port), row in self.rows.items():
            path, md5, qid, puid, pid = process
            out.append(dict(row, ip=str(ip), port=port, proc_fpath=path, proc_md5=md5, proc_qid=qid, proc_puid=puid,
                            proc_pid=pid))
        for row in sorted(out, key=lambda r: json.dumps(r, sort_keys=True)):
            print(json.dumps(row, sort_keys=True))


def remote_side(a, b):
    """0 or 1 for the side that is remote, None unless exactly one is local; also None for IPv6 and 0.0.0.0."""
    a, b = ipaddress.ip_address(a), ipaddress.ip_address(b)
    if a.version == 6 or b.version == 6 or is_local(a) == is_local(b):
        return None
    remote = 0 if is_local(b) else 1
    return None if int((a, b)[remote]) == 0 else remote


def count(value):
    return None if value in (None, "-") else int(value)


def zeek_records(path):
    fields = []
    with open_text(path) as lines:
        for line in lines:
            line = line.rstrip("\n")
            if line.startswith("{"):
                record = json.loads(line, parse_float=decimal.Decimal)
                yield {key.replace("id_orig", "id.orig").replace("id_resp", "id.resp"): value
                       for key, value in record.items()}
            elif line.startswith("#fields"):
                fields = line.split("\t")[1:]
            elif line and not line.startswith("#"):
                yield {key: None if value in ("-", "(empty)") else value
                       for key, value in zip(fields, line.split("\t"))}


def add_zeek(rows, path):
    for r in zeek_records(path):
        remote = remote_side(r["id.orig_h"], r["id.resp_h"])
        start = decimal.Decimal(str(r["ts"]))
        duration = None if r.get("duration") is None else decimal.Decimal(str(r["duration"]))
        end = start + (duration or 0)
        counts = [count(r.get("orig_bytes")), count(r.get("resp_bytes"))]
        if remote is None or start < 10**9 or end > time.time() or any(c is not None and c > 2**40 for c in counts):
            continue
        outbound = remote == 1
        sent, received = counts if outbound else counts[::-1]
        known = duration is not None or counts != [None, None]
        names = (["tcp"] if r["proto"] == "tcp" else []) + (r.get("service") or "").split(",")
        rows.connection(start, end if known else None, ipaddress.ip_address(r["id.orig_h" if remote == 0 else "id.resp_h"]),
                        int(r["id.resp_p"]), NO_PROCESS, outbound, names, received or 0, sent or 0)


def sysmon_records(path):
    with open_text(path) as lines:
        for line in lines:
            record = json.loads(line)
            if isinstance(record.get("EventData"), str):
                record.update(json.loads(record["EventData"]))
                record.setdefault("EventID", 3 if "DestinationIp" in record else 1)
            yield record


def sysmon_time(text):
    text = text.rstrip("Z").replace("T", " ")
    whole, _, fraction = text.partition(".")
    seconds = int(datetime.strptime(whole, "%Y-%m-%d %H:%M:%S").replace(tzinfo=timezone.utc).timestamp())
    return seconds + decimal.Decimal("0." + (fraction or "0"))


def process_id(record):
    if record.get("ProcessId") or record.get("ProcessID"):
        return int(record.get("ProcessId") or record.get("ProcessID"))
    found = re.search(r"\bProcessId: (\d+)", record.get("Message") or "")
    return int(found.group(1)) if found else None


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


def add_sysmon(rows, paths):
    identities = Identities()
    records = [record for path in paths for record in sysmon_records(path)]
    for record in sorted(records, key=lambda r: r["EventID"]):
        identities.learn(record)
    for r in records:
        if r["EventID"] != 3:
            continue
        remote = remote_side(r["SourceIp"], r["DestinationIp"])
        if remote is None:
            continue
        outbound = str(r["Initiated"]).lower() == "true"
        ports = [int(r["SourcePort"]), int(r["DestinationPort"])]
        at = sysmon_time(r["UtcTime"])
        rows.connection(at, None, ipaddress.ip_address(r["SourceIp" if remote == 0 else "DestinationIp"]),
                        ports[remote if outbound else 1 - remote], identities.process(r), outbound,
                        ["tcp"] if r["Protocol"] == "tcp" else [], 0, 0)


def is_sysmon(path):
    with open_text(path) as lines:
        first = lines.readline()
    return first.startswith("{") and ("EventID" in first or "EventData" in first)


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    rows = Rows()
    kinds = collections.defaultdict(list)
    for path in sys.argv[1:]:
        kinds[is_sysmon(path)].append(path)
    add_sysmon(rows, kinds[True])
    for path in kinds[False]:
        add_zeek(rows, path)
    rows.print()


if __name__ == "__main__":
    main()
