"""Runs `netdb reputation serve` and compares its answers with what is computed from the same lists here.

usage: reputation_service.py NETDB SHARED_DATA
"""
import http.client
import ipaddress
import json
import os
import random
import signal
import subprocess
import sys

import harness
from harness import check

LISTENING = "listening on http://"


class Service:
    """A running service on a free port; its messages are read line by line."""

    def __init__(self, *lists):
        self.process = subprocess.Popen([NETDB.program, "reputation", "serve", "--lists", *lists, "--listen",
                                         "127.0.0.1:0"], stderr=subprocess.PIPE, text=True)
        self.messages = self.await_line(LISTENING)
        self.address = self.messages[-1].split(LISTENING)[1].strip()

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
                return lines
        raise harness.Failure("it ended before it said %r:\n%s" % (text, "".join(lines)))

    def ask(self, addresses):
        connection = http.client.HTTPConnection(self.address, timeout=60)
        connection.request("POST", "/batch/ip/gtm", json.dumps(
            [{"projection": "status_code,data.is_whitelisted", "ip": address} for address in addresses]))
        reply = connection.getresponse()
        check(reply.status == 200, "the status is %d", reply.status)
        answers = json.loads(reply.read())
        connection.close()
        check(len(answers) == len(addresses), "%d answers for %d addresses", len(answers), len(addresses))
        check(all(answer["status_code"] == 0 for answer in answers), "an answer has another status")
        return [answer["data"]["is_whitelisted"] for answer in answers]

    def end(self, number):
        self.process.send_signal(number)
        check(self.process.wait() == 0, "it ended with %d", self.process.returncode)


def put(path, text):
    with open(path, "w", encoding="ascii") as file:
        file.write(text)
    return path


def follows_its_lists(folder):
    lists = put(os.path.join(folder, "lists.txt"), "192.0.2.0/24\nwrong\n10.0.0.1/8\n")
    with Service(lists) as service:
        check(lists + ":2: \"wrong\" is no address" in "".join(service.messages), "the bad line is not told")
        check(lists + ":3: \"10.0.0.1/8\" has bits" in "".join(service.messages), "the host bits are not told")
        asked = ["192.0.2.1", "10.9.9.9", "203.0.113.1"]
        check(service.ask(asked) == [True, True, False], "other verdicts")
        put(lists, "203.0.113.0/24\n")
        service.process.send_signal(signal.SIGHUP)
        service.await_line("1 harmless networks")
        check(service.ask(asked) == [False, False, True], "other verdicts after the lists changed")
        put(lists, "{")
        service.process.send_signal(signal.SIGHUP)
        service.await_line("the lists stay as they are: " + lists + ":1: this is no JSON")
        check(service.ask(asked) == [False, False, True], "a list that is none changed the verdicts")
        service.end(signal.SIGTERM)
    with Service(put(lists, "::/0")) as service:
        service.end(signal.SIGINT)


def refuses_wrong_use(folder):
    lists = put(os.path.join(folder, "lists.txt"), "192.0.2.0/24\n")
    NETDB.run("reputation", "serve", exit_code=2)
    NETDB.run("reputation", "x", "--lists", lists, exit_code=2)
    NETDB.run("reputation", "serve", "--lists", lists, "--listen", "0.0.0.0:0", exit_code=2)
    NETDB.run("reputation", "serve", "--lists", os.path.join(folder, "none"), exit_code=1)
    NETDB.run("reputation", "serve", "--lists", put(os.path.join(folder, "empty.txt"), ""), exit_code=1)


class Networks:
    """The lists of a folder as sets of numbers, one a prefix length."""

    def __init__(self, folder):
        self.sets = {}
        self.all = []
        for name in sorted(os.listdir(folder)):
            with open(os.path.join(folder, name), encoding="utf-8") as file:
                document = json.load(file)
            if document["type"] == "cidr":
                self.all += [ipaddress.ip_network(text) for text in document["list"]]
        for network in self.all:
            key = (network.version, network.max_prefixlen - network.prefixlen)
            self.sets.setdefault(key, set()).add(int(network.network_address) >> key[1])

    def holds(self, text):
        address = ipaddress.ip_address(text)
        return any(version == address.version and int(address) >> shift in numbers
                   for (version, shift), numbers in self.sets.items())


def some_addresses(networks, source):
    """At, beside and in the networks, and anywhere."""
    for network in source.sample(networks.all, 4000):
        first, last = int(network.network_address), int(network.broadcast_address)
        for number in (first, last, first - 1, last + 1, source.randint(first, last)):
            if 0 <= number < 1 << network.max_prefixlen:
                yield str(ipaddress.IPv4Address(number) if network.version == 4 else ipaddress.IPv6Address(number))
        yield str(ipaddress.IPv4Address(source.getrandbits(32)))


def agrees_with_what_is_computed(_):
    lists = os.path.join(sys.argv[2], "reputation")
    seed = random.SystemRandom().getrandbits(32)
    print("seed %d" % seed)
    networks = Networks(lists)
    addresses = list(some_addresses(networks, random.Random(seed)))
    with Service(lists) as service:
        for at in range(0, len(addresses), 1000):
            batch = addresses[at:at + 1000]
            for address, verdict in zip(batch, service.ask(batch)):
                check(verdict == networks.holds(address), "seed %d: %s is called %s", seed, address, verdict)
        service.end(signal.SIGTERM)


if __name__ == "__main__":
    NETDB = harness.Netdb(sys.argv[1])
    harness.run_test(follows_its_lists, refuses_wrong_use)
    if not os.path.isdir(os.path.join(sys.argv[2], "reputation")):
        harness.skip("there are no lists in " + os.path.join(sys.argv[2], "reputation"))
    harness.run_test(agrees_with_what_is_computed)
