// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "dictionaries.hpp"

#include <algorithm>
#include <array>
#include <string>
#include <utility>

#include <vorn/core/exception.hpp>
#include <vorn/mv_charuco/charuco.hpp>

#include "board_layout.hpp"

namespace vorn::mv {

namespace {

using cv::aruco::PREDEFINED_DICTIONARY_NAME;

constexpr std::array<std::pair<char const*, PREDEFINED_DICTIONARY_NAME>, 21> names = {{
    {"DICT_4X4_50", cv::aruco::DICT_4X4_50},
    {"DICT_4X4_100", cv::aruco::DICT_4X4_100},
    {"DICT_4X4_250", cv::aruco::DICT_4X4_250},
    {"DICT_4X4_1000", cv::aruco::DICT_4X4_1000},
    {"DICT_5X5_50", cv::aruco::DICT_5X5_50},
    {"DICT_5X5_100", cv::aruco::DICT_5X5_100},
    {"DICT_5X5_250", cv::aruco::DICT_5X5_250},
    {"DICT_5X5_1000", cv::aruco::DICT_5X5_1000},
    {"DICT_6X6_50", cv::aruco::DICT_6X6_50},
    {"DICT_6X6_100", cv::aruco::DICT_6X6_100},
    {"DICT_6X6_250", cv::aruco::DICT_6X6_250},
    {"DICT_6X6_1000", cv::aruco::DICT_6X6_1000},
    {"DICT_7X7_50", cv::aruco::DICT_7X7_50},
    {"DICT_7X7_100", cv::aruco::DICT_7X7_100},
    {"DICT_7X7_250", cv::aruco::DICT_7X7_250},
    {"DICT_7X7_1000", cv::aruco::DICT_7X7_1000},
    {"DICT_ARUCO_ORIGINAL", cv::aruco::DICT_ARUCO_ORIGINAL},
    {"DICT_APRILTAG_16h5", cv::aruco::DICT_APRILTAG_16h5},
    {"DICT_APRILTAG_25h9", cv::aruco::DICT_APRILTAG_25h9},
    {"DICT_APRILTAG_36h10", cv::aruco::DICT_APRILTAG_36h10},
    {"DICT_APRILTAG_36h11", cv::aruco::DICT_APRILTAG_36h11},
}};

} // namespace

std::vector<std::string> charucoDictionaries() {
  std::vector<std::string> list;
  for (auto const& entry : names) {
    list.emplace_back(entry.first);
  }
  return list;
}

cv::Ptr<cv::aruco::Dictionary> dictionaryOf(TargetDescription const& target) {
  auto const* entry =
      std::find_if(names.begin(), names.end(), [&](auto const& e) { return target.dictionary == e.first; });
  if (entry == names.end()) {
    std::string known;
    for (auto const& name : names) {
      known += (known.empty() ? "" : ", ") + std::string(name.first);
    }
    throw Exception("The dictionary of a ChArUco board is \"" + target.dictionary + "\" and must be one of " +
                        known,
                    nullptr, 0, "TargetDescription");
  }
  auto const dictionary = cv::aruco::getPredefinedDictionary(entry->second);
  int const last = target.firstMarker + markerCount(target, UpperLeft::Dark) - 1;
  if (last >= dictionary->bytesList.rows) {
    throw Exception("The board's last marker would be " + std::to_string(last) + ", and " +
                        target.dictionary + " ends at " + std::to_string(dictionary->bytesList.rows - 1),
                    nullptr, 0, "TargetDescription");
  }
  return dictionary;
}

} // namespace vorn::mv
