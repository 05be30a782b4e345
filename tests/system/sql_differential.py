"""Random SQL over imported data, made and recorded, gives the same rows as a plain table of SQLite that holds them all.

usage: sql_differential.py NETDB FOLDER_OF_LOGS DIVISOR
DIVISOR is 1, or a number by which the random statements are fewer. RYL_SQL_SEED=n repeats the run that printed n.
"""
import collections
import glob
import ipaddress
import json
import os
import random
import sqlite3
import sys
import time

import sql_clauses
from harness import Netdb, check, run_test, skip

LOCAL_SIDES = "10.0.1.0/24,192.168.33.10,54.245.228.191"
DAY_MS = 86400000
FIRST_DAY_MS = 19000 * DAY_MS
# What the recorded logs have none of: letters beyond ASCII, wildcards of patterns, spellings that differ in case alone.
PATHS = ("/usr/bin/curl", "/usr/bin/CURL", "/Usr/Bin/Curl", "/opt/\u043a\u0430\u0442/app",
         "/opt/\u041a\u0410\u0422/app", "/opt/a_b%c", "/opt/a_b*c?[d]", "/opt/it's", "/opt/\U0001f600", "/opt/trailing ",
         "")
UNIQUE_IDS = (0, 1, 443, (1 << 53) + 1, (1 << 63) - 1, 1 << 63, (1 << 64) - 1)
# Private addresses too: they are most of the logs.
POLICY = "max_db_days = 1_000_000\nkeep_private_addresses = true\n"

DIVISOR = int(sys.argv[3])
CLAUSES = 2000 // DIVISOR
CLAUSES_OF_MADE_ROWS = 600 // DIVISOR
OTHER_STATEMENTS = 280 // DIVISOR
STATEMENTS_A_RUN = 500
# A clause without an answer, or with nearly all rows, is mostly replaced.
ATTEMPTS = 4
MANY_ROWS = 200
TYPES = {"first_seen": "BIGINT", "last_seen": "BIGINT", "port": "INTEGER", "conns_total": "INTEGER",
         "conns_in": "INTEGER", "conns_out": "INTEGER", "bytes_in": "BIGINT", "bytes_out": "BIGINT",
         "proc_pid": "BIGINT"}


def in_cidr(address, block):
    network = ipaddress.ip_network(block, strict=False)
    try:
        address = ipaddress.ip_address(address)
    except ValueError:
        return None
    return int(address.version == network.version and address in network)


def ts(milliseconds):
    return time.strftime("%Y-%m-%d %H:%M:%S", time.gmtime(milliseconds // 1000))


def import_all(netdb, folder, logs):
    data, policy = os.path.join(folder, "data"), os.path.join(folder, "policy.toml")
    with open(policy, "w", encoding="utf-8") as file:
        file.write(POLICY)
    zeek = sorted(glob.glob(os.path.join(logs, "zeek", "*")))
    sysmon = sorted(glob.glob(os.path.join(logs, "sysmon", "*")))
    netdb.import_logs(data, "--policy", policy, *zeek, *sysmon)
    netdb.import_logs(data, "--policy", policy, "--local", LOCAL_SIDES, *zeek)
    return data


def made_rows(random):
    """Rows on days with gaps between them, many of which begin or end with the day."""
    for number in range(150):
        day = FIRST_DAY_MS + random.choice((0, 1, 2, 5, 9)) * DAY_MS
        first, last = sorted(random.choice((0, 0, 1, 43200, 86398, 86399, random.randrange(86400))) for _ in range(2))
        digest = "%02x" % random.randrange(4)
        yield {"ip": "198.51.%d.%d" % (random.randrange(2) * 100, random.randrange(12)), "port": number,
               "first_seen": day + first * 1000, "last_seen": day + last * 1000,
               "protos": random.choice(("", "TCP", "UDP", "HTTP,TCP")), "conns_total": 1, "conns_out": 1,
               "bytes_in": random.choice((0, 1, 443, 1 << 33)), "proc_fpath": random.choice(PATHS),
               "proc_md5": digest * 16, "proc_qid": digest * 32, "proc_puid": random.choice(UNIQUE_IDS),
               "proc_pid": random.choice((-1, 0, 443, (1 << 32) - 1))}


def import_made(netdb, folder, random):
    data, file = os.path.join(folder, "data"), os.path.join(folder, "made.jsonl")
    with open(file, "w", encoding="utf-8") as lines:
        lines.writelines(json.dumps(row) + "\n" for row in made_rows(random))
    summary = netdb.import_logs(data, file)
    check(not any(summary["skipped"].values()), "the import left out rows: %s", summary)
    return data


def all_rows(netdb, data):
    rows = [json.loads(line) for line in netdb.query(data).decode().splitlines()]
    for row in rows:
        row["proc_puid"] = str(row["proc_puid"])
    check(rows, "the import gave no rows")
    return rows


def plain_table(rows):
    plain = sqlite3.connect(":memory:")
    plain.row_factory = sqlite3.Row
    # Those of SQLite 3.40 lose rows where a condition has the collation RTRIM.
    plain.execute("PRAGMA automatic_index = off")
    plain.create_function("in_cidr", 2, in_cidr, deterministic=True)
    plain.create_function("ts", 1, ts, deterministic=True)
    columns = ", ".join("%s %s" % (name, TYPES.get(name, "TEXT")) for name in sql_clauses.COLUMNS)
    plain.execute("CREATE TABLE edr_netdb (%s)" % columns)
    plain.executemany("INSERT INTO edr_netdb VALUES (%s)" % ", ".join("?" * len(sql_clauses.COLUMNS)),
                      [[row[name] for name in sql_clauses.COLUMNS] for row in rows])
    return plain


def comparable(row):
    """A row as a text. proc_puid is a text in SQL, and its digits are shown as a number."""
    shown = {name: str(value) if name == "proc_puid" else value for name, value in row.items() if name != "q"}
    return json.dumps(shown, sort_keys=True)


class Comparison:
    def __init__(self, netdb, data, seed):
        self.netdb = netdb
        self.data = data
        self.rows = all_rows(netdb, data)
        self.plain = plain_table(self.rows)
        self.random = random.Random(seed)
        self.clauses = sql_clauses.Clauses(self.rows, self.random)
        self.statements = []

    def count(self, clause):
        return self.plain.execute("SELECT count(*) FROM edr_netdb WHERE %s" % clause).fetchone()[0]

    def clause(self, most_rows=MANY_ROWS):
        for _ in range(ATTEMPTS):
            clause = self.clauses.clause()
            if 0 < self.count(clause) <= most_rows:
                break
        return clause

    def small_clause(self, most_rows):
        while True:
            clause = self.clause(most_rows)
            if self.count(clause) <= most_rows:
                return clause

    def add_clauses(self, count):
        """The clauses, and how many of them have rows."""
        forms = (sql_clauses.row_form, sql_clauses.star_form, sql_clauses.key_form, sql_clauses.count_form)
        with_rows = 0
        for _ in range(count):
            clause = self.clause()
            with_rows += self.count(clause) > 0
            self.statements.append(self.random.choice(forms)(len(self.statements), clause))
        return with_rows

    def add_others(self):
        shapes = sql_clauses.Shapes(self.random)
        for i in range(OTHER_STATEMENTS):
            shape, most_rows = sql_clauses.SHAPES[i % len(sql_clauses.SHAPES)]
            clause = self.clause() if most_rows is None else self.small_clause(most_rows)
            self.statements.append(shape(shapes, len(self.statements), clause))

    def run(self, statements):
        """Of netdb: all rows of all statements."""
        script = "".join("%s;\n" % statement for statement in statements).encode()
        done = self.netdb.run("sql", "--data", self.data, "--format", "jsonl", stdin=script)
        check(not done.stderr, "netdb sql said: %s", done.stderr.decode(errors="replace")[-2000:])
        return [json.loads(line) for line in done.stdout.splitlines()]

    def answers(self, statements):
        """Of netdb: texts of rows by the number of their statement."""
        answers = collections.defaultdict(list)
        for row in self.run(statements):
            answers[row["q"]].append(comparable(row))
        return answers

    def compare_all(self):
        for start in range(0, len(self.statements), STATEMENTS_A_RUN):
            statements = self.statements[start:start + STATEMENTS_A_RUN]
            answers = self.answers(statements)
            for number, statement in enumerate(statements, start):
                wanted = [comparable(dict(row)) for row in self.plain.execute(statement)]
                self.compare(statement, answers[number], wanted)
            check(set(answers) <= set(range(start, start + len(statements))), "rows of no statement")

    def check_plans(self):
        """Rows have no number that would tell them apart, so an OR must never be put together from several scans."""
        rows = self.run(["EXPLAIN QUERY PLAN " + statement for statement in self.statements])
        plans = [row["detail"] for row in rows]
        scans = [detail for detail in plans if "VIRTUAL TABLE" in detail]
        check(len(scans) >= len(self.statements), "%d scans for %d statements", len(scans), len(self.statements))
        several = [detail for detail in plans if "MULTI-INDEX" in detail]
        check(not several, "%d plans take an OR apart: %s", len(several), several[:1])

    def check(self, clauses):
        with_rows = self.add_clauses(clauses)
        self.add_others()
        self.check_plans()
        self.compare_all()
        print("%d rows; %d clauses, %d of them with rows; %d other statements" % (
            len(self.rows), clauses, with_rows, OTHER_STATEMENTS))
        # Else the run showed little.
        check(with_rows >= clauses / 4, "only %d of %d clauses had rows", with_rows, clauses)

    @staticmethod
    def compare(statement, rows, wanted):
        if " ORDER BY " not in statement or " OVER (" in statement:
            rows, wanted = sorted(rows), sorted(wanted)
        if rows == wanted:
            return
        mine, its = collections.Counter(rows), collections.Counter(wanted)
        check(False, "%s\nnetdb gives %d rows, the plain table %d\nmissing: %s\nsurplus: %s", statement, len(rows),
              len(wanted), list(its - mine)[:3], list(mine - its)[:3])


def main():
    netdb, logs = Netdb(sys.argv[1]), sys.argv[2]
    seed = int(os.environ.get("RYL_SQL_SEED", "1"))
    print("seed %d" % seed, flush=True)

    def made_rows_are_found_alike(folder):
        Comparison(netdb, import_made(netdb, folder, random.Random(seed)), seed).check(CLAUSES_OF_MADE_ROWS)

    def recorded_rows_are_found_alike(folder):
        Comparison(netdb, import_all(netdb, folder, logs), seed).check(CLAUSES)

    run_test(made_rows_are_found_alike)
    if not os.path.isdir(logs):
        skip("there are no recorded logs at %s" % logs)
    run_test(recorded_rows_are_found_alike)


if __name__ == "__main__":
    main()
