#!/usr/bin/env bash
# Sets up, builds and runs qo's example program qo-backup: it backs a small
# sample folder up twice (the second run copies only what changed) and then
# shows the session log.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/install-deps.sh --linux-only
cmake -S . -B build/demo -G Ninja -DCMAKE_BUILD_TYPE=Release -DQO_BUILD_TESTS=OFF >/dev/null
cmake --build build/demo --target qo-backup qo-demo
backup=./build/demo/bin/qo-backup

# A fresh sample: nested folders, a large file, a non-ASCII name and a path
# longer than Windows' classic 260 characters.
work=build/demo-run
rm -rf "$work"
sample="$work/sample"
mkdir -p "$sample/photos/2025/summer" "$sample/documents" "$sample/empty folder"
for i in 1 2 3 4 5; do echo "beach photo $i" > "$sample/photos/2025/summer/img-$i.jpg"; done
echo "notes" > "$sample/documents/notes.txt"
echo "Grüße aus Köln" > "$sample/documents/Grüße – été 日本.txt"
head -c $((64 * 1024 * 1024)) /dev/urandom > "$sample/large.bin"
deep="$sample"
for level in 1 2 3 4 5; do deep="$deep/a-rather-long-folder-name-on-level-$level-of-the-deep-sample-path"; done
mkdir -p "$deep"
echo "deep" > "$deep/deep-file.txt"
echo "== sample: $(find "$sample" -type f | wc -l) files, $(du -sh "$sample" | cut -f1); longest path $(find "$sample" | awk '{ print length }' | sort -n | tail -1) characters"

target="$work/backup/sample"
echo
echo "== first backup: $backup $sample $target"
"$backup" "$sample" "$target"
echo
echo "== one file changes; the second backup copies only that one"
echo "more notes" >> "$sample/documents/notes.txt"
"$backup" --verbose "$sample" "$target"
echo
diff -r "$sample" "$target" && echo "== the target equals the sample"
echo
echo "== the session log: $backup --show-log $work/backup/qo-backup-log.xml"
"$backup" --show-log "$work/backup/qo-backup-log.xml"
