// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <vorn/core/atomic_file.hpp>

namespace vorn::graphic {

/// Gathers small pieces of a file and writes them in large ones. The file appears when it is committed.
class FileWriter {
public:
  explicit FileWriter(std::string const& path) : file_(path), buffer_(bufferSize) {}

  /// Room for at least `size` bytes, at most `longestPiece`; call `advance` with the end of what was put
  /// there.
  char* room(std::size_t size) {
    if (buffer_.size() - filled_ < size) {
      flush();
    }
    return buffer_.data() + filled_;
  }
  void advance(char const* end) { filled_ = static_cast<std::size_t>(end - buffer_.data()); }

  void write(std::string_view text) {
    flush();
    file_.write(text);
  }
  void commit() {
    flush();
    file_.commit();
  }

  static constexpr std::size_t longestPiece = 4096;

private:
  void flush() {
    file_.write(buffer_.data(), filled_);
    filled_ = 0;
  }

  static constexpr std::size_t bufferSize = std::size_t{1} << 18; // fits the second-level cache
  AtomicFile file_;
  std::vector<char> buffer_;
  std::size_t filled_ = 0;
};

/// Puts text at `to`; returns its end.
inline char* putText(char* to, std::string_view text) {
  std::memcpy(to, text.data(), text.size());
  return to + text.size();
}

/// Puts the bytes of a value at `to`; returns their end.
template <class T>
char* putBytes(char* to, T const& value) {
  std::memcpy(to, &value, sizeof value);
  return to + sizeof value;
}

} // namespace vorn::graphic
