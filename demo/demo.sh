#!/usr/bin/env bash
# Records real TCP connections inside a private network namespace, asks the running daemon how it does, shows the rows and checks
# them; then imports a sample log, asks about one day of it, verifies the folder, and has the harmless addresses removed by a
# reputation service of this machine.
#
# usage: demo.sh FOLDER_OF_NETDB
# Exit code 77: this system does not allow a private network namespace.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
netdb=$(cd "$1" && pwd)/netdb

readonly client_address=198.51.100.1 server_address=203.0.113.9 port=8443
# What each connection carries, and how many each program opens.
readonly request_bytes=1000 reply_bytes=50000 perl_connections=3 bash_connections=2

say() { printf '\n\033[1m== %s\033[0m\n' "$*" | if [ -t 1 ]; then cat; else sed 's/\x1b\[[0-9]*m//g'; fi; }

# Runs this script again as `inside` with a network of its own.
enter_namespace() {
  local -a isolate=(unshare --net)
  [ "$(id -u)" = 0 ] || isolate=(unshare --user --map-root-user --net)
  if ! "${isolate[@]}" true 2>/dev/null; then
    echo "skipped: this system allows no private network namespace" >&2
    exit 77
  fi
  "${isolate[@]}" bash "${BASH_SOURCE[0]}" "$1" inside "$work"
}

# Two addresses of the documentation ranges on the loopback device, so that each end sees a public address.
make_network() {
  ip link set lo up
  ip address add $client_address/32 dev lo
  ip address add $server_address/32 dev lo
  ip route replace local $server_address dev lo src $client_address table local
}

# The connections stay open for a moment, as those of real programs do.
perl_client() {
  perl -MIO::Socket::INET -e '
    my ($address, $port, $send, $receive) = @ARGV;
    my $socket = IO::Socket::INET->new(PeerAddr => $address, PeerPort => $port) or die $!;
    print $socket "x" x $send; $socket->flush;
    my $got = 0;
    while ($got < $receive) { my $n = read($socket, my $data, $receive - $got) or die; $got += $n; }
    select(undef, undef, undef, 0.8);
  ' $server_address $port $request_bytes $reply_bytes
}

bash_client() {
  exec 5<>/dev/tcp/$server_address/$port
  printf 'x%.0s' $(seq $request_bytes) >&5
  head -c $reply_bytes <&5 >/dev/null
  read -r -t 0.8 <&5 || true
  exec 5>&-
}

server() {
  exec python3 -c '
import socket, sys, threading
address, port, receive, send = sys.argv[1], *map(int, sys.argv[2:])
def serve(connection):
    got = 0
    while got < receive:
        got += len(connection.recv(65536))
    connection.sendall(b"y" * send)
    while connection.recv(65536):
        pass
    connection.close()
listener = socket.create_server((address, port))
print("listening", flush=True)
while True:
    threading.Thread(target=serve, args=(listener.accept()[0],), daemon=True).start()
' $server_address $port $request_bytes $reply_bytes
}

# Waits for a line that holds $1 on standard input.
await_line() { while IFS= read -r line; do case $line in *"$1"*) return 0 ;; esac; done; return 1; }

record_live() {
  local data=$1 listening recording pids=()
  mkfifo "$data/recorder" "$data/server"
  "$netdb" run --data "$data/live" 2>"$data/recorder" &
  local recorder=$!
  exec {recording}<"$data/recorder"
  await_line "recording" <&"$recording"
  server >"$data/server" &
  local server=$!
  exec {listening}<"$data/server"
  await_line "listening" <&"$listening"

  for ((i = 0; i < perl_connections; i++)); do perl_client & pids+=($!); done
  for ((i = 0; i < bash_connections; i++)); do (bash_client) & pids+=($!); done
  wait "${pids[@]}"
  say "netdb status, while it records"
  "$netdb" status --data "$data/live"
  kill "$server"
  wait "$server" 2>/dev/null || true
  kill -INT "$recorder"
  wait "$recorder"
}

# Compares the rows with what the programs did.
check_rows() {
  "$netdb" query --data "$1/live" --format jsonl | python3 -c '
import json, os, sys
client, server, port, request, reply, perl, bash = sys.argv[1:3] + [int(a) for a in sys.argv[3:]]
# Each process has a row of its own: the rows of one program are added up.
numbers = ("conns_total", "conns_in", "conns_out", "bytes_in", "bytes_out")
got = {}
for r in map(json.loads, sys.stdin):
    key = (r["ip"], r["port"], r["protos"], os.path.basename(r["proc_fpath"]).rstrip("0123456789."))
    got[key] = [a + b for a, b in zip(got.get(key, [0] * 6), [1] + [r[n] for n in numbers])]
both = perl + bash
want = {
    (server, port, "TCP", "perl"): [perl, perl, 0, perl, perl * reply, perl * request],
    (server, port, "TCP", "bash"): [bash, bash, 0, bash, bash * reply, bash * request],
    (client, port, "TCP", "python"): [1, both, both, 0, both * request, both * reply],
}
got == want or sys.exit("recorded %s, expected %s" % (got, want))
print("checked: every row has the right process, port, direction, counts and bytes")
' $client_address $server_address $port $request_bytes $reply_bytes $perl_connections $bash_connections
}

# Adds up the rows of netdb query as SQL did.
check_sums() {
  "$netdb" sql --data "$1" --format jsonl "$2" >"$work/sums"
  "$netdb" query --data "$1" --format jsonl | python3 -c '
import json, sys
want = {}
for r in map(json.loads, sys.stdin):
    key = (r["port"], r["protos"])
    want[key] = [a + b for a, b in zip(want.get(key, [0, 0]), [1, r["bytes_in"]])]
got = {(r["port"], r["protos"]): [r["rows"], r["bytes_in"]] for r in map(json.loads, open(sys.argv[1]))}
got and got == want or sys.exit("SQL gave %s, expected %s" % (got, want))
print("checked: the sums are those of all rows")
' "$work/sums"
}

# A service that calls the networks of $2 harmless, and what a day looks like without them.
filter_days() {
  local data=$1 list=$2 address serving
  mkfifo "$data/service"
  "$netdb" reputation serve --lists "$list" --listen 127.0.0.1:0 2>"$data/service" &
  local service=$!
  exec {serving}<"$data/service"
  while IFS= read -r address <&"$serving"; do case $address in *http://*) break ;; esac; done
  printf '[cloud]\nendpoint = "http://%s"\n' "${address##*http://}" >"$data/netdb.toml"
  "$netdb" filter --data "$data/imported" --policy "$data/netdb.toml"
  kill "$service"
  wait "$service"
}

# No row of the harmless networks is left, and all others are.
check_filtered() {
  python3 -c '
import ipaddress, json, sys
harmless = [ipaddress.ip_network(l.split("#")[0].strip()) for l in open(sys.argv[1]) if l.split("#")[0].strip()]
before, after = ([json.loads(l) for l in open(f)] for f in sys.argv[2:4])
kept = [r for r in before if not any(ipaddress.ip_address(r["ip"]) in n for n in harmless)]
len(kept) < len(before) and kept == after or sys.exit("kept %s, expected %s" % (after, kept))
print("checked: %d rows before, %d after, none of a harmless network" % (len(before), len(after)))
' "$1" "$2" "$3"
}

inside() {
  make_network
  record_live "$1"
}

main() {
  work=$(mktemp -d)
  trap 'rm -rf "$work"' EXIT

  say "Recording live: $perl_connections connections by perl and $bash_connections by bash to a python server"
  enter_namespace "$1"
  say "netdb query"
  "$netdb" query --data "$work/live"
  check_rows "$work"

  say "netdb import demo/sample-conn.log"
  "$netdb" import --data "$work/imported" "$here/sample-conn.log"
  say "netdb query --since 2024-05-14 --until 2024-05-14"
  "$netdb" query --data "$work/imported" --since 2024-05-14 --until 2024-05-14
  local question='SELECT port, protos, count(*) AS rows, sum(bytes_in) AS bytes_in FROM edr_netdb GROUP BY port, protos ORDER BY bytes_in DESC'
  say "netdb sql \"$question\""
  "$netdb" sql --data "$work/imported" "$question"
  check_sums "$work/imported" "$question"
  say "netdb top --by bytes --of ip"
  "$netdb" top --data "$work/imported" --by bytes --of ip
  say "netdb verify"
  "$netdb" verify --data "$work/imported"

  say "netdb reputation serve --lists harmless.txt; netdb filter"
  printf '198.51.100.0/24  # what this demonstration calls harmless\n' >"$work/harmless.txt"
  "$netdb" query --data "$work/imported" --format jsonl >"$work/before"
  filter_days "$work" "$work/harmless.txt"
  "$netdb" query --data "$work/imported" --format jsonl >"$work/after"
  check_filtered "$work/harmless.txt" "$work/before" "$work/after"
}

if [ "${2:-}" = inside ]; then inside "$3"; else main "$1"; fi
