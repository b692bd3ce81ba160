#!/bin/sh
# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
# Two cameras: what both photographed is in pair/calib.
set -eu

cp -r pair/calib views
mv views/pose_04 check # takes no part in the calibration

vorn-mv calibrate views --stereo --pitch 15 --set MinDotArea=20 \
  --out stereo.json --report stereo_report.json --plot stereo_errors.png
vorn-mv info stereo.json

example_two_cameras stereo.json 15 check/target.png check/target_1.png
