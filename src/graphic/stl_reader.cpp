// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "graphic/stl_reader.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <string>
#include <string_view>

#include "graphic/far_coordinates.hpp"
#include "graphic/line_fields.hpp"
#include "graphic/stl_layout.hpp"
#include "graphic/vertex_welder.hpp"

namespace vorn::graphic {
namespace {

/// The triangle count in a binary file's header. Only files as long as the header have one.
std::uint32_t binaryCount(char const* header) {
  std::uint32_t count = 0;
  std::memcpy(&count, header + stlHeaderSize, sizeof count);
  return count;
}

/// True for a text that begins with "solid". Many binary files begin so too, but hold zero bytes soon after.
bool beginsAsText(std::string_view start) {
  constexpr std::string_view keyword = "solid";
  std::size_t const first = std::min(start.find_first_not_of(" \t\r\n"), start.size());
  std::string text(start.substr(first, keyword.size()));
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char each) { return std::tolower(each); });
  return text == keyword && start.find('\0') == start.npos;
}

GraphicObject readBinary(FileReader& file) {
  std::uint64_t left = binaryCount(file.data());
  file.advance(stlPrologueSize);
  if (left > file.remaining() / stlTriangleSize) {
    file.fail("the header promises " + std::to_string(left) + " triangles of 50 bytes, but only " +
              std::to_string(file.remaining()) + " bytes are left for them");
  }
  GraphicObject object;
  VertexWelder welder(object.vertices(), object.triangles());
  welder.reserve(static_cast<std::size_t>(left));
  while (left > 0) {
    std::uint64_t const fetched = file.fetch(stlTriangleSize) / stlTriangleSize;
    std::size_t const count = static_cast<std::size_t>(std::min(left, fetched));
    if (count == 0) {
      file.failAtByte("the file ends within a triangle");
    }
    welder.add(file.data() + stlCornersOffset, stlTriangleSize, count);
    file.advance(count * stlTriangleSize);
    left -= count;
  }
  return object;
}

/// The ascii form, whose words may stand on lines as they like.
class StlTextReader {
public:
  StlTextReader(FileReader& file, cv::Vec3d const& offset)
      : file_(file), offset_(offset), finder_(offset), welder_(object_.vertices(), object_.triangles()) {
    constexpr std::uint64_t usualFacetSize = 200; // bytes; a guess that only saves growing
    welder_.reserve(static_cast<std::size_t>(file.size() / usualFacetSize));
  }

  void take() {
    while (toNextWord()) {
      expect("solid");
      line_.rest(); // its name
      while (!takes("endsolid")) {
        takeFacet();
      }
      line_.rest();
    }
    weldGathered();
  }

  OffsetFinder const& finder() const { return finder_; }

  GraphicObject finish() { return std::move(object_); }

private:
  void takeFacet() {
    expect("facet");
    expect("normal");
    for (int axis = 0; axis < 3; ++axis) {
      if (!toNextWord()) {
        failAtEnd();
      }
      line_.word(); // the corners tell it as well
    }
    expect("outer");
    expect("loop");
    for (cv::Vec3f& corner : gathered_[gatheredCount_]) {
      expect("vertex");
      cv::Vec3d const place = takeVector();
      finder_.add(place);
      corner = static_cast<cv::Vec3f>(place - offset_);
    }
    expect("endloop");
    expect("endfacet");
    if (++gatheredCount_ == gathered_.size()) {
      weldGathered();
    }
  }

  void weldGathered() {
    welder_.add(reinterpret_cast<char const*>(gathered_.data()), sizeof(VertexWelder::Corners),
                gatheredCount_);
    gatheredCount_ = 0;
  }

  cv::Vec3d takeVector() {
    cv::Vec3d vector;
    for (double& value : vector.val) {
      if (!toNextWord()) {
        failAtEnd();
      }
      if (!line_.number(value)) {
        file_.failAtLine(quoted(line_.word()) + " is no number");
      }
    }
    return vector;
  }

  /// Takes the next word if it is this one.
  bool takes(std::string_view word) {
    if (!toNextWord()) {
      failAtEnd();
    }
    return line_.keyword(word);
  }

  void expect(std::string_view word) {
    if (!takes(word)) {
      file_.failAtLine("expected " + quoted(word) + ", but there is " + quoted(line_.word()));
    }
  }

  bool toNextWord() {
    std::string_view line;
    while (line_.atEnd()) {
      if (!file_.nextLine(line)) {
        return false;
      }
      line_ = LineFields(line);
    }
    return true;
  }

  [[noreturn]] void failAtEnd() const { file_.failAtLine("the file ends before its 'endsolid'"); }

  FileReader& file_;
  cv::Vec3d offset_;
  OffsetFinder finder_;
  LineFields line_{
      std::string_view("\n").substr(0, 0)}; ///< at its end, like every line before the next is taken
  GraphicObject object_;
  VertexWelder welder_;
  std::array<VertexWelder::Corners, 256> gathered_; ///< the welder is faster with many at once
  std::size_t gatheredCount_ = 0;
};

} // namespace

GraphicObject readStl(FileReader& file) {
  std::size_t const available = file.fetch(stlPrologueSize);
  std::string_view const start(file.data(), std::min(available, stlPrologueSize));
  bool const canBeBinary = start.size() == stlPrologueSize;
  bool const hasBinarySize =
      canBeBinary &&
      file.size() == stlPrologueSize + std::uint64_t{binaryCount(start.data())} * stlTriangleSize;
  if (!hasBinarySize && beginsAsText(start)) {
    return readNearZero<StlTextReader>(file);
  }
  if (!canBeBinary) {
    file.fail("it is no STL file: it does not begin with \"solid\" and is too short for a binary one");
  }
  return readBinary(file);
}

} // namespace vorn::graphic
