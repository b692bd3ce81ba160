#!/bin/sh
# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
# From photographs of a target under a laser line to a cloud. The images are in laser/calib and laser/scan.
set -eu

vorn-mv calibrate laser/calib --laser --pitch 15 --set MinDotArea=20 --out laser.json

vorn-mv scan laser/scan --laser --calib laser.json --step 0,9,0 --out laser.ply --preview laser.png

ls laser/scan/line_*.png | awk '{ print 9 * (NR - 1) }' > places.csv # an encoder's log
vorn-mv scan laser/scan --laser --calib laser.json --encoder places.csv --contrast 30 --out laser.ply
