// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

#include <vorn/mv/calib/calibration_covariance.hpp>

namespace vorn::mv {

/// How many parameters a calibration of two devices may have: 16 of either lens, as `Projection` orders them,
/// and 6 of the transform.
constexpr int calibrationParameterCount = 38;

/// The place of a parameter among them.
/// @param name one that `CalibrationCovariance::check` lets pass
int calibrationParameter(std::string const& name);

/// A copy with a matrix of its own, for an object of so many devices; an empty one is left as it is.
/// @param context names the object in refusals
/// @throws Exception for what `CalibrationCovariance::check` refuses, and for parameters of devices that the
///         object does not have
CalibrationCovariance covarianceFor(int deviceCount, CalibrationCovariance const& covariance,
                                    char const* context);

/// The member "Covariance" of a calibrated object's document; empty where there is none.
/// @throws JsonRefusal
CalibrationCovariance readCovariance(nlohmann::json const& json, int deviceCount, char const* context);

/// Adds the member "Covariance", unless it is empty.
void writeCovariance(nlohmann::json& json, CalibrationCovariance const& covariance);

} // namespace vorn::mv
