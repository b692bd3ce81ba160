#!/usr/bin/env bash
# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
# check_manual.sh VORN_MV FOLDER: what `vorn-mv --help` and `vorn-mv COMMAND --help` list stands in the manual page of
# FOLDER, under its command, and the completion of FOLDER for bash offers it. The help texts are the parser's own.
set -euo pipefail
tool=$1 folder=$2
page=$folder/vorn-mv.1
failures=0

fail() {
  echo "$*"
  failures=$((failures + 1))
}

options_of() { # COMMAND -> the options in its help text, one a line
  "$tool" $1 --help | sed -nE 's/^  (-[^ ]+).*/\1/p' | tr ',' '\n' | sed 's/[{].*//'
}

section_of() { # COMMAND -> its part of the page, as plain text
  sed 's/\\f[BIR]//g; s/\\-/-/g; s/\\&//g' "$page" |
    awk -v heading=".S[HS] ${1:+vorn-mv $1 }" '/^\.S[HS] / { inside = ($0 " ") ~ "^" heading } inside'
}

complete_words() { # WORD... -> the completions of the last one, one a line
  COMP_WORDS=("$@")
  COMP_CWORD=$(($# - 1))
  _vorn_mv
  printf '%s\n' "${COMPREPLY[@]}"
}

# shellcheck source=/dev/null
source "$folder/vorn-mv.bash"
commands=$("$tool" --help | sed -n '/^Subcommands:/,$p' | sed -nE 's/^  ([a-z]+) .*/\1/p')
[ "$(wc -w <<< "$commands")" -ge 10 ] || fail "The help text lists too few commands: $commands"

for command in "" $commands; do
  options=$(options_of "$command")
  grep -qx -- --help <<< "$options" || fail "The help of '$command' has no options"
  section=$(section_of "$command")
  offered=$(complete_words vorn-mv $command -)
  for option in $options; do
    grep -qE -- "^(-[a-z], |--[a-z-]+, )*$option( |\$|,)" <<< "$section" || fail "The page of '$command' lacks $option"
    grep -qx -- "$option" <<< "$offered" || fail "'vorn-mv $command -' is not completed to $option"
  done
  [ "$(wc -w <<< "$offered")" -eq "$(wc -w <<< "$options")" ] || fail "'vorn-mv $command -' offers more:" $offered
done

expect() { # EXPECTED WORD...
  local expected=$1 got
  shift
  got=$(complete_words "$@" | paste -sd ' ')
  [ "$got" = "$expected" ] || fail "'$*' is completed to '$got', not to '$expected'"
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
touch "a cloud.ply"
expect "scan" vorn-mv sc
expect "scan" vorn-mv --verbose sc
expect "--calib --columns --contrast" vorn-mv scan folder --c
expect "a cloud.ply" vorn-mv filter a
expect "a cloud.ply" vorn-mv scan folder --out a
expect "" vorn-mv target --pitch a
# Names of properties and filters, and of values behind "=". A shell splits what is typed at "=" and ":".
expect "circles staggered chessboard charuco" vorn-mv detect a.png --kind ""
expect "MinDotArea= MinDotAreaMultiplier=" vorn-mv calibrate rig --set MinDotA
expect "MinDotAreaMultiplier=" vorn-mv detect a.png --set MinDotAreaM
expect "ScannerType=" vorn-mv scan rig --set ScannerT
expect "Horizontal Vertical" vorn-mv scan rig --set ScannerType =
expect "Vertical" vorn-mv scan rig --set ScannerType = V
expect "ScannerType=Vertical" vorn-mv scan rig --set ScannerType=V
expect "ScannerType=" vorn-mv scan rig --set = ScannerT
expect "Gaussian GaussianAdaptiveThreshold" vorn-mv image a.png --filter Gau
expect "Radius= MinNeighbourCount=" vorn-mv filter a.ply b.ply --filter Outlier :
expect "3,MinNeighbourCount=" vorn-mv filter a.ply b.ply --filter Outlier : Radius = 3,Min
expect "Outlier:Radius=3,MinNeighbourCount=" vorn-mv filter a.ply b.ply --filter Outlier:Radius=3,Min
expect "" vorn-mv filter a.ply b.ply --filter Gauss

if command -v groff > /dev/null; then
  complaints=$(groff -ww -man -Tascii -z "$page" 2>&1)
  [ -z "$complaints" ] || fail "The page is badly formed: $complaints"
fi
exit $((failures > 0))
