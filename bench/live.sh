#!/usr/bin/env bash
# The live benchmark (run by hand as root, not in CI): real kernel block devices instead of a snapshot.
# Makes N blank loop devices and N/4 with a GPT of two partitions (sparse files in --work; every device
# and file is undone on exit, also on failure or interruption), then runs, in turn on the same devices,
# `vessa-storage list --json`, `lsblk -J -f`, `lsblk -J -o NAME,MAJ:MIN,SIZE,TYPE,MOUNTPOINT,MODEL` and
# `blkid -c /dev/null` (one process that reads the signatures of every device the kernel lists), 3 times
# each, and prints one row per program: the median elapsed time, its ratio to `lsblk -f`, the processes
# each run started (counted with strace: forks and clones that are not threads), the devices of
# /proc/partitions it opened (strace again) and the peak resident memory.
#
# Where no udev database is kept (/run/udev/data), `lsblk -f` reads no device at all and prints empty
# file system columns: the devices-opened column shows it. The blkid row is then the baseline of a run
# that does look at every device's content.
#
# With --latency MS the blank devices answer as SAN paths do: they are made read-only over the files of
# bench/slow_luns.py, which answers every read after MS milliseconds (python3-fusepy is installed when
# missing). Caveat: the loop driver works off one device's reads one after another and the file system
# cuts them into pieces of 128 KiB, so a device there serves one read at a time where a SAN path takes
# many; devices still answer side by side.
#
#   bench/live.sh [N] [--runs 3] [--work /tmp/vessa-live] [--build build/default] [--size MiB] [--latency MS]
set -euo pipefail

top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
n=1000
runs=3
work=/tmp/vessa-live
build=$top/build/default
size=64
latency=
while (($#)); do
    case $1 in
        --runs) runs=$2; shift 2 ;;
        --work) work=$2; shift 2 ;;
        --build) build=$2; shift 2 ;;
        --size) size=$2; shift 2 ;;
        --latency) latency=$2; shift 2 ;;
        [0-9]*) n=$1; shift ;;
        *) echo "usage: bench/live.sh [N] [--runs R] [--work DIR] [--build DIR] [--size MiB] [--latency MS]" >&2; exit 2 ;;
    esac
done
[ "$(id -u)" -eq 0 ] || { echo "bench/live.sh makes loop devices: run it as root" >&2; exit 1; }
for tool in losetup sfdisk partx lsblk blkid strace python3 /usr/bin/time; do
    command -v "$tool" >/dev/null || { echo "$tool is missing" >&2; exit 1; }
done
ours=${VESSA_STORAGE:-}
if [ -z "$ours" ]; then
    cmake --build "$build" -j2 --target vessa-storage >&2
    ours=$build/cli/vessa-storage
fi

mkdir -p "$work"
devices=()
# Loop nodes that losetup makes stay after they are detached, and every tool that walks /sys/block (and
# each LVM tool, which opens them all) pays for them in later runs: those this run made are removed.
before=$(ls /sys/block)
cleanup() {
    local d
    for d in "${devices[@]}"; do
        losetup -d "$d" 2>/dev/null || true
    done
    comm -13 <(echo "$before" | sort) <(ls /sys/block | sort) | python3 -c '
import fcntl, os, sys
control = os.open("/dev/loop-control", os.O_RDWR)
for name in sys.stdin.read().split():
    if name.startswith("loop") and name[4:].isdigit():
        try:
            fcntl.ioctl(control, 0x4C81, int(name[4:]))  # LOOP_CTL_REMOVE
        except OSError:
            pass  # still bound, or gone
' || true
    rm -f "$work"/blank-*.img "$work"/gpt-*.img "$work"/gpt.template "$work"/*.stamp "$work"/*.trace.*
    if [ -n "${server:-}" ]; then
        umount "$work/luns" 2>/dev/null || umount -l "$work/luns" 2>/dev/null || true
        kill "$server" 2>/dev/null || true
        wait "$server" 2>/dev/null || true
        rmdir "$work/luns" 2>/dev/null || true
    fi
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

gpt=$((n / 4))
if [ -n "$latency" ]; then
    /usr/bin/python3 -c 'import fusepy' 2>/dev/null || apt-get install -y python3-fusepy >&2
    mkdir -p "$work/luns"
    /usr/bin/python3 "$top/bench/slow_luns.py" "$work/luns" --luns "$n" --size "$size" --latency "$latency" \
        2>"$work/luns.err" &
    server=$!
    for ((i = 0; i < 100; i++)); do
        [ -e "$work/luns/lun00000" ] && break
        sleep 0.1
    done
    [ -e "$work/luns/lun00000" ] || { echo "the slow LUNs did not come up: $(cat "$work/luns.err")" >&2; exit 1; }
fi
echo "making $n blank${latency:+ (${latency} ms a read)} and $gpt partitioned loop devices of $size MiB..." >&2
truncate -s "${size}M" "$work/gpt.template"
printf 'label: gpt\nsize=%dMiB\nsize=%dMiB\n' $((size / 4)) $((size / 4)) | sfdisk -q "$work/gpt.template" >/dev/null
for ((i = 0; i < n; i++)); do
    if [ -n "$latency" ]; then
        devices+=("$(losetup -r -f --show "$work/luns/$(printf 'lun%05d' "$i")")")
    else
        truncate -s "${size}M" "$work/blank-$i.img"
        devices+=("$(losetup -f --show "$work/blank-$i.img")")
    fi
done
for ((i = 0; i < gpt; i++)); do
    cp --sparse=always "$work/gpt.template" "$work/gpt-$i.img"
    d=$(losetup -f --show -P "$work/gpt-$i.img")
    devices+=("$d")
    [ -e "${d}p1" ] || partx -a "$d" 2>/dev/null || true
done
udevadm settle 2>/dev/null || true
blockdevs=$(($(wc -l </proc/partitions) - 2))
echo "block devices on the machine: $blockdevs" >&2

# One program's runs: prints "median-seconds processes peak-KiB devices-opened".
measure() {
    local name=$1 i times=() procs=0 peak=0 opened=0 t m
    shift
    "$@" >/dev/null 2>&1 || true  # warm the caches alike for every program
    for ((i = 0; i < runs; i++)); do
        /usr/bin/time -f "%e %M" -o "$work/$name.stamp" "$@" >/dev/null 2>"$work/$name.err" || true
        read -r t m <"$work/$name.stamp"
        times+=("$t")
        ((m > peak)) && peak=$m
    done
    # Each thread traced to a file of its own: traced together, a call that another thread interrupts
    # is split over two lines ("unfinished", "resumed"), and its result no longer follows its path.
    rm -f "$work/$name.trace".*
    strace -ff -qq -o "$work/$name.trace" -e trace=fork,vfork,clone,clone3,open,openat "$@" >/dev/null 2>&1 || true
    # Processes: every fork, vfork or clone that makes a process rather than a thread.
    procs=$(cat "$work/$name.trace".* | grep -E '^(fork|vfork|clone|clone3)\(' | grep -vc 'CLONE_THREAD' || true)
    # Devices: the distinct devices of /proc/partitions whose node was opened with success (the volume
    # tools also open every other loop node in /dev, devices that hold nothing).
    opened=$(cat "$work/$name.trace".* | sed -nE 's/^open(at)?\([^"]*"\/dev\/([^"]+)".*= [0-9]+$/\2/p' | sort -u |
        comm -12 - <(awk 'NR > 2 && $4 != "" {print $4}' /proc/partitions | sort -u) | wc -l)
    echo "$(printf '%s\n' "${times[@]}" | sort -g | sed -n "$(((runs + 1) / 2))p") $procs $peak $opened"
}

read -r ours_t ours_p ours_m ours_d < <(measure ours "$ours" list --json)
read -r f_t f_p f_m f_d < <(measure lsblk-f lsblk -J -f)
read -r o_t o_p o_m o_d < <(measure lsblk-o lsblk -J -o NAME,MAJ:MIN,SIZE,TYPE,MOUNTPOINT,MODEL)
read -r b_t b_p b_m b_d < <(measure blkid blkid -c /dev/null)

ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (b > 0) printf "%.2f", a / b; else print "-" }'; }
printf '\n%d blank%s + %d partitioned loop devices, %d block devices, median of %d runs\n\n' "$n" \
    "${latency:+ (${latency} ms a read)}" "$gpt" "$blockdevs" "$runs"
row() {
    printf '%-58s %9s %12s %9s %10s %10s %10d\n' "$1" "$2" "$(ratio "$2" "$f_t")" "$(ratio "$2" "$b_t")" "$3" "$5" \
        $(($4 / 1024))
}
printf '%-58s %9s %12s %9s %10s %10s %10s\n' program seconds "vs lsblk -f" "vs blkid" processes opened peak-MiB
row "vessa-storage list --json" "$ours_t" "$ours_p" "$ours_m" "$ours_d"
row "lsblk -J -f" "$f_t" "$f_p" "$f_m" "$f_d"
row "lsblk -J -o NAME,MAJ:MIN,SIZE,TYPE,MOUNTPOINT,MODEL" "$o_t" "$o_p" "$o_m" "$o_d"
row "blkid -c /dev/null" "$b_t" "$b_p" "$b_m" "$b_d"
