"""The binary reply to a table query, decoded by another reader of protocol buffers, holds what its reply event and what
SQL hold, row for row and field for field.

usage: table_reply.py NETDB PROTOC SCHEMA FOLDER_OF_LOGS
"""
import glob
import importlib
import json
import os
import random
import struct
import subprocess
import sys

from harness import Netdb, check, compare, run_test
from import_of_made_logs import good_tsv_lines, made_connections, made_processes, write
from made_logs import DAY_SECONDS, TSV_HEAD, json_lines, random_lines

HEAD = struct.Struct("<BII")
MOST = 2**32 - 2
SMALLEST_BYTES = 0x80000
LOCAL_SIDES = "10.0.1.0/24,192.168.33.10,54.245.228.191"
EQUALS, LIKE = 2, 65
NUMBERS = {"first_seen", "last_seen", "port", "conns_total", "conns_in", "conns_out", "bytes_in", "bytes_out",
           "proc_puid", "proc_pid"}
WIDE = {"first_seen", "last_seen", "bytes_in", "bytes_out", "proc_puid", "proc_pid"}  # texts in JSON
ROW_LIMIT, BUFFER_FULL, BAD_QUERY = 1, 2, 4


def load_schema(protoc, schema, folder):
    """The message class, made from the schema alone."""
    name = os.path.splitext(os.path.basename(schema))[0]
    subprocess.run([protoc, "--proto_path=" + os.path.dirname(schema), "--python_out=" + folder, schema], check=True)
    sys.path.insert(0, folder)
    return importlib.import_module(name + "_pb2").edr_netdb


def complete(row, columns):
    """The row with what its form leaves out."""
    check(set(row) <= set(columns), "%s has more than the columns %s", row, columns)
    return {name: row.get(name, 0 if name in NUMBERS else "") for name in columns}


def constraint(column, op, *values, affinity="TEXT"):
    return {column: {"affinity": affinity, "list": [{"op": op, "expr": value} for value in values]}}


class Table:
    """Asks one history in the three ways."""

    def __init__(self, netdb, message, data, folder):
        self.netdb = netdb
        self.message = message
        self.data = data
        self.folder = folder
        self.columns = [field.name for field in message.DESCRIPTOR.fields]
        check(len(self.columns) == 15, "the schema has the fields %s", self.columns)

    def ask(self, columns, constraints, limits, exit_code, *form):
        policy = os.path.join(self.folder, "policy.toml")
        settings = dict({"max_db_days": 1000000, "max_query_rows": MOST, "max_query_bytes": MOST}, **limits)
        with open(policy, "w", encoding="utf-8") as file:
            file.writelines("%s = %d\n" % setting for setting in settings.items())
        return self.netdb.run("event", "table", "--data", self.data, "--policy", policy, "--columns", columns,
                              "--constraints", "-", *form, exit_code=exit_code,
                              stdin=json.dumps(constraints).encode()).stdout

    def decode(self, reply, columns):
        """Error code and rows of a binary reply."""
        version, error, count = HEAD.unpack_from(reply)
        check(version == 1, "version %d", version)
        rows, at = [], HEAD.size
        while at != len(reply):
            size, = struct.unpack_from("<I", reply, at)
            at += 4
            message = self.message()
            check(message.ParseFromString(reply[at:at + size]) == size == message.ByteSize(), "a bad message at %d", at)
            at += size
            rows.append(complete({field.name: value for field, value in message.ListFields()}, columns))
        check(len(rows) == count, "%d rows, the head says %d", len(rows), count)
        return error, rows

    def decode_event(self, text, columns):
        document = json.loads(text)
        check(set(document) == {"osquery_msg", "event_name"}, "the event has %s", list(document))
        check(document["event_name"] == "netdb_query_output", "the event is %s", document["event_name"])
        reply = document["osquery_msg"]
        check(list(reply) == ["version", "error", "message_count", "messages"], "the reply has %s", list(reply))
        rows = reply["messages"]
        check(reply["version"] == 1 and reply["message_count"] == len(rows), "%d rows, not %s", len(rows), reply["message_count"])
        for row in rows:
            check(all(value not in (0, "", "0") for value in row.values()), "a value that is none in %s", row)
            check(all(isinstance(row[name], str) for name in WIDE & set(row)), "64 bits as a number in %s", row)
            row.update((name, int(row[name])) for name in NUMBERS & set(row))
        return reply["error"], [complete(row, columns) for row in rows]

    def both(self, columns="*", constraints=None, exit_code=0, **limits):
        """Error code and rows in their order, of the binary reply and of the event."""
        names = [name.strip().lower() for name in columns.split(",") if name.strip()]
        names = self.columns if columns == "*" else names
        wish = columns, constraints or {}, limits, exit_code
        return self.decode(self.ask(*wish, "--raw", "-"), names), self.decode_event(self.ask(*wish, "--as-event"), names)

    def sql(self, columns, where="1"):
        statement = "SELECT %s FROM edr_netdb WHERE %s" % (columns, where)
        lines = self.netdb.run("sql", "--data", self.data, "--format", "jsonl", statement).stdout.splitlines()
        return [json.loads(line) for line in lines]

    def check_same(self, columns="*", constraints=None, where="1"):
        """All three give the same rows, which are given back."""
        (error, rows), (event_error, event_rows) = self.both(columns, constraints)
        check((error, event_error) == (0, 0), "errors %d and %d for %s", error, event_error, constraints)
        compare("the binary reply", rows, "the event", event_rows)
        check(rows == event_rows, "the binary reply and the event have another order")
        compare("the binary reply", rows, "SQL", self.sql(columns, where))
        return rows


def quoted(text):
    return "'%s'" % text.replace("'", "''")


def check_columns(table):
    for name in table.columns:
        table.check_same(name)
    table.check_same("proc_fpath,ip,port")
    table.check_same(" IP , First_Seen,Proc_Puid ")


def check_constraints(table, rows):
    # Digests and identifiers of 0 are those of rows without a process too, which the module's conditions on processes
    # pass over.
    programs = [row for row in rows if row["proc_fpath"] and row["proc_puid"] and row["proc_md5"].strip("0")]
    check(programs, "no row has a process")
    program, other = programs[0], programs[-1]
    addresses = [rows[0]["ip"], rows[-1]["ip"]]
    middle = program["proc_fpath"][3:-3].upper()
    day = rows[0]["first_seen"] // 1000 // DAY_SECONDS * DAY_SECONDS * 1000
    last = day + DAY_SECONDS * 1000 - 1000
    for wish, where in (
            (constraint("ip", EQUALS, addresses[0]), "ip = %s" % quoted(addresses[0])),
            (constraint("IP", EQUALS, *addresses), "ip IN (%s, %s)" % tuple(map(quoted, addresses))),
            (constraint("proc_fpath", EQUALS, program["proc_fpath"]), "proc_fpath = %s" % quoted(program["proc_fpath"])),
            (constraint("proc_fpath", LIKE, "%%%s%%" % middle), "instr(upper(proc_fpath), %s)" % quoted(middle)),
            (constraint("proc_md5", EQUALS, other["proc_md5"]), "proc_md5 = %s" % quoted(other["proc_md5"])),
            (constraint("proc_puid", EQUALS, other["proc_puid"]), "proc_puid = '%d'" % other["proc_puid"]),
            (constraint("proc_puid", EQUALS, str(other["proc_puid"])), "proc_puid = '%d'" % other["proc_puid"]),
            (dict(constraint("first_seen", 32, day, affinity="BIGINT"), **constraint("last_seen", 8, last)),
             "first_seen >= %d AND last_seen <= %d" % (day, last)),
            # What the module does not apply, the asker does.
            (constraint("port", EQUALS, 443, affinity="INTEGER"), "1")):
        check(table.check_same("*", wish, where), "no row for %s", wish)
    for wish in (constraint("ip", EQUALS, "::1"), constraint("proc_fpath", EQUALS, "/no/such/program")):
        check(not table.check_same("*", wish, "0"), "rows for %s", wish)


def check_errors(table, rows):
    most = len(rows)
    check(table.both(max_query_rows=most) == ((0, rows), (0, rows)), "a limit of %d rows cuts as many", most)
    binary, event = table.both(max_query_rows=most - 1, exit_code=3)
    check(binary == (ROW_LIMIT, []), "the binary reply has error %d and %d rows", binary[0], len(binary[1]))
    check(event == (ROW_LIMIT, rows[:-1]), "the event has error %d and %d rows", event[0], len(event[1]))
    binary, event = table.both(max_query_bytes=SMALLEST_BYTES, exit_code=3)
    check(binary == (BUFFER_FULL, []), "the binary reply has error %d and %d rows", binary[0], len(binary[1]))
    check(event[0] == BUFFER_FULL and 0 < len(event[1]) < most and event[1] == rows[:len(event[1])],
          "the event has error %d and %d rows", event[0], len(event[1]))
    bad = table.both(constraints={"colour": {"affinity": "TEXT", "list": [{"op": EQUALS, "expr": "x"}]}}, exit_code=1)
    check(bad == ((BAD_QUERY, []), (BAD_QUERY, [])), "an unknown column gives %s", bad)


def main():
    netdb, protoc, schema, logs = Netdb(sys.argv[1]), *sys.argv[2:]

    def check_table(folder, message):
        table = Table(netdb, message, os.path.join(folder, "data"), folder)
        rows = table.check_same()
        check(rows, "the import gave no rows")
        print("%d rows" % len(rows), flush=True)
        check_columns(table)
        check_constraints(table, rows)
        return table, rows

    def made_logs(folder):
        lines = list(good_tsv_lines()) + list(random_lines(random.Random(5), 8000, 4))
        netdb.import_logs(os.path.join(folder, "data"), write(folder, "conn.log", TSV_HEAD + "".join(lines)),
                          write(folder, "sysmon.ndjson", json_lines([*made_processes(), *made_connections()])))
        check_errors(*check_table(folder, load_schema(protoc, schema, folder)))

    def recorded_logs(folder):
        data, policy = os.path.join(folder, "data"), os.path.join(folder, "import.toml")
        with open(policy, "w", encoding="utf-8") as file:
            file.write("max_db_days = 1_000_000\nkeep_private_addresses = true\n")
        zeek, sysmon = (sorted(glob.glob(os.path.join(logs, kind, "*"))) for kind in ("zeek", "sysmon"))
        netdb.import_logs(data, "--policy", policy, *zeek, *sysmon)
        netdb.import_logs(data, "--policy", policy, "--local", LOCAL_SIDES, *zeek)
        check_table(folder, load_schema(protoc, schema, folder))

    steps = [made_logs]
    if os.path.isdir(logs):
        steps.append(recorded_logs)
    else:
        print("there are no recorded logs at %s; the made ones alone are compared" % logs)
    run_test(*steps)


if __name__ == "__main__":
    main()
