// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

#include <nlohmann/json_fwd.hpp>

#include <vorn/core/export.hpp>

/// JSON of OpenCV's matrices and small values, found by argument-dependent lookup: `json["K"] = K;` and
/// `json.at("K").get_to(K);` work for every type below and for vectors of them.
///
/// Numbers keep every bit: a float is stored as the double of the same value. JSON text knows no NaN and no
/// infinity: both are written as `null`, and `null` is read as NaN where the element is a float or a double.
namespace cv {

/// Writes a matrix as an object with "rows", "cols", "dt" (the element type, such as "d", "3f" or "w") and
/// "data": a flat list of exactly rows x cols numbers, the first cols scalars of each row.
///
/// A matrix of two or three channels thus keeps only the first cols scalars of each row; use one channel to
/// store a matrix whole. In text, NaN and the infinities are null, which is read as NaN.
/// @param m two-dimensional, 16 or 32-bit integers, floats or doubles, at most three channels
/// @throws vorn::Exception "Not implemented" for 8-bit elements; "Unsupported type" for half floats, four or
///         more channels and more than two dimensions; `j` is as it was then
VORN_API void to_json(nlohmann::json& j, Mat const& m);

/// Reads what `to_json` wrote. A matrix that already has the size and type keeps its buffer, and with it the
/// scalars that the document does not hold; in a new buffer those are zero.
/// @throws vorn::Exception "Unsupported type" for an unknown "dt"; "Not implemented" for 8-bit elements, once
///         `m` is allocated; "Corrupted matrix data." when "data" does not hold rows x cols numbers, when one
///         of them does not fit the element type, or when a dimension is negative or absurdly large
/// @throws nlohmann::json::exception when a member is missing or not of its kind
VORN_API void from_json(nlohmann::json const& j, Mat& m);

} // namespace cv

namespace vorn::mv::detail {

/// Writes `count` numbers as an array. Instances: uchar, int, float, double.
template <class T>
void writeNumbers(nlohmann::json& j, T const* values, int count);

/// Reads an array of exactly `count` numbers; `values` is untouched when it throws.
/// @throws vorn::Exception when `j` is no array of that length
template <class T>
void readNumbers(nlohmann::json const& j, T* values, int count);

/// Reads a matrix object into `m`, converting to its element type.
/// @throws vorn::Exception when the document holds a matrix of another size
VORN_API void readFixedSize(nlohmann::json const& j, cv::Mat& m);

// NOLINTBEGIN(bugprone-macro-parentheses): T is a type
#define VORN_MV_NUMBERS(T)                                                                                   \
  extern template VORN_API void writeNumbers<T>(nlohmann::json&, T const*, int);                             \
  extern template VORN_API void readNumbers<T>(nlohmann::json const&, T*, int);
VORN_MV_NUMBERS(uchar)
VORN_MV_NUMBERS(int)
VORN_MV_NUMBERS(float)
VORN_MV_NUMBERS(double)
#undef VORN_MV_NUMBERS
// NOLINTEND(bugprone-macro-parentheses)

} // namespace vorn::mv::detail

namespace cv {

/// A point as `[x, y]`.
template <class T>
void to_json(nlohmann::json& j, Point_<T> const& p) {
  T const values[] = {p.x, p.y};
  vorn::mv::detail::writeNumbers(j, values, 2);
}

/// Reads `[x, y]`.
template <class T>
void from_json(nlohmann::json const& j, Point_<T>& p) {
  T values[2];
  vorn::mv::detail::readNumbers(j, values, 2);
  p = Point_<T>(values[0], values[1]);
}

/// A point in space as `[x, y, z]`.
template <class T>
void to_json(nlohmann::json& j, Point3_<T> const& p) {
  T const values[] = {p.x, p.y, p.z};
  vorn::mv::detail::writeNumbers(j, values, 3);
}

/// Reads `[x, y, z]`.
template <class T>
void from_json(nlohmann::json const& j, Point3_<T>& p) {
  T values[3];
  vorn::mv::detail::readNumbers(j, values, 3);
  p = Point3_<T>(values[0], values[1], values[2]);
}

/// A size as `[width, height]`.
template <class T>
void to_json(nlohmann::json& j, Size_<T> const& size) {
  T const values[] = {size.width, size.height};
  vorn::mv::detail::writeNumbers(j, values, 2);
}

/// Reads `[width, height]`.
template <class T>
void from_json(nlohmann::json const& j, Size_<T>& size) {
  T values[2];
  vorn::mv::detail::readNumbers(j, values, 2);
  size = Size_<T>(values[0], values[1]);
}

/// A vector as the array of its elements.
template <class T, int n>
void to_json(nlohmann::json& j, Vec<T, n> const& v) {
  vorn::mv::detail::writeNumbers(j, v.val, n);
}

/// Reads an array of n numbers.
template <class T, int n>
void from_json(nlohmann::json const& j, Vec<T, n>& v) {
  vorn::mv::detail::readNumbers(j, v.val, n);
}

/// A matrix of fixed size as the matrix object.
template <class T, int m, int n>
void to_json(nlohmann::json& j, Matx<T, m, n> const& matrix) {
  to_json(j, Mat(matrix, false));
}

/// Reads a matrix object of that size, whatever its element type.
template <class T, int m, int n>
void from_json(nlohmann::json const& j, Matx<T, m, n>& matrix) {
  Matx<T, m, n> values;
  Mat header(values, false);
  vorn::mv::detail::readFixedSize(j, header);
  matrix = values;
}

/// A typed matrix as the matrix object too: by itself the JSON library would take it for a list.
template <class T>
void to_json(nlohmann::json& j, Mat_<T> const& m) {
  to_json(j, static_cast<Mat const&>(m));
}

/// Reads a matrix object of any element type with the same number of channels, converting to T.
template <class T>
void from_json(nlohmann::json const& j, Mat_<T>& m) {
  Mat values = m;
  from_json(j, values);
  m = values;
}

} // namespace cv
