// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "graphic/ply_faces.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <type_traits>

#include "core/large_array.hpp"
#include "graphic/ply_rows.hpp"
#include "graphic/ply_values.hpp"

namespace vorn::graphic {
namespace {

constexpr int stripEnd = -1;

/// The index that a file's value stands for. Floating point indices are odd, but those that are whole numbers
/// have only one meaning; all others give an index that no file can have.
template <class T>
std::int64_t toIndex(T value) {
  if constexpr (std::is_floating_point_v<T>) {
    constexpr T limit = 2147483648;
    bool const isWhole = value >= -limit && value < limit && value == std::trunc(value);
    return isWhole ? static_cast<std::int64_t>(value) : std::numeric_limits<std::int64_t>::min();
  } else {
    return value;
  }
}

/// Takes the lists of vertex indices of one element, row by row.
class CornerReader {
public:
  CornerReader(FileReader& file, PlyElement const& element, PlyProperty const& list, std::int64_t lowest,
               std::int64_t vertexCount)
      : file_(file), element_(element), list_(list), lowest_(lowest), vertexCount_(vertexCount) {}

  void takeBinary(std::vector<int>& corners, bool swapped) {
    std::uint64_t const length = takeListLength(file_, element_, list_, swapped);
    withType(list_.type, [&](auto typed) {
      using T = decltype(typed);
      swapped ? takeBinary<T, true>(corners, length) : takeBinary<T, false>(corners, length);
    });
  }

  void takeText(std::vector<int>& corners, LineFields& line) {
    std::uint64_t const length = takeListLength(file_, line, list_);
    corners.clear();
    for (std::uint64_t corner = 0; corner < length; ++corner) {
      std::int64_t index = 0;
      if (!line.integer(index)) {
        failAtValue(file_, line, list_);
      }
      if (!isValid(index)) {
        file_.failAtLine(invalidIndex(index));
      }
      corners.push_back(static_cast<int>(index));
    }
  }

private:
  bool isValid(std::int64_t index) const { return index >= lowest_ && index < vertexCount_; }

  std::string invalidIndex(std::int64_t index) const {
    return "the vertex index " + std::to_string(index) + ", but there are " + std::to_string(vertexCount_) +
           " vertices";
  }

  template <class T, bool swapped>
  void takeBinary(std::vector<int>& corners, std::uint64_t length) {
    char const* from = fetchValues(file_, element_, length * sizeof(T));
    corners.resize(static_cast<std::size_t>(length));
    for (int& corner : corners) {
      std::int64_t const index = toIndex(loadValue<T, swapped>(from));
      if (!isValid(index)) {
        file_.failAtByte(invalidIndex(index));
      }
      corner = static_cast<int>(index);
      from += sizeof(T);
    }
    file_.advance(static_cast<std::size_t>(length * sizeof(T)));
  }

  FileReader& file_;
  PlyElement const& element_;
  PlyProperty const& list_;
  std::int64_t lowest_;
  std::int64_t vertexCount_;
};

/// Every corner from a strip's third on makes a triangle with the two before it, of alternating direction.
void addStrips(std::vector<int> const& corners, std::vector<cv::Vec3i>& triangles) {
  std::size_t begin = 0;
  for (std::size_t corner = 0; corner < corners.size(); ++corner) {
    if (corners[corner] == stripEnd) {
      begin = corner + 1;
    } else if (corner >= begin + 2) {
      bool const turned = (corner - begin) % 2 != 0;
      int const first = corners[corner - (turned ? 1 : 2)];
      int const second = corners[corner - (turned ? 2 : 1)];
      if (first != second && first != corners[corner] &&
          second != corners[corner]) { // not a seam of two strips
        triangles.emplace_back(first, second, corners[corner]);
      }
    }
  }
}

} // namespace

PlyProperty const* findPlyIndices(PlyElement const& element) {
  auto const found =
      std::find_if(element.properties.begin(), element.properties.end(), [](PlyProperty const& property) {
        return property.isList() && (property.name == "vertex_indices" || property.name == "vertex_index");
      });
  return found != element.properties.end() ? &*found : nullptr;
}

void readPlyFaces(FileReader& file, PlyElement const& element, PlyEncoding encoding,
                  std::uint64_t vertexCount, std::vector<cv::Vec3i>& triangles, PolygonFans& fans) {
  PlyProperty const* const indices = findPlyIndices(element);
  if (indices == nullptr) {
    skipElement(file, element, encoding);
    return;
  }
  if (vertexCount > static_cast<std::uint64_t>(std::numeric_limits<int>::max())) {
    file.fail("too many vertices for faces: " + std::to_string(vertexCount));
  }
  bool const areStrips = element.name == "tristrips";
  CornerReader reader(file, element, *indices, areStrips ? stripEnd : 0,
                      static_cast<std::int64_t>(vertexCount));
  std::vector<int> corners;
  if (!areStrips) {
    reserveLarge(triangles, triangles.size() + static_cast<std::size_t>(element.count));
  }
  for (std::uint64_t row = 0; row < element.count; ++row) {
    if (encoding == PlyEncoding::Ascii) {
      takeTextRow(file, element, [&](LineFields& line) {
        for (PlyProperty const& property : element.properties) {
          &property == indices ? reader.takeText(corners, line) : skipProperty(file, line, property);
        }
      });
    } else {
      for (PlyProperty const& property : element.properties) {
        &property == indices ? reader.takeBinary(corners, isSwapped(encoding))
                             : skipProperty(file, element, property, isSwapped(encoding));
      }
    }
    areStrips ? addStrips(corners, triangles) : fans.add(corners, triangles);
  }
}

} // namespace vorn::graphic
