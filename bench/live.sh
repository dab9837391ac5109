#!/usr/bin/env bash
# The live benchmark (run by hand as root, not in CI): real kernel block devices instead of a snapshot.
# Makes N blank loop devices and N/4 with a GPT of two partitions (sparse files in --work; every device
# and file is undone on exit, also on failure or interruption), then runs, in turn on the same devices,
# `vessa-storage list --json`, `lsblk -J -f` (which reads every device's content) and
# `lsblk -J -o NAME,MAJ:MIN,SIZE,TYPE,MOUNTPOINT,MODEL`, 3 times each, and prints one row per program:
# the median elapsed time, its ratio to `lsblk -f`, the processes each run started (counted with
# strace: forks and clones that are not threads) and the peak resident memory.
#
#   bench/live.sh [N] [--runs 3] [--work /tmp/vessa-live] [--build build/default] [--size MiB]
set -euo pipefail

top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
n=1000
runs=3
work=/tmp/vessa-live
build=$top/build/default
size=64
while (($#)); do
    case $1 in
        --runs) runs=$2; shift 2 ;;
        --work) work=$2; shift 2 ;;
        --build) build=$2; shift 2 ;;
        --size) size=$2; shift 2 ;;
        [0-9]*) n=$1; shift ;;
        *) echo "usage: bench/live.sh [N] [--runs R] [--work DIR] [--build DIR] [--size MiB]" >&2; exit 2 ;;
    esac
done
[ "$(id -u)" -eq 0 ] || { echo "bench/live.sh makes loop devices: run it as root" >&2; exit 1; }
for tool in losetup sfdisk partx lsblk strace /usr/bin/time; do
    command -v "$tool" >/dev/null || { echo "$tool is missing" >&2; exit 1; }
done
ours=${VESSA_STORAGE:-}
if [ -z "$ours" ]; then
    cmake --build "$build" -j2 --target vessa-storage >&2
    ours=$build/cli/vessa-storage
fi

mkdir -p "$work"
devices=()
cleanup() {
    local d
    for d in "${devices[@]}"; do
        losetup -d "$d" 2>/dev/null || true
    done
    rm -f "$work"/blank-*.img "$work"/gpt-*.img "$work"/gpt.template "$work"/*.stamp "$work"/*.trace
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

gpt=$((n / 4))
echo "making $n blank and $gpt partitioned loop devices of $size MiB..." >&2
truncate -s "${size}M" "$work/gpt.template"
printf 'label: gpt\nsize=%dMiB\nsize=%dMiB\n' $((size / 4)) $((size / 4)) | sfdisk -q "$work/gpt.template" >/dev/null
for ((i = 0; i < n; i++)); do
    truncate -s "${size}M" "$work/blank-$i.img"
    devices+=("$(losetup -f --show "$work/blank-$i.img")")
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

# One program's runs: prints "median-seconds processes peak-KiB".
measure() {
    local name=$1 i times=() procs=0 peak=0 t m
    shift
    "$@" >/dev/null 2>&1 || true  # warm the caches alike for every program
    for ((i = 0; i < runs; i++)); do
        /usr/bin/time -f "%e %M" -o "$work/$name.stamp" "$@" >/dev/null 2>"$work/$name.err" || true
        read -r t m <"$work/$name.stamp"
        times+=("$t")
        ((m > peak)) && peak=$m
    done
    # Processes: every fork, vfork or clone that makes a process rather than a thread.
    strace -f -qq -o "$work/$name.trace" -e trace=fork,vfork,clone,clone3 "$@" >/dev/null 2>&1 || true
    procs=$(grep -E '(^|[0-9] )(fork|vfork|clone|clone3)\(' "$work/$name.trace" | grep -vc 'CLONE_THREAD' || true)
    echo "$(printf '%s\n' "${times[@]}" | sort -g | sed -n "$(((runs + 1) / 2))p") $procs $peak"
}

read -r ours_t ours_p ours_m < <(measure ours "$ours" list --json)
read -r f_t f_p f_m < <(measure lsblk-f lsblk -J -f)
read -r o_t o_p o_m < <(measure lsblk-o lsblk -J -o NAME,MAJ:MIN,SIZE,TYPE,MOUNTPOINT,MODEL)

ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (b > 0) printf "%.2f", a / b; else print "-" }'; }
printf '\n%d blank + %d partitioned loop devices, %d block devices, median of %d runs\n\n' "$n" "$gpt" "$blockdevs" "$runs"
printf '%-58s %9s %12s %10s %10s\n' program seconds "vs lsblk -f" processes peak-MiB
printf '%-58s %9s %12s %10s %10d\n' "vessa-storage list --json" "$ours_t" "$(ratio "$ours_t" "$f_t")" "$ours_p" $((ours_m / 1024))
printf '%-58s %9s %12s %10s %10d\n' "lsblk -J -f" "$f_t" "1.00" "$f_p" $((f_m / 1024))
printf '%-58s %9s %12s %10s %10d\n' "lsblk -J -o NAME,MAJ:MIN,SIZE,TYPE,MOUNTPOINT,MODEL" "$o_t" "$(ratio "$o_t" "$f_t")" "$o_p" $((o_m / 1024))
