"""Starts `netdb run` in a network namespace of its own and asks it, changes its policy, and ends it in every way there is.

usage: running_daemon.py NETDB
"""
import fcntl
import json
import os
import signal
import socket
import subprocess
import sys
import termios

import harness
from harness import check

ISOLATE = ["unshare", "--net"] if os.geteuid() == 0 else ["unshare", "--user", "--map-root-user", "--net"]


class Daemon:
    """A running `netdb run`; its messages are read line by line."""

    def __init__(self, netdb, data, *arguments):
        self.process = subprocess.Popen([*ISOLATE, netdb.program, "run", "--data", data, *arguments],
                                        stderr=subprocess.PIPE, text=True)
        self.await_line("netdb run: recording")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        self.process.stderr.close()

    def await_line(self, text):
        lines = []
        for line in self.process.stderr:
            lines.append(line)
            if text in line:
                return
        raise harness.Failure("the daemon ended without %r: %s" % (text, "".join(lines)))

    def end(self, signal_number):
        self.process.send_signal(signal_number)
        return self.process.wait()


def write(path, text):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


def ask(netdb, data, command, *arguments, exit_code=0):
    done = netdb.run(command, "--data", data, *arguments, exit_code=exit_code)
    return done.stdout.decode(), done.stderr.decode()


def config_of(netdb, data):
    return json.loads(ask(netdb, data, "status", "--format", "json")[0])["config"]


def answers_and_follows(folder):
    data, policy = os.path.join(folder, "data"), os.path.join(folder, "netdb.toml")
    write(policy, "max_db_days = 30\n")
    with Daemon(NETDB, data, "--policy", policy) as daemon:
        mode = os.stat(os.path.join(data, "netdb.sock")).st_mode & 0o777
        check(mode == 0o600, "the socket has mode %o", mode)
        table, notes = ask(NETDB, data, "status")
        check("process               %d\n" % daemon.process.pid in table and not notes, "%s%s", table, notes)
        check(config_of(NETDB, data)["max_db_days"] == 30, "the policy is not in force")
        settings = json.loads(ask(NETDB, data, "policy", "--format", "json")[0])
        days = [s for s in settings["settings"] if s["name"] == "max_db_days"][0]
        check(settings["policy"] == policy and days["line"] == 1 and days["value"] == 30, "%s", settings)

        write(policy, "max_db_days = 40\nnetdb_enabled = false\n")
        out, _ = ask(NETDB, data, "reload")
        check(out == "netdb_enabled: true -> false\nmax_db_days: 30 -> 40\n", "%s", out)
        daemon.await_line("max_db_days: 30 -> 40")
        check("recording             off\n" in ask(NETDB, data, "status")[0], "it is still recording")

        write(policy, "max_db_days = 50\nnonsense = 1\n")
        _, error = ask(NETDB, data, "reload", exit_code=1)
        check("%s:2: " % policy in error, "%s", error)
        daemon.await_line("the policy stays as it is: %s:2: " % policy)
        daemon.process.send_signal(signal.SIGHUP)
        daemon.await_line("the policy stays as it is: %s:2: " % policy)
        config = config_of(NETDB, data)
        check(config["max_db_days"] == 40 and config["netdb_enabled"] is False, "%s", config)

        write(policy, "max_db_days = 60\n")
        daemon.process.send_signal(signal.SIGHUP)
        daemon.await_line("max_db_days: 40 -> 60")
        config = config_of(NETDB, data)
        check(config["max_db_days"] == 60 and config["netdb_enabled"] is True, "%s", config)

        check(daemon.end(signal.SIGTERM) == 0, "it ended with %d", daemon.process.returncode)
    check(not os.path.exists(os.path.join(data, "netdb.sock")), "the socket is still there")
    _, notes = ask(NETDB, data, "status")
    check("no daemon is running" in notes, "%s", notes)


def bad_policy_at_the_start(folder):
    data, policy = os.path.join(folder, "data"), os.path.join(folder, "netdb.toml")
    write(policy, "max_db_days = 1\n")
    _, error = ask(NETDB, data, "run", "--policy", policy, exit_code=1)
    check("%s:1: " % policy in error, "%s", error)
    check(not os.path.exists(data), "it made the folder")


def socket_of_a_killed_daemon_is_replaced(folder):
    data = os.path.join(folder, "d" * 120)  # longer than an address
    with Daemon(NETDB, data) as daemon:
        check(daemon.end(signal.SIGKILL) == -signal.SIGKILL, "it was not killed")
    check(os.path.exists(os.path.join(data, "netdb.sock")), "a killed daemon removed its socket")
    check("no daemon is running" in ask(NETDB, data, "status")[1], "a dead daemon answers")
    with Daemon(NETDB, data) as daemon:
        check("process               %d\n" % daemon.process.pid in ask(NETDB, data, "status")[0], "no answer")
        check(daemon.end(signal.SIGINT) == 0, "it ended with %d", daemon.process.returncode)


def silent_peers_stop_nobody(folder):
    data = os.path.join(folder, "data")
    with Daemon(NETDB, data) as daemon:
        peers = []
        for _ in range(20):
            peers.append(socket.socket(socket.AF_UNIX, socket.SOCK_STREAM))
            peers[-1].connect(os.path.join(data, "netdb.sock"))
            peers[-1].send(b"ND")
        check("Daemon\n" in ask(NETDB, data, "status")[0], "no answer beside silent peers")
        check(daemon.end(signal.SIGTERM) == 0, "it ended with %d", daemon.process.returncode)
        for peer in peers:
            peer.close()


def unread_messages_do_not_end_it(folder):
    data, policy = os.path.join(folder, "data"), os.path.join(folder, "netdb.toml")
    write(policy, "max_db_days = 30\n")
    with Daemon(NETDB, data, "--policy", policy) as daemon:
        daemon.process.stderr.close()
        write(policy, "max_db_days = 40\n")
        check(ask(NETDB, data, "reload")[0] == "max_db_days: 30 -> 40\n", "it did not follow")
        check(config_of(NETDB, data)["max_db_days"] == 40, "the policy is not in force")
        check(daemon.end(signal.SIGTERM) == 0, "it ended with %d", daemon.process.returncode)
    check(not os.path.exists(os.path.join(data, "netdb.sock")), "the socket is still there")


def damaged_state_is_not_fatal(folder):
    data = os.path.join(folder, "data")
    os.mkdir(data, 0o700)
    write(os.path.join(data, "netdb-statistics.json"), "{")
    process = subprocess.Popen([*ISOLATE, NETDB.program, "run", "--data", data], stderr=subprocess.PIPE, text=True)
    first = process.stderr.readline()
    check("netdb-statistics.json is damaged; counting starts anew" in first, "%s", first)
    for line in process.stderr:
        if "netdb run: recording" in line:
            break
    process.send_signal(signal.SIGTERM)
    check(process.wait() == 0, "it ended with %d", process.returncode)
    process.stderr.close()


def closed_terminal_ends_it(folder):
    master, slave = os.openpty()

    def take_terminal():
        os.setsid()
        fcntl.ioctl(slave, termios.TIOCSCTTY, 0)

    process = subprocess.Popen([*ISOLATE, NETDB.program, "run", "--data", os.path.join(folder, "data")],
                               stderr=slave, preexec_fn=take_terminal)
    os.close(slave)
    seen = b""
    while b"netdb run: recording" not in seen:
        seen += os.read(master, 4096)
    os.close(master)
    check(process.wait() == 0, "it ended with %d", process.returncode)


if __name__ == "__main__":
    if subprocess.run([*ISOLATE, "true"], stderr=subprocess.DEVNULL, check=False).returncode != 0:
        harness.skip("this system allows no private network namespace")
    NETDB = harness.Netdb(sys.argv[1])
    harness.run_test(answers_and_follows, bad_policy_at_the_start, socket_of_a_killed_daemon_is_replaced,
                     silent_peers_stop_nobody, unread_messages_do_not_end_it, damaged_state_is_not_fatal,
                     closed_terminal_ends_it)
