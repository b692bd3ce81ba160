#!/usr/bin/env bash
# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
# test_check_abi.sh CHECK_ABI: the check passes without a tag and where something is added, and fails where a function
# vanishes or a public type changes; a new major version may do all of it. Tried on a library of three lines.
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/scripts" "$work/include" "$work/build/dev/src"
cp "$1" "$work/scripts/check-abi"
cd "$work"

build() { # FILE MAJOR TEXT: a shared library of the text, which is its public header too
  mkdir -p "$(dirname "$1")"
  cat > include/api.hpp <<< "$3"
  echo '#include "api.hpp"' > source.cpp
  g++ -g -shared -fPIC -Iinclude -Wl,-soname,"libvorn_mv.so.$2" -o "$1" source.cpp
}
now=build/dev/src/libvorn_mv.so
first='struct Size { int width; }; int area(Size const& size) { return size.width; } int one() { return 1; }'

expect() { # STATUS WHAT WORDS
  local status=0 said
  said=$(scripts/check-abi "$now" 2>&1) || status=$?
  [ $((status > 0)) = "$1" ] && grep -q "$3" <<< "$said" || { echo "$2: status $status: $said"; exit 1; }
}

build "$now" 1 "$first"
git init -q . && git add include && git -c user.name=a -c user.email=a@b commit -qm first
expect 0 "without a tag" "No release is tagged"
git tag v1.0.0
cp -r include build/
build build/abi/v1.0.0/build/dev/src/libvorn_mv.so 1 "$first"
mkdir -p build/abi/v1.0.0/include && cp include/api.hpp build/abi/v1.0.0/include
expect 0 "the same" "go on working"
build "$now" 1 "$first int two() { return 2; }"
expect 0 "a new function" "go on working"
build "$now" 1 "${first/int one() { return 1; \}/}"
expect 1 "a function less" "would break"
build "$now" 1 "${first/int width;/int width; int height;}"
expect 1 "a larger type" "would break"
build "$now" 2 "${first/int width;/int width; int height;}"
expect 0 "a new major version" "need not keep"
