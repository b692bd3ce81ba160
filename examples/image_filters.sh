#!/bin/sh
# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
# Image filters by name, one by one and as a chain. The picture is in.png.
set -eu

cat > chain.json <<'END'
[
  {"class": "Gaussian", "properties": {"Radius": 3, "SigmaX": 1.2}},
  {"class": "vorn::mv::LocalAverageAdaptiveThresholdFilter"}
]
END

vorn-mv image in.png out.png --filters chain.json
vorn-mv image in.png edges.png --filter Gaussian:Radius=3,SigmaX=1.2 --filter Canny
vorn-mv image --list
vorn-mv image --gallery gallery
