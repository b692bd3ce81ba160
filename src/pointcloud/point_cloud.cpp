// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/pointcloud/point_cloud.hpp>

#include <algorithm>
#include <array>
#include <atomic>
#include <limits>
#include <sstream>
#include <utility>

#include <vorn/core/system.hpp>
#include <vorn/core/timer.hpp>
#include <vorn/graphic/graphic_object.hpp>
#include <vorn/mv/core/library.hpp>

#include "core/error.hpp"
#include "core/parallel.hpp"
#include "core/pieces.hpp"
#include "pointcloud/point_access.hpp"
#include "pointcloud/rigid_motion.hpp"
#include "pointcloud/texture_colors.hpp"

namespace vorn::mv {

struct PointCloud::Revision {
  std::atomic<std::size_t> number{0};
};

namespace {

/// Points a row of a cloud that is made from a list.
constexpr int listColumns = 64;

/// The first rows x 64 elements of a list, converted one by one, as a matrix.
template <class To, class From, class Convert>
cv::Mat_<To> gridOf(std::vector<From> const& list, int rows, Convert const& convert) {
  cv::Mat_<To> grid(rows, listColumns);
  std::size_t next = 0;
  for (To& cell : grid) {
    cell = convert(list[next++]);
  }
  return grid;
}

template <class T>
cv::Mat_<T> copyOf(cv::Mat_<T> const& matrix, Progress const& progress) {
  constexpr std::size_t bytesAtOnce = std::size_t{1} << 23; // some milliseconds
  cv::Mat_<T> copy(matrix.size());
  auto const rows = static_cast<std::size_t>(matrix.rows);
  std::size_t const rowBytes = std::max<std::size_t>(1, sizeof(T) * static_cast<std::size_t>(matrix.cols));
  inPieces(rows, bytesAtOnce / rowBytes, progress, "copying points", [&](std::size_t first, std::size_t end) {
    cv::Range const band(static_cast<int>(first), static_cast<int>(end));
    matrix.rowRange(band).copyTo(copy.rowRange(band));
  });
  return copy;
}

/// The values of the present points, row by row.
std::vector<float> presentValues(cv::Mat_<float> const& values, cv::Mat_<uchar> const& state,
                                 std::size_t count) {
  std::vector<float> present;
  present.reserve(count);
  for (int row = 0; row < values.rows; ++row) {
    for (int column = 0; column < values.cols; ++column) {
      if (state(row, column) == 0) {
        present.push_back(values(row, column));
      }
    }
  }
  return present;
}

bool isSameMatrix(cv::Mat const& a, cv::Mat const& b) {
  return a.data == b.data && a.size() == b.size() && a.step[0] == b.step[0];
}

} // namespace

PointCloud::PointCloud() : revision_(std::make_shared<Revision>()) {
  calcBoundingBox();
}

PointCloud::PointCloud(cv::Mat_<cv::Vec3f> const& points, bool organized, cv::Mat_<cv::Vec3f> const& normals,
                       cv::Mat_<cv::Vec3b> const& colors)
    : points_(points), normals_(normals), texture_(colors), organized_(organized),
      revision_(std::make_shared<Revision>()) {
  resetState();
  calcBoundingBox();
}

PointCloud::PointCloud(graphic::GraphicObject const& object)
    : revision_(std::make_shared<Revision>()), offset_(object.offset()) {
  std::size_t const count = object.vertices().size();
  if (object.hasNormals() && object.normals().size() != count) {
    throw error("The object has not as many normals as vertices", "PointCloud");
  }
  if (object.hasColors() && object.colors().size() != count) {
    throw error("The object has not as many colours as vertices", "PointCloud");
  }
  for (auto const& [name, values] : object.fields()) {
    if (values.size() != count) {
      throw error("The object has not as many values of " + name + " as vertices", "PointCloud");
    }
  }
  auto const rows = static_cast<int>(count / listColumns);
  if (rows > 0) {
    auto const same = [](cv::Vec3f const& vector) { return vector; };
    points_ = gridOf<cv::Vec3f>(object.vertices(), rows, same);
    if (object.hasNormals()) {
      normals_ = gridOf<cv::Vec3f>(object.normals(), rows, same);
    }
    if (object.hasColors()) {
      texture_ = gridOf<cv::Vec3b>(object.colors(), rows, textureFromColor);
    }
    for (auto const& [name, values] : object.fields()) {
      fields_[name] = gridOf<float>(values, rows, [](float value) { return value; });
    }
  }
  resetState();
  calcBoundingBox();
}

PointCloud::PointCloud(PointCloud const& other)
    : points_(other.points_), normals_(other.normals_), texture_(other.texture_), state_(other.state_),
      organized_(other.organized_), boxOrigin_(other.boxOrigin_), boxDims_(other.boxDims_),
      defaultColor_(other.defaultColor_), transform_(other.transform_), continuous_(other.continuous_),
      auxMask_(other.auxMask_), fields_(other.fields_), revision_(other.revision_), offset_(other.offset_) {}

PointCloud::PointCloud(PointCloud&& other) noexcept = default;

PointCloud& PointCloud::operator=(PointCloud const& other) {
  *this = PointCloud(other);
  return *this;
}

PointCloud& PointCloud::operator=(PointCloud&& other) noexcept = default;

PointCloud::~PointCloud() = default;

PointCloud PointCloud::clone() const {
  return clone(nullptr);
}

PointCloud PointCloud::clone(Observer* observer) const {
  Progress const progress(observer);
  PointCloud copy(*this);
  copy.points_ = copyOf(points_, progress.part(0.0, 0.4));
  copy.normals_ = copyOf(normals_, progress.part(0.4, 0.8));
  copy.texture_ = copyOf(texture_, progress.part(0.8, 0.9));
  copy.state_ = copyOf(state_, progress.part(0.9, 1.0));
  copy.auxMask_ = copyOf(auxMask_, progress.part(1.0, 1.0));
  for (auto& [name, values] : copy.fields_) {
    values = copyOf(values, progress.part(1.0, 1.0));
  }
  copy.revision_ = std::make_shared<Revision>();
  return copy;
}

void PointCloud::markChanged() {
  if (revision_ == nullptr) {
    revision_ = std::make_shared<Revision>();
  }
  ++revision_->number;
}

void PointCloud::checkSizes() const {
  // A matrix of rows without columns, or the reverse, has no states either.
  if (isEmpty() ? !state_.empty() : state_.size() != points_.size()) {
    throw error("States and points differ in size; call resetState after replacing the points", "PointCloud");
  }
  if (hasNormals() && normals_.size() != points_.size()) {
    throw error("Normals have another size than the points", "PointCloud");
  }
  if (hasTexture() && texture_.size() != points_.size()) {
    throw error("Colours have another size than the points", "PointCloud");
  }
  for (auto const& [name, values] : fields_) {
    if (values.size() != points_.size()) {
      throw error("The field " + name + " has another size than the points", "PointCloud");
    }
  }
}

cv::Mat_<cv::Vec3f>& PointCloud::points() {
  markChanged();
  return points_;
}

std::size_t PointCloud::presentCount() const {
  return state_.empty() ? 0 : state_.total() - static_cast<std::size_t>(cv::countNonZero(state_));
}

GridOctree const& PointCloud::octree() {
  return octree(nullptr);
}

GridOctree const& PointCloud::octree(Observer* observer) {
  std::size_t const revision = revision_ == nullptr ? 0 : revision_->number.load();
  if (octree_ == nullptr || octreeRevision_ != revision || !isSameMatrix(octreePoints_, points_)) {
    Timer timer;
    if (octree_ == nullptr) {
      octree_ = std::make_unique<GridOctree>();
    }
    // Built anew in its place: references to the tree stay good.
    octree_->clear();
    octreePoints_.release();
    octree_->init(points_, GridOctree::Param(32, false, 0.0F), observer);
    octreePoints_ = points_;
    octreeRevision_ = revision;
    if (Library::getEnableDebug()) {
      std::ostringstream message;
      message << "Octree time: " << timer << "\n";
      System::log(message.str());
    }
  }
  return *octree_;
}

cv::Point3f PointCloud::center() const {
  return {boxOrigin_.x + boxDims_[0] / 2.0F, boxOrigin_.y + boxDims_[1] / 2.0F,
          boxOrigin_.z + boxDims_[2] / 2.0F};
}

void PointCloud::calcBoundingBox() {
  constexpr float huge = std::numeric_limits<float>::max();
  std::array<float, 3> low{huge, huge, huge};
  std::array<float, 3> high{-huge, -huge, -huge};
  checkSizes();
  for (int row = 0; row < points_.rows; ++row) {
    cv::Vec3f const* point = points_[row];
    uchar const* const state = state_[row];
    for (int column = 0; column < points_.cols; ++column, ++point) {
      if (state[column] == 0 && isFinite(point->val)) {
        for (int axis = 0; axis < 3; ++axis) {
          float const value = point->val[axis];
          auto const at = static_cast<std::size_t>(axis);
          low[at] = low[at] >= value ? value : low[at];
          high[at] = value >= high[at] ? value : high[at];
        }
      }
    }
  }
  boxOrigin_ = {low[0], low[1], low[2]};
  boxDims_ = {high[0] - low[0], high[1] - low[1], high[2] - low[2]};
}

void PointCloud::applyTransform() {
  checkSizes();
  // The identity is not multiplied: zeros times infinity are no numbers.
  if (!isEmpty() && transform_ != cv::Matx44d::eye()) {
    markChanged();
    RigidMotion const motion(transform_);
    parallelRows(points_.rows, [&](int firstRow, int endRow) {
      for (int row = firstRow; row < endRow; ++row) {
        uchar const* const state = state_[row];
        cv::Vec3f* const points = points_[row];
        cv::Vec3f* const normals = hasNormals() ? normals_[row] : nullptr;
        for (int column = 0; column < points_.cols; ++column) {
          if (state[column] == 0) {
            points[column] = motion.move(points[column]);
            if (normals != nullptr) {
              normals[column] = motion.turn(normals[column]);
            }
          }
        }
      }
    });
  }
  calcBoundingBox();
  transform_ = cv::Matx44d::eye();
}

graphic::GraphicObject PointCloud::getGraphicObject(bool applyTransform) const {
  checkSizes();
  graphic::GraphicObject object;
  std::size_t const count = presentCount();
  object.vertices().reserve(count);
  object.normals().reserve(hasNormals() ? count : 0);
  object.colors().reserve(hasTexture() ? count : 0);
  bool const isMoved = applyTransform && transform_ != cv::Matx44d::eye();
  RigidMotion const motion(transform_);
  for (int row = 0; row < points_.rows; ++row) {
    for (int column = 0; column < points_.cols; ++column) {
      if (state_(row, column) != 0) {
        continue;
      }
      cv::Vec3f const& point = points_(row, column);
      object.vertices().push_back(isMoved ? motion.move(point) : point);
      if (hasNormals()) {
        cv::Vec3f const& normal = normals_(row, column);
        object.normals().push_back(isMoved ? motion.turn(normal) : normal);
      }
      if (hasTexture()) {
        object.colors().push_back(colorFromTexture(texture_(row, column)));
      }
    }
  }
  for (auto const& [name, values] : fields_) {
    object.fields()[name] = presentValues(values, state_, count);
  }
  object.offset() = offset_;
  return object;
}

void PointCloud::resetState() {
  if (!points_.empty()) {
    state_ = cv::Mat_<uchar>(points_.size(), uchar{0});
  }
}

void PointCloud::saveState() {
  for (int row = 0; row < state_.rows; ++row) {
    uchar* const state = state_[row];
    int const columns = state_.cols;
    for (int column = 0; column < columns; ++column) {
      // Wraps 0 to 255, so that one comparison picks 1 .. 253.
      auto const below = static_cast<uchar>(state[column] - 1);
      state[column] = static_cast<uchar>(state[column] + (below < 253 ? 1 : 0));
    }
  }
}

void PointCloud::undoState() {
  for (int row = 0; row < state_.rows; ++row) {
    uchar* const state = state_[row];
    int const columns = state_.cols;
    for (int column = 0; column < columns; ++column) {
      auto const below = static_cast<uchar>(state[column] - 1);
      state[column] = static_cast<uchar>(state[column] - (below < 254 ? 1 : 0));
    }
  }
}

} // namespace vorn::mv
