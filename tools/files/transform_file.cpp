// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/transform_file.hpp"

#include <cmath>

#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/core/matrix_json.hpp>

#include "tools/files/json_file.hpp"
#include "tools/report/printed.hpp"

namespace vorn::tools {

namespace {

cv::Matx44d shiftBy(cv::Vec3d const& shift) {
  cv::Matx44d motion = cv::Matx44d::eye();
  for (int i = 0; i < 3; ++i) {
    motion(i, 3) = shift[i];
  }
  return motion;
}

nlohmann::json listOf(cv::Vec3d const& vector) {
  return {vector[0], vector[1], vector[2]};
}

char const* nameOf(mv::RegistrationStop stop) {
  switch (stop) {
  case mv::RegistrationStop::Converged:
    return "converged";
  case mv::RegistrationStop::IterationLimit:
    return "iterationLimit";
  case mv::RegistrationStop::NoOverlap:
    break;
  }
  return "noOverlap";
}

std::string textOf(cv::Vec3d const& vector) {
  return printed("(%.3g, %.3g, %.3g)", vector[0], vector[1], vector[2]);
}

bool isRigid(cv::Matx44d const& motion) {
  constexpr double tolerance = 1e-6;
  cv::Matx33d const rotation = motion.get_minor<3, 3>(0, 0);
  cv::Matx33d const rest = rotation * rotation.t() - cv::Matx33d::eye();
  cv::Vec4d const last(motion(3, 0), motion(3, 1), motion(3, 2), motion(3, 3) - 1.0);
  return cv::norm(rest, cv::NORM_INF) < tolerance && cv::determinant(rotation) > 0.0 &&
         cv::norm(last) == 0.0 && cv::checkRange(cv::Mat(motion));
}

} // namespace

cv::Matx44d betweenFiles(cv::Matx44d const& target_from_source, cv::Vec3d const& sourceOffset,
                         cv::Vec3d const& targetOffset) {
  return shiftBy(targetOffset) * target_from_source * shiftBy(-sourceOffset);
}

cv::Matx44d betweenClouds(cv::Matx44d const& target_from_source, cv::Vec3d const& sourceOffset,
                          cv::Vec3d const& targetOffset) {
  return shiftBy(-targetOffset) * target_from_source * shiftBy(sourceOffset);
}

nlohmann::json transformJson(mv::Registration const& found, cv::Vec3d const& sourceOffset,
                             cv::Vec3d const& targetOffset) {
  nlohmann::json motions = nlohmann::json::array();
  for (mv::FreeMotion const& motion : found.freeMotions) {
    bool const isTurn = motion.kind == mv::FreeMotion::Kind::Rotation;
    motions.push_back({{"kind", isTurn ? "rotation" : "translation"},
                       {"axis", listOf(motion.axis)},
                       {"point", listOf(motion.point + targetOffset)},
                       {"words", wordsOf(motion)}});
  }
  nlohmann::json doubts = nlohmann::json::array();
  for (mv::RegistrationDoubt const doubt : found.doubts) {
    doubts.push_back(doubt == mv::RegistrationDoubt::Rough ? "rough" : "inTheWay");
  }
  nlohmann::json json = {{"stop", nameOf(found.stop)},
                         {"iterations", found.iterations},
                         {"rms", found.rms},
                         {"sigma", found.sigma},
                         {"overlap", found.overlap},
                         {"matches", found.matches},
                         {"pivot", listOf(found.pivot + targetOffset)},
                         {"resolution", found.resolution},
                         {"noise", found.noise},
                         {"conflict", found.conflict},
                         {"doubts", doubts},
                         {"freeShape", found.freeShape()},
                         {"freeMotions", motions}};
  json["targetFromSource"] = cv::Mat(betweenFiles(found.targetFromSource, sourceOffset, targetOffset));
  json["covariance"] = cv::Mat(found.covariance);
  return json;
}

cv::Matx44d readTransform(std::string const& path) {
  nlohmann::json const json = readJsonFile(path);
  cv::Mat matrix;
  try {
    json.at("targetFromSource").get_to(matrix);
  } catch (std::exception const& e) {
    throw Exception(path + " has no motion \"targetFromSource\": " + e.what(), nullptr, 0, "align");
  }
  if (matrix.size() != cv::Size(4, 4) || matrix.channels() != 1) {
    throw Exception(path + ": \"targetFromSource\" is no matrix of four rows and columns", nullptr, 0,
                    "align");
  }
  matrix.convertTo(matrix, CV_64F);
  cv::Matx44d const motion(matrix.ptr<double>());
  if (!isRigid(motion)) {
    throw Exception(path + ": \"targetFromSource\" is no rigid motion", nullptr, 0, "align");
  }
  return motion;
}

std::string wordsOf(mv::FreeMotion const& motion) {
  if (motion.kind == mv::FreeMotion::Kind::Translation) {
    return "slide along " + textOf(motion.axis);
  }
  return "turn about the axis through " + textOf(motion.point) + " along " + textOf(motion.axis);
}

std::string doubtsInWords(mv::Registration const& found) {
  std::string text;
  for (mv::RegistrationDoubt const doubt : found.doubts) {
    constexpr double percent = 100.0;
    text += text.empty() ? "the motion found is doubtful: " : "; ";
    text += doubt == mv::RegistrationDoubt::Rough
                ? printed("the clouds are %.3g off each other, where by themselves they scatter by %.3g",
                          found.sigma, found.noise)
                : printed("%.0f %% of the points of one lie before the surface that the other's sensor saw "
                          "there: the place is wrong, or something moved between the views",
                          percent * found.conflict);
  }
  return text;
}

std::string freeMotionsInWords(mv::Registration const& found) {
  std::string text;
  for (mv::FreeMotion const& motion : found.freeMotions) {
    text += (text.empty() ? "" : ", ") + wordsOf(motion);
  }
  if (text.empty()) {
    return text;
  }
  std::string const shape = found.freeShape();
  std::string const like =
      shape == "point" ? "" : ", as " + std::string(shape == "extrusion" ? "an " : "a ") + shape + " does";
  return "the shapes do not hold the motion: the source may " + text + like;
}

} // namespace vorn::tools
