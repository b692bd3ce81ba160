#!/bin/sh
# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
# From captured images to points. The images are in rig/scan, the calibration is scanner.json.
set -eu

vorn-mv scan rig/scan --calib scanner.json --out cloud.ply --xyz grid.tiff --preview cloud.png --report scan.json
vorn-mv info cloud.ply

vorn-mv scan rig/scan --calib scanner.json --map map.png --set Sensitivity=6 --set MinSegmentSize=300
