#!/usr/bin/env bash
# Under a process limit that leaves no room for its threads, a run answers as an unlimited run does:
# what a thread would have done ahead, the run's own thread does when it comes to it. Root is exempt
# from the limit, so the runs go as the user nobody, on copies that user can read.
#   thread_limit.sh PROGRAM SNAPSHOT_MAKER
set -euo pipefail
if [ "$(id -u)" -ne 0 ] || ! command -v setpriv >/dev/null || ! id nobody >/dev/null 2>&1; then
    echo "needs root, setpriv and the user nobody"
    exit 77
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp "$1" "$work/vessa-storage"
# 30 LUNs on two paths: more items than one block of the JSON writer, more directories than reading threads.
python3 "$2" "$work/root" --luns 30 --seed 3 >/dev/null
chmod -R a+rX "$work"
# The leak checker of a sanitizer build needs a thread of its own at exit: not under these limits.
export ASAN_OPTIONS="${ASAN_OPTIONS:+$ASAN_OPTIONS:}detect_leaks=0"
as_nobody() {
    setpriv --reuid=nobody --regid=nogroup --clear-groups \
        bash -c 'if [ "$0" != - ]; then ulimit -u "$0" || exit 9; fi; exec "$@"' "$1" "$work/vessa-storage" list --json --sysroot "$work/root"
}
as_nobody - >"$work/whole.json" 2>/dev/null
for limit in 1 3 5; do
    as_nobody "$limit" >"$work/limited.json" 2>"$work/err" || { echo "limit $limit: failed"; cat "$work/err"; exit 1; }
    cmp "$work/whole.json" "$work/limited.json" || { echo "limit $limit: another answer"; exit 1; }
done
[ "$(grep -c '"index"' "$work/whole.json")" -gt 64 ] || { echo "too few items to cross a block"; exit 1; }
