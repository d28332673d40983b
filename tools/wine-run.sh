#!/usr/bin/env bash
# Runs a Windows test executable under Wine for ctest.
#
# Now and then Wine itself fails to start a process (it returns at once,
# with a failure code and without a byte of output, before the program's
# own code runs). A program of ours always prints something, GoogleTest
# its banner first of all, so a silent failure is Wine's and the run is
# tried again. A failure that printed anything is the program's and is
# reported as it is.
set -u
output=$(mktemp)
trap 'rm -f "$output"' EXIT
for attempt in 1 2 3; do
  wine "$@" >"$output" 2>&1
  status=$?
  cat "$output"
  if [ "$status" -eq 0 ] || [ -s "$output" ]; then
    exit "$status"
  fi
  echo "wine-run: Wine exited with status $status before the program printed anything (attempt $attempt)" >&2
done
exit "$status"
