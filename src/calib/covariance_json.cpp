// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/covariance_json.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <set>
#include <string>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/variant.hpp>
#include <vorn/mv/calib/adjustment.hpp>
#include <vorn/mv/core/matrix_json.hpp>

#include "core/error.hpp"
#include "core/json_member.hpp"

namespace vorn::mv {

namespace {

/// What rounding may leave of symmetry and of an eigenvalue that is 0, in a matrix of correlations.
constexpr double rounding = 1e-6;

struct Kind {
  char const* name;
  char const* unit;
  bool isOfDevice;
};

constexpr std::array<Kind, 22> kinds{
    {{"fx", "px", true},      {"fy", "px", true},     {"cx", "px", true},   {"cy", "px", true},
     {"k1_", "1", true},      {"k2_", "1", true},     {"p1_", "1", true},   {"p2_", "1", true},
     {"k3_", "1", true},      {"k4_", "1", true},     {"k5_", "1", true},   {"k6_", "1", true},
     {"s1_", "1", true},      {"s2_", "1", true},     {"s3_", "1", true},   {"s4_", "1", true},
     {"rx", "rad", false},    {"ry", "rad", false},   {"rz", "rad", false}, {"tx", "length", false},
     {"ty", "length", false}, {"tz", "length", false}}};

/// The kind of a parameter; null for an unknown name.
Kind const* kindOf(std::string const& parameter) {
  auto const found = std::find_if(kinds.begin(), kinds.end(), [&](Kind const& kind) {
    return parameter == kind.name || (kind.isOfDevice && (parameter == std::string(kind.name) + '0' ||
                                                          parameter == std::string(kind.name) + '1'));
  });
  bool const isWhole = found != kinds.end() && !(found->isOfDevice && parameter == found->name);
  return isWhole ? &*found : nullptr;
}

bool isOf(int deviceCount, std::string const& parameter) {
  return deviceCount > 1 || (kindOf(parameter)->isOfDevice && parameter.back() == '0');
}

[[noreturn]] void refuse(std::string const& member, std::string const& reason) {
  throw JsonRefusal(member, reason, "CalibrationCovariance");
}

std::string element(std::size_t index) {
  return '[' + std::to_string(index) + ']';
}

void checkParameters(std::vector<std::string> const& parameters) {
  std::set<std::string> seen;
  for (std::size_t i = 0; i < parameters.size(); ++i) {
    if (kindOf(parameters[i]) == nullptr) {
      refuse("Parameters" + element(i), " \"" + parameters[i] + "\" is no parameter of a calibration");
    }
    if (!seen.insert(parameters[i]).second) {
      refuse("Parameters" + element(i), " names \"" + parameters[i] + "\" once more");
    }
  }
}

/// @param matrix n x n CV_64F
void checkElements(cv::Mat_<double> const& matrix) {
  cv::Mat_<double> correlations(matrix.size());
  auto const place = [&](int row, int col) {
    return "Matrix.data" + element(static_cast<std::size_t>(row) * static_cast<std::size_t>(matrix.cols) +
                                   static_cast<std::size_t>(col));
  };
  for (int row = 0; row < matrix.rows; ++row) {
    for (int col = 0; col < matrix.cols; ++col) {
      if (!std::isfinite(matrix(row, col))) {
        refuse(place(row, col), " is not finite");
      }
    }
    if (matrix(row, row) < 0) {
      refuse(place(row, row),
             " is " + Variant(matrix(row, row)).toString() + ", but no variance is negative");
    }
  }
  for (int row = 0; row < matrix.rows; ++row) {
    for (int col = 0; col < matrix.cols; ++col) {
      double const both = std::sqrt(matrix(row, row)) * std::sqrt(matrix(col, col));
      if (std::abs(matrix(row, col) - matrix(col, row)) > rounding * both ||
          std::abs(matrix(row, col)) > (1 + rounding) * both) {
        refuse(place(row, col), " and " + place(col, row) + " are no covariance of their two parameters");
      }
      correlations(row, col) = both > 0 ? 0.5 * (matrix(row, col) + matrix(col, row)) / both : 0;
    }
  }
  cv::Mat_<double> eigenvalues;
  if (!matrix.empty() &&
      (!cv::eigen(correlations, eigenvalues) || eigenvalues(matrix.rows - 1) < -rounding)) {
    refuse("Matrix", " is no covariance: it gives some combination of its parameters a negative variance");
  }
}

} // namespace

int calibrationParameter(std::string const& name) {
  constexpr int ofDevice = 16;
  auto const place = static_cast<int>(kindOf(name) - kinds.data());
  return place < ofDevice && name.back() == '0' ? place : place + ofDevice;
}

double CalibrationCovariance::sigmaOf(std::string const& parameter) const {
  auto const found = std::find(parameters.begin(), parameters.end(), parameter);
  auto const index = static_cast<int>(found - parameters.begin());
  return found == parameters.end() ? 0 : std::sqrt(matrix.at<double>(index, index));
}

void CalibrationCovariance::check() const {
  checkParameters(parameters);
  auto const count = static_cast<int>(parameters.size());
  bool const isSized = matrix.dims <= 2 && matrix.rows == count && matrix.cols == count;
  if (!isSized || (count > 0 && matrix.type() != CV_64FC1)) {
    refuse("Matrix", " must be " + std::to_string(count) + " x " + std::to_string(count) +
                         " doubles, one row for each of the parameters");
  }
  checkElements(matrix);
  if (!(scaleSigma >= 0) || !std::isfinite(scaleSigma)) {
    refuse("ScaleSigma", " is " + Variant(scaleSigma).toString() + ", but must be 0 or more");
  }
}

CalibrationCovariance covarianceOf(Adjustment const& adjustment, double relativePitchSigma) {
  CalibrationCovariance result;
  result.parameters = adjustment.parameters;
  if (!adjustment.covariance.empty()) {
    result.matrix = 0.5 * (adjustment.covariance + adjustment.covariance.t());
  }
  result.scaleSigma = relativePitchSigma;
  result.check();
  return result;
}

CalibrationCovariance covarianceFor(int deviceCount, CalibrationCovariance const& covariance,
                                    char const* context) {
  covariance.check();
  for (std::size_t i = 0; i < covariance.parameters.size(); ++i) {
    if (!isOf(deviceCount, covariance.parameters[i])) {
      throw JsonRefusal("Parameters" + element(i),
                        " \"" + covariance.parameters[i] + "\" is no parameter of this object", context);
    }
  }
  CalibrationCovariance result = covariance;
  result.matrix = covariance.matrix.clone();
  return result;
}

CalibrationCovariance readCovariance(nlohmann::json const& json, int deviceCount, char const* context) {
  if (!json.contains("Covariance")) {
    return {};
  }
  return atJsonPlace("Covariance", context, [&] {
    nlohmann::json const& member = json["Covariance"];
    CalibrationCovariance read;
    readJson(member, "Parameters", read.parameters, context);
    jsonValue<cv::Mat>(member, "Matrix", context).convertTo(read.matrix, CV_64F);
    auto const units = jsonValue<std::vector<std::string>>(member, "Units", context);
    if (member.contains("ScaleSigma")) {
      readJson(member, "ScaleSigma", read.scaleSigma, context);
    }
    CalibrationCovariance result = covarianceFor(deviceCount, read, context);
    if (units.size() != read.parameters.size()) {
      throw JsonRefusal("Units",
                        " must name the units of all " + std::to_string(read.parameters.size()) +
                            " parameters, not of " + std::to_string(units.size()),
                        context);
    }
    for (std::size_t i = 0; i < units.size(); ++i) {
      std::string const wanted = kindOf(read.parameters[i])->unit;
      if (units[i] != wanted) {
        throw JsonRefusal(
            "Units" + element(i),
            " is \"" + units[i] + "\", but \"" + read.parameters[i] + "\" is in \"" + wanted + '"', context);
      }
    }
    return result;
  });
}

void writeCovariance(nlohmann::json& json, CalibrationCovariance const& covariance) {
  if (covariance.isEmpty()) {
    return;
  }
  nlohmann::json units = nlohmann::json::array();
  for (std::string const& parameter : covariance.parameters) {
    units.push_back(kindOf(parameter)->unit);
  }
  json["Covariance"] = {{"Parameters", covariance.parameters},
                        {"Units", std::move(units)},
                        {"Matrix", covariance.matrix},
                        {"ScaleSigma", covariance.scaleSigma}};
}

} // namespace vorn::mv
