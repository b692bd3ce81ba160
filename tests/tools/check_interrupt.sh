#!/usr/bin/env bash
# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
# check_interrupt.sh VORN_MV: an interrupted calibration ends with status 130 and one line, and leaves no file but the
# one that was there before.
set -euo pipefail
tool=$1
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

"$tool" simulate "$folder/rig" --divisor 2 > "$folder/log"
echo old > "$folder/scanner.json"
# An interactive shell's job: scripts start theirs with the signal ignored.
set -m
"$tool" calibrate "$folder/rig" --pitch 15 --set MinDotArea=20 --out "$folder/scanner.json" --report "$folder/r.json" \
  > "$folder/log" 2> "$folder/errors" &
pid=$!
# Interrupts as soon as the tool catches the signal (bit 2 of the mask), which it does while a job runs. Until the new
# process has become the tool, it is still the shell, which catches the signal too and would die of it.
until [ "/proc/$pid/exe" -ef "$tool" ]; do
  kill -0 "$pid"
done
until mask=$(sed -nE 's/^SigCgt:\s*//p' "/proc/$pid/status") && (((16#${mask:-0} & 2) != 0)); do
  kill -0 "$pid"
done
kill -INT "$pid"
status=0
wait "$pid" || status=$?

[ "$status" = 130 ] || { echo "status $status, not 130"; cat "$folder/errors"; exit 1; }
[ "$(cat "$folder/errors")" = "vorn-mv: interrupted" ] || { cat "$folder/errors"; exit 1; }
[ "$(cat "$folder/scanner.json")" = old ] || { echo "the old calibration is gone"; exit 1; }
[ "$(ls "$folder" | sort | xargs)" = "errors log rig scanner.json" ] || { ls "$folder"; exit 1; }
