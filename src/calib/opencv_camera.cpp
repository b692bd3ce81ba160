// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/opencv_camera.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <fstream>
#include <optional>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>

#include "calib/camera_model_of.hpp"
#include "calib/opencv_storage.hpp"
#include "core/error.hpp"

namespace vorn::mv {

namespace {

using Names = std::vector<char const*>;

constexpr char const* context = "readOpenCvCamera";

std::string contentOf(std::string const& path) {
  constexpr std::streamoff most = 32 << 20;
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw error("There is no file " + path + " that can be read", context);
  }
  std::string content;
  std::vector<char> part(1 << 16);
  while (file.read(part.data(), static_cast<std::streamsize>(part.size())) || file.gcount() > 0) {
    content.append(part.data(), static_cast<std::size_t>(file.gcount()));
    if (content.size() > static_cast<std::size_t>(most)) {
      throw error(path + " is longer than 32 MB: no file of a camera", context);
    }
  }
  if (file.bad()) {
    throw error(path + " cannot be read", context);
  }
  return content;
}

/// A member of the file, and what it is called there.
struct Member {
  nlohmann::json const& node;
  std::string name;
};

/// A file that is being read, and messages about it.
class CameraFile {
public:
  explicit CameraFile(std::string const& path) : path_(path) {
    std::string const content = contentOf(path);
    try {
      members_ = parseOpenCvStorage(content);
    } catch (Exception const& e) {
      throw error(path + " is no file of OpenCV's storage (YAML, XML or JSON): " + e.message(), context);
    }
  }

  Exception refusal(std::string const& member, std::string const& problem) const {
    return error(path_ + ": " + member + ' ' + problem, context);
  }

  std::optional<Member> find(Names const& names) const {
    for (char const* name : names) {
      auto const member = members_.find(name);
      if (member != members_.end() && !member->is_null()) {
        return Member{*member, name};
      }
    }
    return std::nullopt;
  }

  Member require(Names const& names) const {
    std::optional<Member> const member = find(names);
    if (!member) {
      std::string text = path_ + " has no " + names.front() + " (";
      for (char const* name : names) {
        text += name != names.front() ? std::string(name != names[1] ? ", " : "nor ") + name : "";
      }
      throw error(text + ')', context);
    }
    return *member;
  }

  double number(Member const& member) const {
    if (!member.node.is_number()) {
      throw refusal(member.name, "is no number");
    }
    double const value = member.node.get<double>();
    if (!std::isfinite(value)) {
      throw refusal(member.name, "is not finite");
    }
    return value;
  }

  /// The numbers of a matrix, row by row, of a list or of a list of lists.
  /// @param wanted its columns and rows; empty: one row or column
  std::vector<double> numbers(Member const& member, cv::Size const& wanted) const {
    bool const hasExtent = member.node.is_object();
    nlohmann::json const& data = hasExtent ? partOf(member.node, "data") : member.node;
    if (!data.is_array()) {
      throw refusal(member.name, "is no matrix");
    }
    std::vector<double> values;
    auto const take = [&](nlohmann::json const& node) {
      values.push_back(number({node, member.name + "[" + std::to_string(values.size()) + "]"}));
    };
    for (nlohmann::json const& part : data) {
      if (part.is_array()) {
        std::for_each(part.begin(), part.end(), take);
      } else {
        take(part);
      }
    }
    if (hasExtent) {
      checkExtent(member, values.size(), wanted);
    }
    return values;
  }

private:
  /// Null where there is none. A reference: copies of what is deeply nested would call themselves as deeply.
  static nlohmann::json const& partOf(nlohmann::json const& node, char const* name) {
    static nlohmann::json const none;
    auto const part = node.find(name);
    return part == node.end() ? none : *part;
  }

  void checkExtent(Member const& member, std::size_t count, cv::Size const& wanted) const {
    auto const extentOf = [&](char const* name) {
      return number({partOf(member.node, name), member.name + "." + name});
    };
    double const rows = extentOf("rows");
    double const cols = extentOf("cols");
    bool const isWanted =
        wanted.empty() ? rows == 1 || cols == 1 : rows == wanted.height && cols == wanted.width;
    if (!isWanted || rows * cols != static_cast<double>(count)) {
      std::string const extent =
          std::to_string(std::lround(rows)) + " x " + std::to_string(std::lround(cols));
      throw refusal(member.name, "is " + extent + " with " + std::to_string(count) + " numbers, not " +
                                     (wanted.empty() ? "one row or column" : "3 x 3"));
    }
  }

  std::string path_;
  nlohmann::json members_;
};

cv::Mat cameraMatrixOf(CameraFile const& file) {
  Member const member = file.require(
      {"camera_matrix", "Camera_Matrix", "cameraMatrix", "CameraMatrix", "intrinsic_matrix", "K"});
  std::vector<double> const values = file.numbers(member, {3, 3});
  if (values.size() != 9) {
    throw file.refusal(member.name, "holds " + std::to_string(values.size()) + " numbers, not 9");
  }
  cv::Matx33d const K(values.data());
  constexpr double least = 1e-3; // pixels
  constexpr double most = 1e9;
  for (int axis = 0; axis < 2; ++axis) {
    if (!(K(axis, axis) >= least && K(axis, axis) <= most)) {
      throw file.refusal(member.name, "has a focal length of " + std::to_string(K(axis, axis)) +
                                          " pixels; it must lie between 0.001 and 1e9");
    }
  }
  constexpr double rounding = 1e-9;
  if (std::abs(K(0, 1)) > rounding) {
    throw file.refusal(member.name, "has a skew of " + std::to_string(K(0, 1)) + ", which the model has not");
  }
  if (cv::norm(K - cv::Matx33d(K(0, 0), K(0, 1), K(0, 2), 0, K(1, 1), K(1, 2), 0, 0, 1)) > rounding) {
    throw file.refusal(member.name, "is no camera matrix: its zeros and its one must be so");
  }
  return cv::Mat(K, true);
}

cv::Mat coefficientsOf(CameraFile const& file) {
  Member const member = file.require(
      {"distortion_coefficients", "Distortion_Coefficients", "distCoeffs", "DistCoeffs", "dist_coeffs", "D"});
  std::vector<double> const values = file.numbers(member, {});
  std::vector<std::size_t> const counts{4, 5, 8, 12, 14};
  if (std::find(counts.begin(), counts.end(), values.size()) == counts.end()) {
    throw file.refusal(member.name,
                       "holds " + std::to_string(values.size()) + " numbers, not 4, 5, 8, 12 or 14");
  }
  return cv::Mat(values, true).t();
}

/// @throws Exception for another model than OpenCV's pinhole camera
void checkKind(CameraFile const& file) {
  if (auto const fisheye = file.find({"fisheye_model", "Fisheye_Model"});
      fisheye && file.number(*fisheye) != 0) {
    throw file.refusal(fisheye->name,
                       "is set: the camera is of another model than a pinhole with distortion");
  }
  if (auto const model = file.find({"distortion_model"})) {
    std::string const name = model->node.is_string() ? model->node.get<std::string>() : std::string();
    if (name != "plumb_bob" && name != "rational_polynomial") {
      throw file.refusal(model->name, "is \"" + name + "\", not plumb_bob or rational_polynomial");
    }
  }
}

cv::Size resolutionOf(CameraFile const& file) {
  auto const extent = [&](Member const& member) {
    double const value = file.number(member);
    constexpr double most = 65536;
    if (!(value >= 1 && value <= most) || value != std::floor(value)) {
      throw file.refusal(member.name, "must be a whole number of pixels, 1 to 65536");
    }
    return static_cast<int>(value);
  };
  std::vector<std::pair<char const*, char const*>> const pairs{
      {"image_width", "image_height"}, {"image_Width", "image_Height"}, {"width", "height"}};
  for (auto const& [width, height] : pairs) {
    if (auto const found = file.find({width})) {
      return {extent(*found), extent(file.require({height}))};
    }
  }
  auto const list = file.find({"image_size", "imageSize", "Image_Size", "resolution"});
  if (!list) {
    return {};
  }
  if (!list->node.is_array() || list->node.size() != 2) {
    throw file.refusal(list->name, "must be a width and a height");
  }
  return {extent({list->node[0], list->name + "[0]"}), extent({list->node[1], list->name + "[1]"})};
}

double errorOf(CameraFile const& file) {
  auto const member =
      file.find({"avg_reprojection_error", "Avg_Reprojection_Error", "reprojection_error", "rms"});
  if (!member) {
    return -1;
  }
  double const value = file.number(*member);
  if (value < 0) {
    throw file.refusal(member->name, "must not be negative");
  }
  return value;
}

} // namespace

CameraModel readOpenCvCamera(std::string const& path) {
  CameraFile const file(path);
  checkKind(file);
  return cameraModelOf(cameraMatrixOf(file), coefficientsOf(file), resolutionOf(file), errorOf(file));
}

} // namespace vorn::mv
