#!/usr/bin/env bash
# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
# build_consumer.sh BUILD_DIR WORK_DIR COMPILER: installs BUILD_DIR into WORK_DIR/prefix and builds the consumer
# beside this script against it, once through find_package and once through pkg-config, and runs both.
set -euo pipefail
build=$1 work=$2 compiler=$3
source=$(cd "$(dirname "$0")/consumer" && pwd)

rm -rf "$work/prefix" "$work/consumer"
cmake --install "$build" --prefix "$work/prefix" > "$work/install.log"

cmake -G Ninja -S "$source" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_CXX_COMPILER="$compiler" \
      > "$work/configure.log"
cmake --build "$work/consumer" > "$work/build.log" || { cat "$work/build.log"; exit 1; }
"$work/consumer/consumer"

library_dir=$(dirname "$(find "$work/prefix" -name vorn_mv.pc)")/..
export PKG_CONFIG_PATH="$library_dir/pkgconfig"
# shellcheck disable=SC2046 # the flags are words
"$compiler" -std=c++17 "$source/main.cpp" -o "$work/consumer_pkgconfig" \
  $(pkg-config --cflags --libs vorn_mv)
LD_LIBRARY_PATH="$library_dir" "$work/consumer_pkgconfig"

"$work/prefix/bin/vorn-mv" --version

# ChArUco boards are for who installed their library; the tool runs without it, and says what is missing.
if [ -e "$work/consumer/charuco_consumer" ]; then
  "$work/consumer/charuco_consumer"
  "$work/prefix/bin/vorn-mv" target "$work/board.svg" --charuco 8x6 > /dev/null
  rm "$(find "$work/prefix" -name 'libvorn_mv_charuco.so.1.*')"
  "$work/prefix/bin/vorn-mv" target "$work/dots.svg" > /dev/null
  if "$work/prefix/bin/vorn-mv" target "$work/board.svg" --charuco 8x6 2> "$work/refusal"; then
    echo "a board was drawn without its library"
    exit 1
  fi
  grep -q libvorn-mv-charuco1 "$work/refusal" || { cat "$work/refusal"; exit 1; }
fi
