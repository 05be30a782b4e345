"""Logs that the tests make up: addresses of the documentation ranges talk to private ones."""
import json

DAY = 1699920000  # 2023-11-14
DAY_SECONDS = 86400
LOCAL = "10.20.30.40"
FIELDS = ("_node_name", "ts", "uid", "id.orig_h", "id.orig_p", "id.resp_h", "id.resp_p", "proto", "service", "duration",
          "orig_bytes", "resp_bytes", "conn_state", "label")
TSV_HEAD = ("#separator \\x09\n#set_separator\t,\n#empty_field\t(empty)\n#unset_field\t-\n#path\tconn\n"
            "#open\t2023-11-14-00-00-00\n#fields\t" + "\t".join(FIELDS) + "\n")
TSV_END = "#close\t2023-11-15-00-00-00\n"
SERVICES = ("-", "(empty)", "http", "ssl", "dns", "ssl,http", "gssapi,smb,dce_rpc", "ssh", "rdp", "ftp", "HTTP", "smb,-")
REMOTE_NETWORKS = ("192.0.2.", "198.51.100.", "203.0.113.")


def tsv_line(ts, origin, responder, proto="tcp", service="-", duration="-", sent="-", received="-"):
    """`origin` and `responder` are pairs of address and port."""
    return "\t".join(map(str, ("worker-1", ts, "Cmade", *origin, *responder, proto, service, duration, sent, received,
                               "SF", "benign"))) + "\n"


def json_line(ts, origin, responder, underscores=False, **members):
    separator = "_" if underscores else "."
    record = {"ts": ts, "uid": "Cmade"}
    for name, side in (("orig", origin), ("resp", responder)):
        record["id%s%s_h" % (separator, name)], record["id%s%s_p" % (separator, name)] = side
    return json.dumps(dict(record, proto="tcp", **members)) + "\n"


def random_lines(random, count, days, addresses=768, ports=(22, 53, 80, 443, 445, 3389)):
    """Connections of both directions and all protocols over `days`, in no order."""
    for _ in range(count):
        remote = REMOTE_NETWORKS[random.randrange(3)] + str(random.randrange(addresses // 3))
        ts = "%d.%06d" % (DAY + random.randrange(days * DAY_SECONDS), random.randrange(10**6))
        proto = random.choice(("tcp", "tcp", "tcp", "udp", "icmp"))
        sides = [(LOCAL, random.randrange(1024, 65536)), (remote, random.choice(ports))]
        if random.random() < 0.3:
            sides = [(remote, random.randrange(1024, 65536)), (LOCAL, random.choice(ports))]
        duration, sent, received = "-", "-", "-"
        if random.random() < 0.8:
            duration = "%.6f" % random.expovariate(1 / 600)
            sent, received = (random.choice(("-", 0, random.randrange(10**6), random.randrange(10**11)))
                              for _ in range(2))
        yield tsv_line(ts, *sides, proto=proto, service=random.choice(SERVICES), duration=duration, sent=sent,
                       received=received)


def sysmon_connection(at, image, guid, source, destination, initiated, protocol="tcp", **members):
    return dict({"EventID": 3, "UtcTime": at, "Image": image, "ProcessGuid": guid, "SourceIp": source[0],
                 "SourcePort": str(source[1]), "DestinationIp": destination[0], "DestinationPort": str(destination[1]),
                 "Initiated": initiated, "Protocol": protocol}, **members)


def sysmon_process(at, image, guid, hashes, **members):
    return dict({"EventID": 1, "UtcTime": at, "Image": image, "ProcessGuid": guid, "Hashes": hashes}, **members)


def json_lines(records):
    return "".join(json.dumps(record) + "\n" for record in records)
