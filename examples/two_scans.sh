#!/bin/sh
# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
# Two cameras and a projector: the first camera's images are in rig, the second's in rig/second.
set -eu

vorn-mv calibrate rig --rig --pitch 15 --set MinDotArea=20 --projector 304x190 \
  --out scanner.json --out-second second.json --out-pair pair.json

example_two_scans scanner.json rig/scan second.json rig/second/scan both.ply
vorn-mv filter both.ply both_clean.ply --outlier 4 8 --preview both.png
