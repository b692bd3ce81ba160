// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/core/matrix_json.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/error.hpp"

namespace {

using nlohmann::json;

/// The letters of the element depths, at the index of OpenCV's depth code (CV_8U is 0 ... CV_64F is 6).
constexpr char const* depthLetters = "ucwsifd";
constexpr int depthCount = 7;
constexpr int maxChannels = 3;

/// A matrix up to this size may be allocated before its data were seen: enough for any camera matrix, too
/// little for a forged header to hurt.
constexpr double harmlessCells = 1 << 20;

/// The code of an element type, or empty where it has none.
std::string typeCode(int type) {
  int const depth = CV_MAT_DEPTH(type);
  int const channels = CV_MAT_CN(type);
  if (depth >= depthCount || channels > maxChannels) {
    return {};
  }
  std::string const letter(1, depthLetters[depth]);
  return channels == 1 ? letter : std::to_string(channels) + letter;
}

/// The element type of a code.
int codedType(std::string const& code) {
  for (int depth = 0; depth < depthCount; ++depth) {
    for (int channels = 1; channels <= maxChannels; ++channels) {
      int const type = CV_MAKETYPE(depth, channels);
      if (code == typeCode(type)) {
        return type;
      }
    }
  }
  throw vorn::error("Unsupported type", "from_json");
}

/// Calls `action` with a value of the element type of a depth that JSON can hold.
template <class Action>
void forDepth(int depth, char const* context, Action const& action) {
  switch (depth) {
  case CV_8U:
  case CV_8S:
    throw vorn::error("Not implemented", context);
  case CV_16U:
    return action(std::uint16_t{});
  case CV_16S:
    return action(std::int16_t{});
  case CV_32S:
    return action(std::int32_t{});
  case CV_32F:
    return action(float{});
  case CV_64F:
    return action(double{});
  default:
    throw vorn::error("Unsupported type", context);
  }
}

/// One number of the element type; a null is a NaN where the type has one.
template <class T>
T readNumber(json const& value) {
  if constexpr (std::numeric_limits<T>::has_quiet_NaN) {
    return value.is_null() ? std::numeric_limits<T>::quiet_NaN() : value.get<T>();
  } else {
    auto const number = value.get<double>();
    if (!(number >= std::numeric_limits<T>::min() && number <= std::numeric_limits<T>::max())) {
      throw vorn::error("Corrupted matrix data.", "read_");
    }
    return static_cast<T>(number);
  }
}

int readDimension(json const& j, char const* key) {
  auto const value = j.at(key).get<double>();
  if (!(value >= 0 && value <= std::numeric_limits<int>::max())) {
    throw vorn::error("Corrupted matrix data.", "read_");
  }
  return static_cast<int>(value);
}

} // namespace

namespace cv {

void to_json(json& j, Mat const& m) {
  // The JSON library calls this within a constructor, where what is written before an exception would leak.
  json written = json::object();
  written["rows"] = m.rows;
  written["cols"] = m.cols;
  std::string const code = typeCode(m.type());
  if (!code.empty()) {
    written["dt"] = code;
  }
  json& data = written["data"] = json::array();
  if (code.empty() || m.dims > 2) {
    throw vorn::error("Unsupported type", "to_json");
  }
  forDepth(m.depth(), "to_json", [&](auto zero) {
    using T = decltype(zero);
    data.get_ref<json::array_t&>().reserve(static_cast<std::size_t>(m.rows) *
                                           static_cast<std::size_t>(m.cols));
    for (int row = 0; row < m.rows; ++row) {
      T const* scalars = m.ptr<T>(row);
      for (int i = 0; i < m.cols; ++i) {
        data.push_back(scalars[i]);
      }
    }
  });
  j = std::move(written);
}

void from_json(json const& j, Mat& m) {
  int const rows = readDimension(j, "rows");
  int const cols = readDimension(j, "cols");
  int const type = codedType(j.at("dt").get<std::string>());
  auto const data = j.find("data");
  double const cells = static_cast<double>(rows) * cols;
  bool const complete = data != j.end() && data->is_array() && static_cast<double>(data->size()) == cells;

  if (complete || cells <= harmlessCells) {
    bool const fits =
        m.dims == 2 && m.rows == rows && m.cols == cols && m.type() == type && m.data != nullptr;
    if (!fits) {
      m = Mat::zeros(rows, cols, type);
    }
  }
  forDepth(CV_MAT_DEPTH(type), "from_json", [&](auto zero) {
    using T = decltype(zero);
    auto const& values = j.at("data").get_ref<json::array_t const&>();
    if (!complete) {
      throw vorn::error("Corrupted matrix data.", "read_");
    }
    std::vector<T> numbers(values.size());
    std::transform(values.begin(), values.end(), numbers.begin(), readNumber<T>);
    for (int row = 0; row < rows; ++row) {
      T const* first = numbers.data() + static_cast<std::size_t>(row) * static_cast<std::size_t>(cols);
      std::copy_n(first, cols, m.ptr<T>(row));
    }
  });
}

} // namespace cv

namespace vorn::mv::detail {

template <class T>
void writeNumbers(json& j, T const* values, int count) {
  j = json::array();
  for (int i = 0; i < count; ++i) {
    j.push_back(values[i]);
  }
}

template <class T>
void readNumbers(json const& j, T* values, int count) {
  if (!j.is_array() || j.size() != static_cast<std::size_t>(count)) {
    throw vorn::error("Expected a list of " + std::to_string(count) + " numbers", "from_json");
  }
  std::vector<T> numbers(j.size());
  std::transform(j.begin(), j.end(), numbers.begin(), readNumber<T>);
  std::copy(numbers.begin(), numbers.end(), values);
}

void readFixedSize(json const& j, cv::Mat& m) {
  cv::Mat values;
  cv::from_json(j, values);
  if (values.size() != m.size() || values.channels() != m.channels()) {
    throw vorn::error("Expected a matrix of " + std::to_string(m.rows) + " x " + std::to_string(m.cols) +
                          ", not " + std::to_string(values.rows) + " x " + std::to_string(values.cols),
                      "from_json");
  }
  values.convertTo(m, m.type());
}

template void writeNumbers(json&, uchar const*, int);
template void writeNumbers(json&, int const*, int);
template void writeNumbers(json&, float const*, int);
template void writeNumbers(json&, double const*, int);
template void readNumbers(json const&, uchar*, int);
template void readNumbers(json const&, int*, int);
template void readNumbers(json const&, float*, int);
template void readNumbers(json const&, double*, int);

} // namespace vorn::mv::detail
