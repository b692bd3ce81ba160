// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include <vorn/graphic/graphic_object.hpp>

#include "graphic/file_reader.hpp"

namespace vorn::graphic {

/// Finds the offset that places in double precision need to become vertices. There is one only where floats
/// would lose more than a hundred-thousandth of the extent, so that files near zero, single points, and
/// doubles that were floats once keep their coordinates as they are. It has as few digits as keep the
/// vertices within some extents of zero. What counts is where most places lie, of some thousands spread over
/// the file: a stray one, or those at zero that stand for none, lose digits only themselves.
class OffsetFinder {
public:
  /// @param offset what will be taken off the places, as `sayWhatFloatsMerge` needs it
  explicit OffsetFinder(cv::Vec3d const& offset = {}) : taken_(offset) {}
  void add(cv::Vec3d const& place);
  /// Zero where none is needed.
  cv::Vec3d offset() const;
  /// Says it where many places become one vertex with the place before them.
  void sayWhatFloatsMerge() const;

private:
  static constexpr std::size_t mostSamples = 8192;

  cv::Vec3d taken_;
  std::vector<cv::Vec3d> samples_; ///< every `stride_`-th place
  std::size_t stride_ = 1;
  std::size_t count_ = 0;
  cv::Vec3d last_;
  std::size_t mergedCount_ = 0;
  bool hasInexact_ = false; ///< of coordinates that no float is
};

/// Sets the object's vertices, and the offset that they need, from coordinates in double precision.
void setPlaces(GraphicObject& object, std::vector<cv::Vec3d> const& places);

/// Reads a file once with floats, and once more relative to an offset where its places turn out to need one:
/// so ordinary files take no memory for doubles.
/// @tparam Reader made of the file and an offset; `take()` reads, `finder()` has then seen its
///         places, and `finish()` gives the object
template <class Reader>
GraphicObject readNearZero(FileReader& file) {
  cv::Vec3d offset;
  {
    Reader reader(file, offset);
    reader.take();
    offset = reader.finder().offset();
    if (offset == cv::Vec3d()) {
      reader.finder().sayWhatFloatsMerge();
      return reader.finish();
    }
  }
  file.rewind();
  Reader reader(file, offset);
  reader.take();
  reader.finder().sayWhatFloatsMerge();
  GraphicObject object = reader.finish();
  object.offset() = offset;
  return object;
}

/// The place of a vertex.
inline cv::Vec3d placeOf(GraphicObject const& object, cv::Vec3f const& vertex) {
  return object.offset() + cv::Vec3d(vertex);
}

/// Whether the object's places need doubles.
inline bool hasOffset(GraphicObject const& object) {
  return object.offset() != cv::Vec3d();
}

} // namespace vorn::graphic
