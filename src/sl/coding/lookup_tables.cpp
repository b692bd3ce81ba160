// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/coding/lookup_tables.hpp"

#include <atomic>
#include <cmath>
#include <stdexcept>

#include <opencv2/core.hpp>

#include <vorn/mv/sl/gray_code.hpp>

#include "mv_core/start_work.hpp"

namespace vorn::mv {

namespace {

constexpr float sqrt3 = 1.7320508F;

/// False while the tables are empty or being built.
std::atomic<bool> areBuilt{false};

/// The angle of (x, y) in [0, 2π).
float positiveAngle(float y, float x) {
  float const angle = std::atan2(y, x);
  return angle < 0.0F ? static_cast<float>(angle + CV_2PI) : angle;
}

float vectorLength(float y, float x) {
  return std::sqrt(x * x + y * y);
}

bool isBuilt(cv::Mat_<float> const& table, int rows) {
  return table.rows == rows && table.cols == lutColumns && table.isContinuous();
}

bool isBuilt(std::vector<unsigned short> const& table) {
  return table.size() == grayLutSize;
}

/// Fills `table` with entry(y, x), where y runs over the rows from -rows/2 up and x over the columns, in
/// steps of `columnScale`.
void buildTable(cv::Mat_<float>& table, int rows, float columnScale, float (*entry)(float y, float x)) {
  if (isBuilt(table, rows)) {
    return;
  }
  cv::Mat_<float> built(rows, lutColumns);
  for (int r = 0; r < rows; ++r) {
    float const y = static_cast<float>(r - rows / 2);
    for (int c = 0; c < lutColumns; ++c) {
      built(r, c) = entry(y, static_cast<float>(c - maxDifference) * columnScale);
    }
  }
  table = built;
}

void buildGrayTables() {
  if (!isBuilt(get_lut_gray2bin())) {
    create_graycode_LUT(get_lut_gray2bin(), grayLutSize);
  }
  std::vector<unsigned short>& bin2gray = get_lut_bin2gray();
  if (!isBuilt(bin2gray)) {
    bin2gray.resize(grayLutSize);
    for (unsigned int i = 0; i < grayLutSize; ++i) {
      bin2gray[i] = static_cast<unsigned short>(bin2Gray(i));
    }
  }
}

/// Keeps decoders off tables that another thread is building.
void awaitTables() {
  if (!areBuilt) {
    detail::awaitStartWork();
  }
}

[[noreturn]] void throwNotBuilt() {
  throw std::logic_error("The decoders' lookup tables are not built: call vorn::mv::Library::init first");
}

} // namespace

cv::Mat_<float>& get_lut_atan2() {
  static cv::Mat_<float> table;
  return table;
}

cv::Mat_<float>& get_lut_mag() {
  static cv::Mat_<float> table;
  return table;
}

cv::Mat_<float>& get_lut_atan2_p3() {
  static cv::Mat_<float> table;
  return table;
}

cv::Mat_<float>& get_lut_mag_p3() {
  static cv::Mat_<float> table;
  return table;
}

std::vector<unsigned short>& get_lut_gray2bin() {
  static std::vector<unsigned short> table;
  return table;
}

std::vector<unsigned short>& get_lut_bin2gray() {
  static std::vector<unsigned short> table;
  return table;
}

namespace {

void buildTables() {
  buildTable(get_lut_atan2(), lutRowsFourSteps, 1.0F, positiveAngle);
  buildTable(get_lut_mag(), lutRowsFourSteps, 1.0F, vectorLength);
  buildTable(get_lut_atan2_p3(), lutRowsThreeSteps, sqrt3, positiveAngle);
  buildTable(get_lut_mag_p3(), lutRowsThreeSteps, sqrt3, vectorLength);
  buildGrayTables();
  areBuilt = true;
}

[[maybe_unused]] bool const isStartWork = detail::addStartWork(buildTables);

} // namespace

float const* requireTable(cv::Mat_<float> const& table, int rows) {
  awaitTables();
  if (!isBuilt(table, rows)) {
    throwNotBuilt();
  }
  return table[0];
}

unsigned short const* requireTable(std::vector<unsigned short> const& table) {
  awaitTables();
  if (!isBuilt(table)) {
    throwNotBuilt();
  }
  return table.data();
}

} // namespace vorn::mv
