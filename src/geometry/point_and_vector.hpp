// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cfloat>
#include <string>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/mv/core/matrix_json.hpp>

#include "core/error.hpp"
#include "core/json_member.hpp"

/// What lines and planes have in common: they are a point and a unit vector.
namespace vorn::mv {

/// The vector made unit; one of no length gets non-finite components.
template <int n>
cv::Vec<float, n> unit(cv::Vec<float, n> const& v) {
  return v * (1.0 / cv::norm(v));
}

/// Whether a vector is too short to have a direction.
template <int n>
bool isZero(cv::Vec<float, n> const& v) {
  return cv::norm(v) < FLT_EPSILON;
}

template <class Point, class Vector>
void writePair(nlohmann::json& json, Point const& point, char const* vectorKey, Vector const& vector) {
  json = {{"p", point}, {vectorKey, vector}};
}

template <class Point, class Vector>
void readPair(nlohmann::json const& json, Point& point, char const* vectorKey, Vector& vector,
              char const* context) {
  auto const newPoint = jsonValue<Point>(json, "p", context);
  readJson(json, vectorKey, vector, context);
  point = newPoint;
}

template <class Point, class Vector>
void writePair(cv::FileStorage& storage, std::string const& name, Point const& point, char const* vectorKey,
               Vector const& vector) {
  cv::internal::WriteStructContext mapping(storage, name, cv::FileNode::MAP);
  cv::write(storage, "p", point);
  cv::write(storage, vectorKey, vector);
}

/// Reads a point or vector; false where there is no list of as many numbers, which OpenCV takes for zeros.
template <class T>
bool readCoordinates(cv::FileNode const& list, T& coordinates) {
  if (!list.isSeq() || list.size() != cv::DataType<T>::channels) {
    return false;
  }
  for (cv::FileNode const& number : list) {
    if (!number.isReal() && !number.isInt()) {
      return false;
    }
  }
  list >> coordinates;
  return true;
}

template <class Point, class Vector>
void readPair(cv::FileNode const& node, Point& point, char const* vectorKey, Vector& vector,
              char const* context) {
  Point newPoint;
  Vector newVector;
  if (!node.isMap() || !readCoordinates(node["p"], newPoint) ||
      !readCoordinates(node[vectorKey], newVector)) {
    throw error("Expected a mapping with \"p\" and \"" + std::string(vectorKey) + "\", each " +
                    std::to_string(cv::DataType<Point>::channels) + " numbers",
                context);
  }
  point = newPoint;
  vector = newVector;
}

/// Reads a value of a class with `read`, or takes the fallback when there is nothing to read.
template <class T>
void readOr(cv::FileNode const& node, T& value, T const& fallback) {
  if (node.empty()) {
    value = fallback;
  } else {
    value.read(node);
  }
}

} // namespace vorn::mv
