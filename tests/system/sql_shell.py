#!/usr/bin/env python3
"""The shell of `netdb sql` as a person uses it, on a terminal."""
import json
import os
import sys

from harness import Netdb, check, run_test
from terminal import Terminal

DAY = 1699920000
ENTER, TAB, UP, CTRL_C, CTRL_D, CTRL_Z = "\r", "\t", "\x1b[A", "\x03", "\x04", "\x1a"
PROMPT, PROMPT_WITHIN = "netdb> ", "  ...> "
netdb = Netdb(sys.argv[1])


def put_history(data):
    rows = [{"ip": "203.0.113.%d" % number, "first_seen": (DAY + number * 86400) * 1000, "port": 443,
             "proc_fpath": "/usr/bin/program%d" % number, "proc_pid": number} for number in range(1, 4)]
    netdb.import_logs(data, "-", stdin="".join(json.dumps(row) + "\n" for row in rows).encode())


class Shell(Terminal):
    def __init__(self, folder, *arguments, **variables):
        data = os.path.join(folder, "data")
        if not os.path.exists(data):
            put_history(data)
        self.state = os.path.join(folder, "state")
        super().__init__([netdb.program, "sql", "--data", data, *arguments],
                         **{"XDG_STATE_HOME": self.state, "NO_COLOR": "1", **variables})
        self.expect(PROMPT)

    def ask(self, line, prompt=PROMPT):
        """Types a line; what stands between it and the next prompt."""
        self.type(line + ENTER)
        shown = self.expect(prompt)
        return shown[shown.index("\n") + 1:] if "\n" in shown else shown

    def leave(self, keys=".quit" + ENTER):
        self.type(keys)
        code = self.end()
        check(code == 0, "the shell ended with %d:\n%s", code, self.text()[-2000:])


def statement_of_many_lines(folder):
    with Shell(folder) as shell:
        shell.ask("SELECT ip,", PROMPT_WITHIN)
        shell.ask("       proc_fpath FROM edr_netdb", PROMPT_WITHIN)
        shown = shell.ask("ORDER BY ip DESC LIMIT 2;")
        check(shown.startswith("ip           proc_fpath\n"
                               "203.0.113.3  /usr/bin/program3\n"
                               "203.0.113.2  /usr/bin/program2\n"
                               "(2 rows, 0."), "a table was expected:\n%s", shown)
        shell.leave()


def dot_commands(folder):
    with Shell(folder) as shell:
        check(shell.ask(".tables") == "days\nedr_netdb\nprocesses\n", "not the tables: %r", shell.text())
        check("  proc_fpath TEXT,\n" in shell.ask(".schema edr_netdb"), "not the schema: %r", shell.text())
        check("CREATE VIEW processes AS" in shell.ask(".schema processes"), "not the schema: %r", shell.text())
        shell.ask(".mode csv")
        check(shell.ask("SELECT count(*) AS n FROM edr_netdb;") == "n\n3\n", "not CSV: %r", shell.text())
        check(shell.ask(".mode") == "csv\n", "not the mode: %r", shell.text())
        check(".schema [NAME]" in shell.ask(".help"), "no help: %r", shell.text())
        check("there is no command \".tabels\"" in shell.ask(".tabels"), "no message: %r", shell.text())
        shell.leave(".exit" + ENTER)


def errors_do_not_end_the_shell(folder):
    with Shell(folder) as shell:
        check("netdb: no such column: nowhere" in shell.ask("SELECT nowhere FROM edr_netdb;"), "no message")
        check(shell.ask("SELECT 41 + 1 AS n;").startswith(" n\n42\n(1 row, "), "the shell is not there any more")
        shell.leave(CTRL_D)


def interrupt_drops_what_is_typed(folder):
    with Shell(folder) as shell:
        shell.ask("SELECT no", PROMPT_WITHIN)
        shell.type("such")
        shell.expect("such")
        shell.type(CTRL_C)
        shell.expect(PROMPT)
        check(shell.ask("SELECT 41 + 1 AS n;").startswith(" n\n42\n"), "the line was not dropped:\n%s", shell.text())
        shell.leave()


def stop_key_keeps_what_is_typed(folder):
    """No job control here, so nothing stops; what a continued shell must still have is the line."""
    with Shell(folder) as shell:
        shell.type("SELECT 41")
        shell.expect("SELECT 41")
        shell.type(CTRL_Z)
        shell.expect(PROMPT + "SELECT 41")
        check(shell.ask(" + 1 AS n;").startswith(" n\n42\n"), "the line is gone:\n%s", shell.text())
        shell.leave()


def interrupt_ends_a_statement(folder):
    with Shell(folder, "--format", "jsonl") as shell:
        shell.type("WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c) " + ENTER)
        shell.type("SELECT x FROM c WHERE x = 1;" + ENTER)
        shell.expect('{"x":1}')
        shell.type(CTRL_C)
        check("netdb: interrupted" in shell.expect(PROMPT), "no message:\n%s", shell.text())
        check(shell.ask("SELECT 41 + 1 AS n;") == '{"n":42}\n', "the shell is not there any more:\n%s", shell.text())
        shell.leave()


def history_is_recalled_and_kept(folder):
    with Shell(folder, "--format", "csv") as shell:
        shell.ask("SELECT 41 + 1", PROMPT_WITHIN)
        check(shell.ask("AS n;") == "n\n42\n", "not the answer:\n%s", shell.text())
        shell.type(UP)
        shell.expect("AS n;")
        check(shell.ask("").endswith("n\n42\n"), "the statement was not recalled:\n%s", shell.text())
        shell.ask("SELECT 1 AS other;")
        shell.leave()
    path = os.path.join(folder, "state", "netdb", "sql_history")
    for name, mode in ((path, 0o600), (os.path.dirname(path), 0o700), (os.path.join(folder, "state"), 0o700)):
        check(os.stat(name).st_mode & 0o777 == mode, "%s has mode %o", name, os.stat(name).st_mode & 0o777)
    with open(path, encoding="ascii") as file:
        entries = file.read().splitlines()
    check(entries == ["SELECT 41 + 1\\nAS n;", "SELECT 1 AS other;", ".quit"], "not one entry a statement: %s", entries)
    with Shell(folder, "--format", "csv") as shell:
        for wanted in (".quit", "AS other;", "AS n;"):
            shell.type(UP)
            shell.expect(wanted)
        check(shell.ask("").endswith("n\n42\n"), "nothing was kept:\n%s", shell.text())
        shell.leave()


def works_without_a_history_file(folder):
    open(os.path.join(folder, "file"), "wb").close()
    with Shell(folder, "--format", "csv", XDG_STATE_HOME=os.path.join(folder, "file", "state")) as shell:
        check(shell.ask("SELECT 41 + 1 AS n;") == "n\n42\n", "not the answer:\n%s", shell.text())
        shell.type(UP)
        shell.expect("AS n;")
        check(shell.ask("").endswith("n\n42\n"), "nothing is recalled:\n%s", shell.text())
        shell.leave()


def words_are_completed(folder):
    with Shell(folder, "--format", "csv") as shell:
        shell.type("sel" + TAB + "max(proc_fp" + TAB + ") fro" + TAB + "edr" + TAB)
        check(shell.ask(";") == "max(proc_fpath )\n/usr/bin/program3\n", "not completed:\n%s", shell.text())
        shell.type("SELECT first_seen, bytes_" + TAB)
        shell.expect("bytes_in  bytes_out")
        shell.type(CTRL_C)
        shell.expect(PROMPT)
        shell.leave()


def texts_that_are_no_ascii_can_be_typed(folder):
    with Shell(folder, "--format", "jsonl") as shell:
        check(shell.ask("SELECT 'grün' AS \"größe\";") == '{"größe":"grün"}\n', "not the text:\n%s", shell.text())
        shell.leave()


def colour_is_for_terminals_that_want_it(folder):
    with Shell(folder, NO_COLOR="") as shell:
        shell.ask("SELECT 1 AS n;")
        check(b"\x1b[1mn" in shell.raw, "no colour: %r", shell.raw)
        shell.leave()
    with Shell(folder) as shell:
        shell.ask("SELECT 1 AS n;")
        check(b"\x1b[1mn" not in shell.raw, "colour: %r", shell.raw)
        shell.leave()


def missing_rows_are_told(folder):
    with Shell(folder) as shell:
        with open(os.path.join(folder, "data", "netdb", "%d.db" % (DAY + 86400)), "wb") as file:
            file.write(b"damaged")
        shown = shell.ask("SELECT ip FROM edr_netdb;")
        check("203.0.113.3\n" in shown and "is damaged" in shown, "the damage is not told:\n%s", shown)
        shell.leave()


def one_statement_has_a_footnote_on_a_terminal(folder):
    data = os.path.join(folder, "data")
    put_history(data)
    with Terminal([netdb.program, "sql", "--data", data, "SELECT 1 AS n"], NO_COLOR="1") as terminal:
        check(terminal.end() == 0, "it failed:\n%s", terminal.text())
        check(terminal.text().startswith("n\n1\n(1 row, 0."), "not the answer: %r", terminal.text())


run_test(statement_of_many_lines, dot_commands, errors_do_not_end_the_shell, interrupt_drops_what_is_typed,
         stop_key_keeps_what_is_typed, interrupt_ends_a_statement, history_is_recalled_and_kept,
         works_without_a_history_file, words_are_completed,
         texts_that_are_no_ascii_can_be_typed, colour_is_for_terminals_that_want_it, missing_rows_are_told,
         one_statement_has_a_footnote_on_a_terminal)
