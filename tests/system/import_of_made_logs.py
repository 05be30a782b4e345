"""Imports logs made up here, with every case that a log can hold, and compares every field of every row with what an
independent script computes from them.

usage: import_of_made_logs.py NETDB
"""
import gzip
import json
import os
import random
import re
import sys
import time

from harness import KEEP_ALL_DAYS, Netdb, check, check_import, compare, run_test, stored_rows
from made_logs import (DAY, DAY_SECONDS, LOCAL, TSV_END, TSV_HEAD, json_line, json_lines, random_lines,
                       sysmon_connection, sysmon_process, tsv_line)

WEB, OTHER, THIRD = ("192.0.2.7", 443), ("198.51.100.8", 80), ("203.0.113.9", 22)
HERE = (LOCAL, 50000)
SERVER = ("172.16.5.5", 8443)
PUBLIC = ("192.0.2.200", 50000)
MIDNIGHT = DAY + DAY_SECONDS
FIRST_DAY = 1000080000  # the first whose file has a name of ten digits
GUIDS = ["{%08X-0000-0000-0000-0000000000AB}" % number for number in range(1, 9)]
NO_GUID = "{00000000-0000-0000-0000-000000000000}"
BROWSER, TOOL, AGENT = "C:\\Apps\\Browser.exe", "C:\\Apps\\tool.exe", "/opt/agent/bin/agent"


def good_tsv_lines():
    yield tsv_line(DAY, HERE, WEB)
    yield tsv_line("%d.999999" % (DAY + 1), HERE, WEB, service="ssl,http", duration="0.000001", sent=1, received=2)
    yield tsv_line("%d.5" % (DAY + 2), WEB, SERVER, service="http,ssl", duration=3, sent=100, received=7)
    yield tsv_line(DAY + 3, HERE, (OTHER[0], 53), proto="udp", service="dns", duration="0.25", sent=60, received="-")
    yield tsv_line(DAY + 4, (THIRD[0], 8), (LOCAL, 0), proto="icmp", duration="-", sent=56, received=56)
    yield tsv_line(DAY + 5, (LOCAL, 3), (THIRD[0], 1), proto="icmp")
    yield tsv_line(MIDNIGHT - 10, HERE, THIRD, service="ssh", duration=30, sent=1000, received=2000)
    yield tsv_line(MIDNIGHT - 1, HERE, OTHER, duration=1, sent=0, received=0)
    yield tsv_line("%d.000001" % MIDNIGHT, HERE, OTHER, duration="259200.5", sent="-", received=5)
    yield tsv_line(DAY + 6, HERE, WEB, sent=2**32 - 1, received=2**32, duration=9)
    yield tsv_line(DAY + 7, HERE, WEB, sent=2**40, received=0, duration=9)
    yield tsv_line(DAY + 8, HERE, WEB, sent=2**33 + 1, received=3 * (2**32 - 1), duration=9)
    yield tsv_line(FIRST_DAY, ("127.0.0.1", 50000), OTHER)
    yield tsv_line(DAY + 9, ("169.254.1.1", 50000), OTHER, service="(empty)", duration="-", sent="-", received=0)
    yield tsv_line(DAY + 11, HERE, ("239.255.255.250", 1900), proto="udp")
    yield tsv_line(DAY + 12, HERE, ("192.0.2.255", 65535), service="gssapi,smb,dce_rpc,wmi,telnet,rdp,ftps")


def bad_tsv_lines():
    """Pairs of reason and line."""
    soon = int(time.time()) + 3600
    yield "malformed", "no columns at all\n"
    yield "malformed", tsv_line(DAY, HERE, WEB).replace("\tbenign", "")
    yield "malformed", tsv_line(DAY, HERE, WEB).replace("\n", "\tmore\n")
    yield "malformed", tsv_line("soon", HERE, WEB)
    yield "malformed", tsv_line("-", HERE, WEB)
    yield "malformed", tsv_line(DAY, HERE, (WEB[0], 65536))
    yield "malformed", tsv_line(DAY, HERE, ("192.0.2", 80))
    yield "malformed", tsv_line(DAY, ("host.example", 1), WEB)
    yield "malformed", tsv_line(DAY, HERE, WEB, duration=-1, sent=1, received=1)
    yield "malformed", tsv_line(DAY, HERE, WEB, sent=-5, received=1)
    yield "malformed", tsv_line(DAY, HERE, WEB, sent="many", received=1)
    yield "ipv6", tsv_line(DAY, ("2001:db8::1", 50000), ("2001:db8::2", 443))
    yield "ipv6", tsv_line(DAY, ("fe80::1", 50000), ("ff02::fb", 5353), proto="udp")
    yield "not_one_local_side", tsv_line(DAY, HERE, SERVER)
    yield "not_one_local_side", tsv_line(DAY, WEB, OTHER)
    yield "time_out_of_range", tsv_line("12.345678", HERE, WEB)
    yield "time_out_of_range", tsv_line("999999999.999999", HERE, WEB)
    yield "time_out_of_range", tsv_line(soon, HERE, WEB)
    yield "time_out_of_range", tsv_line(DAY, HERE, WEB, duration=soon - DAY)
    yield "bytes_too_large", tsv_line(DAY, HERE, WEB, duration=1, sent=2**40 + 1, received=0)
    yield "bytes_too_large", tsv_line(DAY, WEB, SERVER, sent=0, received=2**63)
    yield "special_address", tsv_line(DAY + 10, ("0.0.0.0", 68), (LOCAL, 67), proto="udp")


def made_json_lines():
    yield json_line(DAY + 20.25, HERE, WEB, service="ssl", duration=0.5, orig_bytes=10, resp_bytes=20)
    yield json_line(DAY + 21, WEB, SERVER, underscores=True, duration=1.0e-3, orig_bytes=10, resp_bytes=20)
    yield json_line(DAY + 22, HERE, OTHER, underscores=True, service="dce_rpc,krb,smb")
    yield json_line(DAY + 23, HERE, THIRD, duration=MIDNIGHT - DAY - 23)
    yield json_line(DAY + 24, HERE, ("2001:db8::1", 443))
    yield "{\"ts\": %d, \"id.orig_h\": \n" % DAY
    yield "\n"
    yield json_line(DAY + 25, HERE, WEB, orig_bytes=2**40 + 1, resp_bytes=0)


def made_processes():
    at = "2023-11-14 %02d:00:00.000"
    yield sysmon_process(at % 1, BROWSER, GUIDS[0], "MD5=%032X,SHA256=%064X" % (1, 2), ProcessId="100")
    yield sysmon_process(at % 3, BROWSER, GUIDS[1], "SHA1=%040X,MD5=%032X,SHA256=%064X" % (9, 3, 4), ProcessId="101")
    yield sysmon_process(at % 2, BROWSER, GUIDS[2], "MD5=%032X,SHA256=%064X" % (5, 6), ProcessId="102")
    yield sysmon_process(at % 1, TOOL, GUIDS[3], "SHA256=%064X,IMPHASH=%032X" % (7, 8),
                         Message="Process Create:\r\nProcessId: 103\r\nParentProcessId: 7\r\nImage: x")
    yield sysmon_process(at % 4, AGENT, GUIDS[4], "MD5=%032X" % 11, ProcessID=104)


def made_connections():
    at = "2023-11-14 %02d:30:00.123"
    remote, port = WEB
    for number, guid in enumerate(GUIDS[:6]):
        image = (BROWSER, BROWSER.upper(), BROWSER, TOOL, AGENT, "System")[number]
        yield sysmon_connection(at % (number + 1), image, guid, HERE, (remote, port), "true", ProcessId=str(100 + number))
    yield sysmon_connection(at % 8, "<unknown process>", NO_GUID, HERE, OTHER, "true", ProcessId="4000")
    yield sysmon_connection(at % 8, "<unknown process>", NO_GUID, HERE, OTHER, "true", ProcessId="4004")
    yield sysmon_connection(at % 9, TOOL.lower(), GUIDS[6], OTHER, (LOCAL, 3389), "false",
                            Message="Network connection detected:\r\nProcessId: 555\r\n", ProcessID=7)
    yield sysmon_connection(at % 10, TOOL, GUIDS[7], HERE, (OTHER[0], 53), "true", protocol="udp")
    yield sysmon_connection(at % 11, TOOL, GUIDS[7], (OTHER[0], 53), HERE, "true", protocol="udp", ProcessId="77")
    yield sysmon_connection(at % 12, TOOL, GUIDS[7], (LOCAL, 53), (OTHER[0], 50001), "false", protocol="udp")
    yield sysmon_connection(at % 13, TOOL, GUIDS[7], ("fe80:0:0:0:1:2:3:4", 1), ("ff02:0:0:0:0:0:0:fb", 5353), "true")
    yield sysmon_connection(at % 14, TOOL, GUIDS[7], HERE, SERVER, "true")
    yield sysmon_connection("1999-01-01 00:00:00.000", TOOL, GUIDS[7], HERE, WEB, "true")
    yield sysmon_connection("2023-11-15 23:59:59.999", TOOL, GUIDS[7], HERE, WEB, "True")
    yield sysmon_connection("at noon", TOOL, GUIDS[7], HERE, WEB, "true")
    yield {"EventID": 3, "EventData": json.dumps(
        sysmon_connection("2023-11-14T16:00:00.5Z", BROWSER, GUIDS[0], HERE, THIRD, "true", ProcessId="100"))}
    yield {"EventID": 22, "UtcTime": at % 15, "QueryName": "www.example.org"}


def write(folder, name, text):
    path = os.path.join(folder, name)
    opener = gzip.open if name.endswith(".gz") else open
    with opener(path, "wt", encoding="utf-8") as file:
        file.write(text)
    return path


def main():
    netdb = Netdb(sys.argv[1])

    def zeek_tsv(folder):
        log = write(folder, "conn.log", TSV_HEAD + "".join(good_tsv_lines()) + TSV_END)
        rows = check_import(netdb, os.path.join(folder, "data"), log)
        crossing = [row for row in rows if row["ip"] == THIRD[0] and row["port"] == 22]
        check([(row["first_seen"], row["conns_out"], row["protos"], row["bytes_in"], row["bytes_out"]) for row in
               sorted(crossing, key=lambda row: row["first_seen"])] ==
              [(MIDNIGHT - 10, 1, 0x820, 0, 0), (MIDNIGHT + 20, 0, 0, 2000, 1000)], "over midnight: %s", crossing)

    def every_reason_to_skip(folder):
        bad = list(bad_tsv_lines())
        log = write(folder, "conn.log", TSV_HEAD + tsv_line(DAY, HERE, WEB) + "".join(line for _, line in bad))
        check_import(netdb, os.path.join(folder, "data"), log)
        said = netdb.run("import", "--policy", KEEP_ALL_DAYS, "--data", os.path.join(folder, "again"), log).stderr.decode()
        first = TSV_HEAD.count("\n") + 2
        wanted = [(str(first + number), reason) for number, (reason, _) in enumerate(bad)]
        found = re.findall(re.escape(log) + r":(\d+): skipped, (\w+):", said)
        check(found == wanted, "said to be skipped: %s", found)

    def what_the_policy_keeps(folder):
        today = int(time.time()) // DAY_SECONDS
        midnights = [(today - days) * DAY_SECONDS for days in (0, 1, 28, 29, 30, 31, 400)]
        lines = [tsv_line(at + seconds, PUBLIC, remote, duration=duration, sent=5, received=6)
                 for at in midnights for seconds in (-1, 0, 1) if at + seconds < time.time() - 1
                 for remote in (WEB, SERVER, ("127.0.0.9", 1), ("169.254.9.9", 2), ("0.0.0.0", 3))
                 for duration in (0, 1)]
        log = write(folder, "conn.log", TSV_HEAD + "".join(lines))
        for number, (text, means) in enumerate((
                ("", ["--max-days", "3653"]),
                ("max_db_days = 30", ["--max-days", "30"]),
                ("max_db_days = 2\nkeep_private_addresses = true", ["--max-days", "2", "--keep-private"]))):
            policy = write(folder, "%d.toml" % number, text)
            check_import(netdb, os.path.join(folder, "data%d" % number), "--local", PUBLIC[0], log, policy=policy,
                         means=means)

    def zeek_json(folder):
        check_import(netdb, os.path.join(folder, "data"), write(folder, "conn.log", "".join(made_json_lines())))

    def sysmon(folder):
        processes = write(folder, "processes.ndjson", json_lines(made_processes()))
        connections = write(folder, "connections.ndjson.gz", json_lines(made_connections()) + "{\"EventID\": 3\n")
        check_import(netdb, os.path.join(folder, "data"), connections, processes)
        check_import(netdb, os.path.join(folder, "connections only"), connections)

    def many_random_connections(folder):
        seed = random.randrange(2**32)
        print("seed %d" % seed)
        generator = random.Random(seed)
        logs = [write(folder, name, TSV_HEAD + "".join(random_lines(generator, 2000, 5, addresses=30)))
                for name in ("conn.1.log", "conn.2.log.gz")]
        check_import(netdb, os.path.join(folder, "data"), *logs)

    def standard_input_and_several_runs(folder):
        lines = list(random_lines(random.Random(1), 300, 2, addresses=30))
        parts = [TSV_HEAD + "".join(lines[:150]), TSV_HEAD + "".join(lines[150:])]
        whole, piecewise = os.path.join(folder, "whole"), os.path.join(folder, "piecewise")
        wanted = check_import(netdb, whole, write(folder, "conn.log", TSV_HEAD + "".join(lines)))
        for part in parts:
            netdb.import_logs(piecewise, "--from", "zeek", "-", stdin=part.encode())
        compare("the log", wanted, "the folder after two imports", stored_rows(piecewise))

    run_test(zeek_tsv, every_reason_to_skip, what_the_policy_keeps, zeek_json, sysmon, many_random_connections,
             standard_input_and_several_runs)


if __name__ == "__main__":
    main()
