// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Everything public, in one include.

#include <vorn/core/algorithm.hpp>
#include <vorn/core/atomic_file.hpp>
#include <vorn/core/enum.hpp>
#include <vorn/core/exception.hpp>
#include <vorn/core/export.hpp>
#include <vorn/core/filter_chain.hpp>
#include <vorn/core/interfaces.hpp>
#include <vorn/core/object.hpp>
#include <vorn/core/property.hpp>
#include <vorn/core/property_set.hpp>
#include <vorn/core/registry.hpp>
#include <vorn/core/system.hpp>
#include <vorn/core/text.hpp>
#include <vorn/core/timer.hpp>
#include <vorn/core/variant.hpp>
#include <vorn/graphic/graphic_object.hpp>
#include <vorn/graphic/obj_file.hpp>
#include <vorn/graphic/ply_file.hpp>
#include <vorn/graphic/stl_file.hpp>
#include <vorn/mv/calib/camera_calib_data.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/core/image.hpp>
#include <vorn/mv/core/library.hpp>
#include <vorn/mv/core/matrix_json.hpp>
#include <vorn/mv/geometry/fitting.hpp>
#include <vorn/mv/geometry/line2f.hpp>
#include <vorn/mv/geometry/line3f.hpp>
#include <vorn/mv/geometry/plane3f.hpp>
#include <vorn/mv/geometry/quaternion.hpp>
#include <vorn/mv/geometry/rotation.hpp>
#include <vorn/mv/geometry/transform.hpp>
#include <vorn/mv/geometry/transform3d.hpp>
#include <vorn/mv/imaging/edge_filters.hpp>
#include <vorn/mv/imaging/image_depth.hpp>
#include <vorn/mv/imaging/image_filter.hpp>
#include <vorn/mv/imaging/image_filters.hpp>
#include <vorn/mv/imaging/morph_shape.hpp>
#include <vorn/mv/imaging/morphology_filters.hpp>
#include <vorn/mv/imaging/smoothing_filters.hpp>
#include <vorn/mv/imaging/threshold_filters.hpp>
#include <vorn/mv/pointcloud/distance.hpp>
#include <vorn/mv/pointcloud/octree.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>
#include <vorn/mv/sl/code_decoding.hpp>
#include <vorn/mv/sl/global_direct_light.hpp>
#include <vorn/mv/sl/gray_code.hpp>
#include <vorn/mv/sl/lookup_tables.hpp>
#include <vorn/mv/sl/patterns.hpp>
#include <vorn/mv/sl/phase_decoding.hpp>
#include <vorn/mv/sl/phase_quality.hpp>
#include <vorn/mv/sl/phase_unwrapping.hpp>
