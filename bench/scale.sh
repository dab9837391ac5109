#!/usr/bin/env bash
# The whole-process benchmark (run by hand, not in CI): `vessa-storage list --json --sysroot`, lsblk and
# the floor (bench/floor.c: list every directory and read every regular file once) on generated SAN
# snapshots (bench/san_snapshot.py) of about 1,000, 10,000 and 40,000 block devices, each program run
# several times in turn on the same warm snapshot. Prints one table row per snapshot: medians of
# elapsed time, ratios, the growth of our time per tenfold of devices, our peak resident memory, and
# the medians of processor time (user and system), which stay meaningful when other work shares the
# processors.
#
#   bench/scale.sh [--luns "250 2500 10000"] [--runs 3] [--timeout 900] [--lsblk-max 12000]
#                  [--work /tmp/vessa-scale] [--build build/default] [--before PROGRAM]
#
# --luns: LUN counts of the snapshots (two paths and one partition map each: about 4 devices a LUN);
# --timeout: seconds one run may take; a run that overruns ends the runs of that program on that
# snapshot and is reported as ">TIMEOUT"; --lsblk-max: lsblk runs only on snapshots up to that many
# devices. The snapshots stay in --work and are made again only when missing. vessa-storage and floor
# are built in --build (the default preset's folder) unless VESSA_STORAGE and FLOOR name programs.
# --before: an earlier build's vessa-storage, run in the same turns (first in every other turn), so
# that a change is measured against the same minutes of the machine; a second table then gives both
# builds against the floor, also as the median of each turn's own ratio (steadier when the machine's
# speed moves between turns). Use an even number of runs.
set -euo pipefail

top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
luns="250 2500 10000"
runs=3
limit=900
lsblk_max=12000
work=/tmp/vessa-scale
build=$top/build/default
before=
while (($#)); do
    case $1 in
        --luns) luns=$2 ;;
        --runs) runs=$2 ;;
        --timeout) limit=$2 ;;
        --lsblk-max) lsblk_max=$2 ;;
        --work) work=$2 ;;
        --build) build=$2 ;;
        --before) before=$2 ;;
        *) echo "usage: bench/scale.sh [--luns LIST] [--runs N] [--timeout S] [--lsblk-max N] [--work DIR] [--build DIR] [--before PROGRAM]" >&2
           exit 2 ;;
    esac
    shift 2
done

ours=${VESSA_STORAGE:-}
floor=${FLOOR:-}
if [ -z "$ours" ] || [ -z "$floor" ]; then
    cmake --build "$build" -j2 --target vessa-storage floor >&2
    ours=${ours:-$build/cli/vessa-storage}
    floor=${floor:-$build/bench/floor}
fi
command -v lsblk >/dev/null || { echo "lsblk is missing (util-linux)" >&2; exit 1; }
[ -x /usr/bin/time ] || { echo "/usr/bin/time is missing (Debian package time)" >&2; exit 1; }
mkdir -p "$work"

# One timed run: appends "elapsed:peak-KiB:user:system" to $2, or "timeout" when it overran. Returns 1 then.
measure() {
    local name=$1 out=$2 stamp
    shift 2
    stamp=$(mktemp)
    local status=0
    timeout "$limit" /usr/bin/time -f %e:%M:%U:%S -o "$stamp" "$@" >/dev/null 2>"$work/$name.err" || status=$?
    if [ "$status" -eq 124 ]; then
        echo timeout >>"$out"
        rm -f "$stamp"
        return 1
    fi
    [ "$status" -eq 0 ] || { echo "$name failed ($status): $(tail -1 "$work/$name.err")" >&2; exit 1; }
    tail -1 "$stamp" >>"$out"
    rm -f "$stamp"
}

rows=$work/rows
: >"$rows"
for n in $luns; do
    snap=$work/san-$n
    if [ ! -f "$snap/.made" ]; then
        echo "making a snapshot of $n LUNs in $snap" >&2
        python3 "$top/bench/san_snapshot.py" "$snap" --luns "$n" --seed 1 >&2
        touch "$snap/.made"
    fi
    devices=$(($(wc -l <"$snap/proc/partitions") - 2))
    "$floor" "$snap" >/dev/null  # warms the page cache
    for f in ours lsblk floor before; do : >"$work/$f.times"; done
    skip_ours=0
    skip_lsblk=$((devices > lsblk_max))
    for ((r = 1; r <= runs; r++)); do
        echo "$devices devices: run $r of $runs" >&2
        # With an earlier build, the two go first in turn: the program that runs right after the floor
        # was measured about 8 % slower than the one after it, whichever it was.
        if [ -n "$before" ] && ((r % 2 == 0)); then
            measure before "$work/before.times" "$before" list --json --sysroot "$snap" || true
        fi
        ((skip_ours)) || measure ours "$work/ours.times" "$ours" list --json --sysroot "$snap" || skip_ours=1
        if [ -n "$before" ] && ((r % 2 == 1)); then
            measure before "$work/before.times" "$before" list --json --sysroot "$snap" || true
        fi
        ((skip_lsblk)) || measure lsblk "$work/lsblk.times" \
            lsblk --sysroot "$snap" -J -o NAME,MAJ:MIN,SIZE,TYPE,MOUNTPOINT,MODEL || skip_lsblk=1
        measure floor "$work/floor.times" "$floor" "$snap"
    done
    echo "$devices $(paste -sd, "$work/ours.times") $(paste -sd, "$work/lsblk.times") $(paste -sd, "$work/floor.times")" \
        "$(paste -sd, "$work/before.times")" >>"$rows"
done

python3 - "$rows" "$limit" <<'EOF'
import math, statistics, sys

limit = sys.argv[2]
def runs(field):
    out = []
    for r in filter(None, field.split(",")):
        out.append(None if r == "timeout" else tuple(float(x) for x in r.split(":")))
    return out

def median(rs, cpu=False):
    if not rs:
        return None
    if any(r is None for r in rs):
        return math.inf
    return statistics.median(r[2] + r[3] if cpu else r[0] for r in rs)

def text(t, cpu=False):
    if t == math.inf:
        return "timed out" if cpu else ">" + limit + " s"
    return "-" if t is None else "%.2f s" % t

def ratio(a, b):
    return "-" if a is None or b is None or math.inf in (a, b) or b == 0 else "%.2f" % (a / b)

print("| devices | ours | lsblk | floor | ours/floor | lsblk/ours | ours growth per tenfold | ours peak memory "
      "| ours CPU | lsblk CPU | floor CPU | ours/floor CPU |")
print("|---" * 12 + "|")
previous = None
for line in open(sys.argv[1]):
    fields = line.split(" ")
    devices = int(fields[0])
    ours, lsblk, floor = (runs(f.strip()) for f in fields[1:4])
    o, l, f = median(ours), median(lsblk), median(floor)
    oc, lc, fc = median(ours, True), median(lsblk, True), median(floor, True)
    growth = "-"
    if previous and o not in (None, math.inf) and previous[1] not in (None, math.inf):
        growth = "x%.1f" % ((o / previous[1]) ** (1 / math.log10(devices / previous[0])))
    memory = [r[1] for r in ours if r is not None]
    print("| %d | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s |" % (
        devices, text(o), text(l), text(f), ratio(o, f), ratio(l, o), growth,
        "%.0f MiB" % (max(memory) / 1024) if memory else "-", text(oc, True), text(lc, True), text(fc, True),
        ratio(oc, fc)))
    previous = (devices, o)

lines = [line.split(" ") for line in open(sys.argv[1])]
if any(len(f) > 4 and f[4].strip() for f in lines):
    def turns(a, b):
        both = [x[0] / y[0] for x, y in zip(a, b) if x is not None and y is not None and y[0] > 0]
        return "%.2f" % statistics.median(both) if both else "-"
    print()
    print("| devices | ours | before | floor | ours/floor | before/floor | ours/floor by turn "
          "| before/floor by turn | ours/before by turn |")
    print("|---" * 9 + "|")
    for fields in lines:
        ours, floor, before = (runs(f.strip()) for f in (fields[1], fields[3], fields[4]))
        o, f, b = median(ours), median(floor), median(before)
        print("| %s | %s | %s | %s | %s | %s | %s | %s | %s |" % (
            fields[0], text(o), text(b), text(f), ratio(o, f), ratio(b, f), turns(ours, floor),
            turns(before, floor), turns(ours, before)))
EOF
