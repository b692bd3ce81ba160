#!/usr/bin/env bash
# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
# check_streams.sh VORN_MV: what goes to the shell's streams and comes from them: appended logs, pipes, links, endless
# inputs, full disks, and what a user without rights may write to.
set -euo pipefail
tool=$1
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
chmod 755 "$folder"
cd "$folder"

fail() {
  echo "$*"
  exit 1
}

"$tool" patterns p --width 64 --height 48 --quiet
picture=p/columns_00.png

# What a log holds stays, whichever way standard output is named.
for out in - /dev/stdout /dev/fd/1 /proc/self/fd/1; do
  echo old > log
  "$tool" info $picture --report $out >> log 2> words
  [ "$(head -n 1 log)" = old ] || fail "--report $out >> log: the log is gone"
  tail -n +2 log | python3 -m json.tool > /dev/null || fail "--report $out: not JSON alone: $(cat log)"
  grep -q "64 x 48" words || fail "--report $out: the words are not on standard error"
done
echo old > log
"$tool" info $picture --report /dev/fd/3 3>> log > words
[ "$(head -n 1 log)" = old ] && tail -n +2 log | python3 -m json.tool > /dev/null || fail "/dev/fd/3: $(cat log)"

# A link stays, and what it leads to is replaced.
echo old > real.json
ln -s real.json link.json
"$tool" info $picture --report link.json --quiet
[ -L link.json ] && python3 -m json.tool real.json > /dev/null || fail "the link is gone"

# Pipes are read to their end, and not beyond the limit.
mkfifo pipe.png
cat $picture > pipe.png &
[ "$("$tool" info pipe.png)" = "$("$tool" info $picture)" ] || fail "a pipe is read in another way"
"$tool" info <(cat $picture) > words || fail "a process's output cannot be read"
yes > pipe.png 2> /dev/null &
writer=$!
status=0
"$tool" info pipe.png --max-input 5 > words 2>&1 || status=$?
[ $status = 1 ] && grep -q "pipe.png: it brings more than 5 MB" words || fail "an endless pipe: $status, $(cat words)"
kill $writer 2> /dev/null || true
wait 2> /dev/null || true
rm pipe.png

# A full disk is no success.
for arguments in "info $picture" "info $picture --json" "info $picture --report /dev/full"; do
  status=0
  "$tool" $arguments > /dev/full 2> words || status=$?
  [ $status = 1 ] && grep -q "Cannot write\|No space" words || fail "$arguments > /dev/full: $status, $(cat words)"
done

# A user without rights on /dev writes to the streams all the same, and not where it may not.
if [ "$(id -u)" = 0 ] && command -v setpriv > /dev/null; then
  as_user() { setpriv --reuid 65534 --regid 65534 --clear-groups "$@"; }
  as_user "$tool" info $picture --report /dev/stdout 2> words | python3 -m json.tool > /dev/null || fail "$(cat words)"
  as_user "$tool" info $picture --report /dev/null > words || fail "/dev/null: $(cat words)"
  if as_user "$tool" info $picture --report report.json > words 2>&1; then
    fail "a report where none may be written"
  fi
fi
