#!/bin/sh
# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
# Cleaning a cloud: cloud.ply, and grid.tiff with the same points on the camera's grid.
set -eu

vorn-mv filter cloud.ply clean.ply --z-range 500 575 --outlier 3 8 --small-cluster 3 500 --preview clean.png

vorn-mv filter grid.tiff clean.ply --z-range 500 575 --dz 3 --erode 1 --filter Outlier:Radius=3,MinNeighbourCount=8

cat > chain.json <<'END'
[
  {"class": "ZRange", "properties": {"Zmin": 500.0, "Zmax": 575.0}},
  {"class": "Outlier", "properties": {"Radius": 3.0, "MinNeighbourCount": 8}},
  {"class": "SmallCluster", "properties": {"Radius": 3.0, "MinClusterSize": 500}},
  {"class": "UniformSampler", "properties": {"Radius": 2.0}}
]
END
vorn-mv filter grid.tiff thin.ply --properties chain.json
