#!/bin/sh
# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
# Cleaning a cloud: cloud.ply, and grid.tiff with the same points on the camera's grid.
set -eu

vorn-mv filter cloud.ply clean.ply --z-range 500 650 --outlier 4 8 --small-cluster 4 500 --preview clean.png

vorn-mv filter grid.tiff clean.ply --dz 8 --erode 1 --border 2 --filter Outlier:Radius=4,MinNeighbourCount=8

cat > chain.json <<'END'
[
  {"class": "Dz", "properties": {"Dz": 8.0}},
  {"class": "SmallCluster", "properties": {"Radius": 4.0, "MinClusterSize": 1000}},
  {"class": "UniformSampler", "properties": {"Radius": 2.0}}
]
END
vorn-mv filter grid.tiff thin.ply --properties chain.json
