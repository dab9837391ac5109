#!/usr/bin/env bash
# The fleet benchmark (run by hand as root, not in CI): `vessa-storage list --json` over N hosts
# against the floor of the same N ssh sessions running the listing tool directly (`xargs -P`, the same
# fan-out), both in the same run.
#
# Everything happens in a private network and PID namespace: one sshd on 0.0.0.0:22 answers every
# loopback address, the N hosts are 127.1.x.y, and the sessions run the listing tool of this build.
# Rows:
#   plain        ours and the floor, with the peak of our processes (vessa-storage, pelo, ssh) and
#                descriptors (of vessa-storage, and of all our processes), sampled every 0.1 s
#   ulimit -n    ours under `ulimit -n 256`
#   ulimit -u    ours as the user nobody (root is exempt from the process limit) under `ulimit -u 12`,
#                far too few for the window's threads and programs: every host must still have a result
#                and the run must end normally
#   faults       ours over the N hosts, 5 addresses where nothing listens (127.2.0.x, port 2222) and one
#                that accepts connections and never speaks (127.3.0.1:2222), with --deadline 60
#
# --canned: the sessions' listing tool prints what one run of the real one printed (taken once at the
# start), so that only the controller's cost and the sessions' count; without it every session runs
# the real listing tool, whose own time then weighs in on both sides.
#
#   bench/fleet.sh [N] [--parallel P] [--canned] [--build DIR]
set -euo pipefail

top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
n=200
parallel=32
canned=""
build=$top/build/default
args=("$@")
while (($#)); do
    case $1 in
        --parallel) parallel=$2; shift 2 ;;
        --canned) canned=1; shift ;;
        --build) build=$(cd "$2" && pwd); shift 2 ;;
        [0-9]*) n=$1; shift ;;
        *) echo "usage: bench/fleet.sh [N] [--parallel P] [--canned] [--build DIR]" >&2; exit 2 ;;
    esac
done
[ "$(id -u)" -eq 0 ] || { echo "bench/fleet.sh starts an sshd in namespaces of its own: run it as root" >&2; exit 1; }
for tool in unshare ip setpriv python3 /usr/sbin/sshd ssh ssh-keygen xargs; do
    command -v "$tool" >/dev/null || { echo "$tool is missing" >&2; exit 1; }
done
if [ -z "${VESSA_FLEET_INSIDE:-}" ]; then
    exec unshare --net --pid --fork --mount-proc env VESSA_FLEET_INSIDE=1 "$0" "${args[@]}"
fi

ip link set lo up
work=$(mktemp -d /tmp/vfleet.XXXXXX)
cleanup() {
    [ -n "${sshd_pid:-}" ] && kill "$sshd_pid" 2>/dev/null
    [ -n "${mute_pid:-}" ] && kill "$mute_pid" 2>/dev/null
    wait 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT
# A /run of this namespace's own: /run/sshd, which sshd needs for every connection, is then ours alone.
mount -t tmpfs -o mode=755 tmpfs /run
mkdir /run/sshd
# And an empty home for root, whose sessions the hosts are: the login shell of every session then reads
# no start-up files of this machine's root, whose cost would count once per session on both sides and
# is no part of the controller's.
mount -t tmpfs -o mode=700 tmpfs /root

ssh-keygen -q -t ed25519 -N "" -f "$work/host_key"
ssh-keygen -q -t ed25519 -N "" -f "$work/client_key"
cp "$work/client_key.pub" "$work/authorized_keys"
echo "vessa-fleet-bench $(cut -d' ' -f1,2 "$work/host_key.pub")" >"$work/known_hosts"
cat >"$work/sshd_config" <<EOF
Port 22
ListenAddress 0.0.0.0
HostKey $work/host_key
PidFile $work/sshd.pid
AuthorizedKeysFile $work/authorized_keys
PasswordAuthentication no
KbdInteractiveAuthentication no
PermitRootLogin prohibit-password
UsePAM no
StrictModes no
LogLevel ERROR
MaxStartups 2000
MaxSessions 100
SetEnv PATH=$work/canned:$build/companions:/usr/sbin:/usr/bin:/sbin:/bin VESSA_VLTT_INSTALL_DIR=$work/install
EOF
mkdir -p "$work/install" "$work/run" "$work/canned"
if [ -n "$canned" ]; then
    "$build/companions/korvo" -zt -zh -p -j1 --in-use --verdicts >"$work/listing"
    printf '#!/bin/sh\nexec cat %s\n' "$work/listing" >"$work/canned/korvo"
    chmod 755 "$work/canned/korvo"
fi
export PATH=$build/companions:$PATH
chmod 700 "$work/run"
cat >"$work/ssh_config" <<EOF
Host 127.2.* 127.3.*
    Port 2222
Host 127.*
    Port 22
    User root
    IdentityFile $work/client_key
    IdentitiesOnly yes
    HostKeyAlias vessa-fleet-bench
    UserKnownHostsFile $work/known_hosts
    GlobalKnownHostsFile /dev/null
    StrictHostKeyChecking yes
EOF
/usr/sbin/sshd -D -e -f "$work/sshd_config" 2>"$work/sshd.log" &
sshd_pid=$!
for _ in $(seq 100); do
    ssh -F "$work/ssh_config" -o BatchMode=yes 127.1.0.1 true 2>/dev/null && break
    sleep 0.1
done

for ((i = 0; i < n; i++)); do
    echo "127.1.$((i / 250)).$((i % 250 + 1))"
done >"$work/hosts"
{
    cat "$work/hosts"
    for i in 1 2 3 4 5; do echo "127.2.0.$i"; done
    echo 127.3.0.1
} >"$work/faulty"

# The peak of our processes and descriptors while a command runs: written to $work/peak.
sample() {
    python3 - "$work/peak" <<'PY' &
import os, signal, sys, time
peak = [0, 0, 0]
def done(*_):
    open(sys.argv[1], "w").write("%d %d %d\n" % tuple(peak))
    sys.exit(0)
signal.signal(signal.SIGTERM, done)
while True:
    procs = fds = own = 0
    for p in os.listdir("/proc"):
        if not p.isdigit():
            continue
        try:
            comm = open("/proc/%s/comm" % p).read().strip()
            if comm not in ("vessa-storage", "pelo", "ssh"):
                continue
            count = len(os.listdir("/proc/%s/fd" % p))
        except OSError:
            continue
        procs += 1
        fds += count
        if comm == "vessa-storage":
            own = max(own, count)
    peak = [max(peak[0], procs), max(peak[1], own), max(peak[2], fds)]
    time.sleep(0.1)
PY
    sampler=$!
}
unsample() {
    kill -TERM "$sampler"
    wait "$sampler" || true
}

now() { date +%s.%N; }
ours() { # hosts-file, extra options...
    local file=$1
    shift
    XDG_RUNTIME_DIR=$work/run "$build/cli/vessa-storage" list --json --hosts-file "$file" --parallel "$parallel" \
        --ssh-config "$work/ssh_config" "$@" >"$work/out.json" 2>"$work/err" || true
}
summary() { sed -n 's/^vessa-storage: \([0-9]* ok.*\)$/\1/p' "$work/err" | tail -n 1; }
failures() { # of the last run of ours: hosts of the document that are not ok
    python3 -c 'import json,sys; d=json.load(open(sys.argv[1])); print(sum(h["status"] != "ok" for h in d["hosts"]))' \
        "$work/out.json" 2>/dev/null || echo "no document"
}
results() {
    python3 -c 'import json,sys; print(len(json.load(open(sys.argv[1]))["hosts"]))' "$work/out.json" 2>/dev/null || echo 0
}

sample
start=$(now)
ours "$work/hosts"
end=$(now)
unsample
read -r peak_procs peak_own peak_all <"$work/peak"
ours_s=$(awk "BEGIN { print $end - $start }")
ours_failed=$(failures)

sample
start=$(now)
floor_ok=$(xargs -P "$parallel" -I{} ssh -F "$work/ssh_config" -o BatchMode=yes {} \
    korvo -zt -zh -p -j1 --in-use --verdicts <"$work/hosts" 2>/dev/null | grep -c '^#vessa-verdicts 1$' || true)
end=$(now)
unsample
read -r floor_procs _ floor_all <"$work/peak"
floor_s=$(awk "BEGIN { print $end - $start }")

printf 'hosts  parallel  ours_s  floor_s  ratio  peak_procs  peak_fds_vessa  peak_fds_all  failures  floor_failures  floor_procs  floor_fds_all\n'
printf '%-5s  %-8s  %-6.2f  %-7.2f  %-5.2f  %-10s  %-14s  %-12s  %-8s  %-14s  %-11s  %s\n' "$n" "$parallel" \
    "$ours_s" "$floor_s" "$(awk "BEGIN { print $ours_s / $floor_s }")" "$peak_procs" "$peak_own" "$peak_all" \
    "$ours_failed" "$((n - floor_ok))" "$floor_procs" "$floor_all"

(ulimit -n 256 && ours "$work/hosts")
echo "ulimit -n 256: $(summary); failures: $(failures)"

# The same query as nobody, with a key, a configuration and a socket directory of its own.
chmod 711 "$work"
mkdir -p "$work/nobody/run"
cp "$work/client_key" "$work/nobody/client_key"
sed "s|$work/client_key|$work/nobody/client_key|" "$work/ssh_config" >"$work/nobody/ssh_config"
chown -R 65534:65534 "$work/nobody"
chmod 700 "$work/nobody/run"
start=$(now)
status=0
setpriv --reuid=65534 --regid=65534 --clear-groups -- env HOME="$work/nobody" XDG_RUNTIME_DIR="$work/nobody/run" \
    bash -c 'ulimit -u 12 && exec "$0" "$@"' "$build/cli/vessa-storage" list --json --hosts-file "$work/hosts" \
    --parallel "$parallel" --ssh-config "$work/nobody/ssh_config" >"$work/out.json" 2>"$work/err" || status=$?
end=$(now)
echo "ulimit -u 12 (as nobody): exit status $status after $(printf '%.2f' "$(awk "BEGIN { print $end - $start }")") s;" \
    "$(results) of $n hosts with a result ($(summary))"

python3 - <<'PY' &
import socket, time
s = socket.socket()
s.bind(("127.3.0.1", 2222))
s.listen(64)
time.sleep(3600)
PY
mute_pid=$!
sleep 0.5
start=$(now)
ours "$work/faulty" --deadline 60
end=$(now)
echo "faults (5 refusing, 1 mute, deadline 60 s): $(summary) in $(printf '%.2f' "$(awk "BEGIN { print $end - $start }")") s"
python3 -c 'import json,sys
for h in json.load(open(sys.argv[1]))["hosts"]:
    if h["status"] != "ok": print("  %s %s: %s" % (h["host"], h["status"], h["message"]))' "$work/out.json"
