"""What the policy's table [cloud] does to a start, to a reload and to what is shown, with a real daemon.

usage: cloud_policy.py NETDB
"""
import os
import signal
import subprocess
import sys
import time

import harness
from harness import check

ISOLATE = ["unshare", "--net"] if os.geteuid() == 0 else ["unshare", "--user", "--map-root-user", "--net"]
TOKEN = "a-token-that-nobody-sees"
STARTED = "netdb run: recording"


def put(path, text, mode=0o600):
    with open(path, "w", encoding="ascii") as file:
        file.write(text)
    os.chmod(path, mode)
    return path


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def policy_of(folder, token_file):
    return put(os.path.join(folder, "netdb.toml"),
               "[cloud]\nendpoint = \"https://127.0.0.1:1\"\ntoken_file = \"%s\"\n" % token_file)


def bad_settings_stop_a_start(folder):
    token = put(os.path.join(folder, "token"), TOKEN + "\n", 0o644)
    policy = policy_of(folder, token)
    data = os.path.join(folder, "data")
    wanted = "%s:3: cannot use token_file %s: others than its owner may read it" % (policy, token)
    for command in ("run", "filter"):
        said = NETDB.run(command, "--data", data, "--policy", policy, exit_code=1).stderr.decode()
        check(wanted in said and TOKEN not in said, "netdb %s says %s", command, said)
        check(not os.path.exists(data), "netdb %s made the folder", command)
    done = NETDB.run("policy", "--data", data, "--policy", policy)
    check(TOKEN not in (done.stdout + done.stderr).decode(), "netdb policy shows the token")


def reload_takes_usable_settings_only(folder):
    token = put(os.path.join(folder, "token"), TOKEN)
    policy = policy_of(folder, token)
    data = os.path.join(folder, "data")
    messages = os.path.join(folder, "messages")
    with open(messages, "wb") as file:
        process = subprocess.Popen([*ISOLATE, NETDB.program, "run", "--data", data, "--policy", policy], stderr=file)
    try:
        while STARTED not in read(messages):
            check(process.poll() is None, "the daemon ended: %s", read(messages))
            time.sleep(0.02)
        NETDB.run("reload", "--data", data)
        os.chmod(token, 0o640)
        said = NETDB.run("reload", "--data", data, exit_code=1).stderr.decode()
        check("the policy stays as it is: " + policy + ":3: cannot use token_file" in said, "%s", said)
        os.chmod(token, 0o600)
        NETDB.run("reload", "--data", data)
        shown = NETDB.run("policy", "--data", data).stdout + NETDB.run("status", "--data", data).stdout
        check(TOKEN not in shown.decode(), "the daemon shows the token")
    finally:
        process.send_signal(signal.SIGTERM)
        exit_code = process.wait()
    check(exit_code == 0, "it ended with %d", exit_code)
    check(TOKEN not in read(messages), "the daemon's messages have the token")


if __name__ == "__main__":
    NETDB = harness.Netdb(sys.argv[1])
    harness.run_test(bad_settings_stop_a_start)
    if subprocess.run([*ISOLATE, "true"], stderr=subprocess.DEVNULL, check=False).returncode != 0:
        harness.skip("this system allows no private network namespace")
    harness.run_test(reload_takes_usable_settings_only)
