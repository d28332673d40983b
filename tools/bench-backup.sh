#!/usr/bin/env bash
# Times qo-backup against cp -r on the same generated tree on the same disk
# (1,000 small files and 100 MiB in large ones) and prints the throughput
# ratio. qo-backup flushes every file to the medium before it replaces the
# old copy, so "cp -r; sync" is timed as well: that is the fair comparison.
#   bash tools/bench-backup.sh [QO_BACKUP_EXECUTABLE] [WORK_FOLDER] [ROUNDS]
set -euo pipefail
cd "$(dirname "$0")/.."
exe=${1:-build/demo/bin/qo-backup}
work=${2:-build/bench-backup}
rounds=${3:-3}
if [ ! -x "$exe" ]; then
  cmake -S . -B build/demo -G Ninja -DCMAKE_BUILD_TYPE=Release -DQO_BUILD_TESTS=OFF >/dev/null
  cmake --build build/demo --target qo-backup >/dev/null
  exe=build/demo/bin/qo-backup
fi
rm -rf "$work"
src="$work/source"
for d in $(seq 0 9); do
  for s in $(seq 0 4); do
    mkdir -p "$src/dir$d/sub$s"
    for f in $(seq 0 19); do
      head -c $(( (d * 7919 + s * 104729 + f * 1299709) % 20000 )) /dev/urandom > "$src/dir$d/sub$s/file$f.dat"
    done
  done
done
mkdir -p "$src/large"
head -c $((40 << 20)) /dev/urandom > "$src/large/big-0.bin"
head -c $((30 << 20)) /dev/urandom > "$src/large/big-1.bin"
head -c $((30 << 20)) /dev/urandom > "$src/large/big-2.bin"
bytes=$(du -sb "$src" | cut -f1)
files=$(find "$src" -type f | wc -l)
sync

now() { date +%s.%N; }
# Seconds of one run of "$@" into a fresh target.
timed() {
  rm -rf "$work/target"; sync
  local start end
  start=$(now)
  "$@" >/dev/null
  end=$(now)
  awk -v a="$start" -v b="$end" 'BEGIN { printf "%.3f\n", b - a }'
}
median() { sort -n | awk '{ a[NR] = $1 } END { print a[int((NR + 1) / 2)] }'; }

qo=(); cp=(); cps=()
for r in $(seq 1 "$rounds"); do
  qo+=("$(timed "$exe" --log "$work/log.xml" "$src" "$work/target")")
  cp+=("$(timed cp -r "$src" "$work/target")")
  cps+=("$(timed sh -c "cp -r '$src' '$work/target' && sync")")
done
mq=$(printf '%s\n' "${qo[@]}" | median)
mc=$(printf '%s\n' "${cp[@]}" | median)
mcs=$(printf '%s\n' "${cps[@]}" | median)
mib() { awk -v b="$bytes" -v t="$1" 'BEGIN { printf "%.1f", b / 1048576 / t }'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }
echo "tree: $files files, $((bytes >> 20)) MiB; median of $rounds rounds"
printf '  qo-backup        %6.2f s  %7s MiB/s\n' "$mq" "$(mib "$mq")"
printf '  cp -r            %6.2f s  %7s MiB/s   qo-backup / cp -r        = %s\n' "$mc" "$(mib "$mc")" \
  "$(ratio "$mc" "$mq")"
printf '  cp -r; sync      %6.2f s  %7s MiB/s   qo-backup / (cp -r; sync) = %s\n' "$mcs" "$(mib "$mcs")" \
  "$(ratio "$mcs" "$mq")"
echo "  (ratio = throughput of qo-backup over that of the other; above 1 means qo-backup is faster)"
rm -rf "$work/target"
