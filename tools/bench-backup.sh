#!/usr/bin/env bash
# Times qo-backup against the standard tools on the same generated tree on the
# same disk and prints the ratios:
#   full copy    qo-backup into an empty target   vs  cp -a, then sync
#   second run   qo-backup, nothing changed        vs  rsync -a, nothing changed
# qo-backup makes every file durable before it replaces the old copy, so the
# fair peer of its full copy is "cp -a; sync" (cp -a alone is shown too).
#
# The tree: 20,000 files of 0..44 KB of random bytes (about 440 MB) in 212
# folders. It is generated once (python3) and kept for later runs. Put the
# work folder on a real disk, not on tmpfs: the point is the medium.
#   bash tools/bench-backup.sh [QO_BACKUP_EXECUTABLE] [WORK_FOLDER] [ROUNDS]
# Not run in CI. Without rsync the second-run peer is skipped.
set -euo pipefail
cd "$(dirname "$0")/.."
exe=${1:-build/demo/bin/qo-backup}
work=${2:-/var/tmp/qo-bench-backup}
rounds=${3:-3}
if [ ! -x "$exe" ]; then
  cmake -S . -B build/demo -G Ninja -DCMAKE_BUILD_TYPE=Release -DQO_BUILD_TESTS=OFF >/dev/null
  cmake --build build/demo --target qo-backup >/dev/null
  exe=build/demo/bin/qo-backup
fi
if [ "$(stat -f -c %T "$(dirname "$work")")" = tmpfs ]; then
  echo "warning: $work is on tmpfs; the numbers will not say anything about a disk" >&2
fi
src="$work/source"
if [ ! -f "$work/source.done" ]; then
  rm -rf "$work"
  mkdir -p "$src"
  python3 - "$src" <<'EOF'
import os, sys
root = sys.argv[1]
files = 0
for top in range(4):
    for sub in range(52):
        folder = os.path.join(root, "top%d" % top, "sub%02d" % sub)
        os.makedirs(folder)
        count = 96 + (1 if (top * 52 + sub) < 20000 - 96 * 208 else 0)
        for f in range(count):
            size = (files * 7919 + 104729) % 44001
            with open(os.path.join(folder, "file%03d.dat" % f), "wb") as out:
                out.write(os.urandom(size))
            files += 1
print("generated %d files" % files)
EOF
  touch "$work/source.done"
fi
bytes=$(du -sb "$src" | cut -f1)
files=$(find "$src" -type f | wc -l)
folders=$(find "$src" -type d | wc -l)
sync

now() { date +%s.%N; }
# Seconds of one run of "$@".
timed() {
  sync
  local start end
  start=$(now)
  "$@" >/dev/null
  end=$(now)
  awk -v a="$start" -v b="$end" 'BEGIN { printf "%.3f\n", b - a }'
}
fresh() { rm -rf "$work/target"; sync; }
median() { sort -n | awk '{ a[NR] = $1 } END { print a[int((NR + 1) / 2)] }'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }

qoFull=(); cpa=(); cpaSync=(); qoAgain=(); rsyncAgain=()
haveRsync=0
command -v rsync >/dev/null && haveRsync=1
for r in $(seq 1 "$rounds"); do
  fresh; qoFull+=("$(timed "$exe" --log "$work/log.xml" "$src" "$work/target")")
  qoAgain+=("$(timed "$exe" --log "$work/log.xml" "$src" "$work/target")")
  fresh; cpa+=("$(timed cp -a "$src" "$work/target")")
  fresh; cpaSync+=("$(timed sh -c "cp -a '$src' '$work/target' && sync")")
  if [ "$haveRsync" = 1 ]; then
    fresh; rsync -a "$src/" "$work/target/"
    rsyncAgain+=("$(timed rsync -a "$src/" "$work/target/")")
  fi
done
fresh

mqf=$(printf '%s\n' "${qoFull[@]}" | median)
mqa=$(printf '%s\n' "${qoAgain[@]}" | median)
mc=$(printf '%s\n' "${cpa[@]}" | median)
mcs=$(printf '%s\n' "${cpaSync[@]}" | median)
echo "tree: $files files, $((bytes >> 20)) MiB, $folders folders in $work; median of $rounds rounds"
printf '  full copy:  qo-backup %7.3f s   cp -a; sync %7.3f s   ratio %s (goal <= 0.5)\n' "$mqf" "$mcs" \
  "$(ratio "$mqf" "$mcs")"
printf '              (cp -a alone %7.3f s: ratio %s)\n' "$mc" "$(ratio "$mqf" "$mc")"
if [ "$haveRsync" = 1 ]; then
  mra=$(printf '%s\n' "${rsyncAgain[@]}" | median)
  printf '  second run: qo-backup %7.3f s   rsync -a    %7.3f s   ratio %s (goal <= 0.8)\n' "$mqa" "$mra" \
    "$(ratio "$mqa" "$mra")"
else
  printf '  second run: qo-backup %7.3f s   (rsync not installed: no peer)\n' "$mqa"
fi
echo "  (ratio = time of qo-backup over that of the peer; below 1 means qo-backup is faster)"
