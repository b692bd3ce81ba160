// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/transform_file.hpp"

#include <algorithm>
#include <vector>

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

/// What a rotation of few digits stands for: the one nearest to it.
cv::Matx44d rigidMotion(cv::Matx44d motion, std::string const& what) {
  constexpr double fewDigits = 1e-4;
  constexpr double rounding = 1e-9;
  cv::Matx33d const rotation = motion.get_minor<3, 3>(0, 0);
  double const rest = cv::norm(rotation * rotation.t() - cv::Matx33d::eye(), cv::NORM_INF);
  cv::Matx14d const last = motion.row(3) - cv::Matx14d(0, 0, 0, 1);
  bool const isRigid = cv::checkRange(motion) && rest < fewDigits && cv::determinant(rotation) > 0.0 &&
                       cv::norm(last, cv::NORM_INF) < rounding;
  if (!isRigid) {
    bool const endsWrong = cv::checkRange(motion) && !(cv::norm(last, cv::NORM_INF) < rounding);
    throw Exception(what + " is no rigid motion" + (endsWrong ? ": its last row is not 0, 0, 0, 1" : ""),
                    nullptr, 0, "readMotion");
  }
  if (rest > rounding) {
    cv::Matx33d u, vt;
    cv::Vec3d stretches;
    cv::SVD::compute(rotation, stretches, u, vt);
    cv::Matx33d const nearest = u * vt;
    for (int i = 0; i < 9; ++i) {
      motion(i / 3, i % 3) = nearest.val[i];
    }
  }
  return motion;
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

cv::Matx44d motionFrom(nlohmann::json const& json, char const* member, std::string const& path) {
  std::string const what = path + ": \"" + member + "\"";
  if (!json.is_object() || !json.contains(member)) {
    throw Exception(path + " has no motion \"" + member + "\"", nullptr, 0, "readMotion");
  }
  nlohmann::json const& value = json[member];
  cv::Matx44d motion;
  bool isRead = true;
  try {
    if (value.is_array()) {
      auto const rows = value.get<std::vector<std::vector<double>>>();
      isRead = rows.size() == 4 &&
               std::all_of(rows.begin(), rows.end(), [](auto const& row) { return row.size() == 4; });
      for (std::size_t i = 0; isRead && i < 16; ++i) {
        motion.val[i] = rows[i / 4][i % 4];
      }
    } else {
      value.get_to(motion);
    }
  } catch (std::exception const&) {
    isRead = false;
  }
  if (!isRead) {
    throw Exception(what + " is neither a list of four rows of four numbers nor a matrix object of that size",
                    nullptr, 0, "readMotion");
  }
  return rigidMotion(motion, what);
}

cv::Matx44d readTransform(std::string const& path) {
  return motionFrom(readJsonFile(path), "targetFromSource", path);
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
