#!/bin/sh
# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
# From a target to a calibrated scanner. The photographs are in rig/calib.
set -eu

vorn-mv target target.svg --pitch 15 --page A3
vorn-mv patterns patterns --width 912 --height 570 --white

vorn-mv detect rig/calib/pose_*/target.png --pitch 15 --set MinDotArea=20 --overlay overlays
vorn-mv calibrate rig/calib --pitch 15 --set MinDotArea=20 --projector 304x190 \
  --out scanner.json --report calibration.json --plot errors.png
vorn-mv info scanner.json
