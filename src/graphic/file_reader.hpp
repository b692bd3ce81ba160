// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "core/system_file.hpp"

namespace vorn::graphic {

/// Reads a file front to back through a small window, by bytes or by lines.
///
/// The window stays in the processor's cache and costs no fresh memory, which makes this as fast as mapping
/// the file; and unlike a mapped file, one that somebody else truncates meanwhile is an error, not a crash.
class FileReader {
public:
  /// Opens the file.
  /// @param path    the file to read; a pipe is taken too
  /// @param context the name of the reading class, for exceptions
  /// @param window  bytes to read at a time; the default fits the second-level cache
  /// @throws Exception when it cannot be opened, is a folder or a device, or is empty
  FileReader(std::string const& path, char const* context, std::size_t window = std::size_t{1} << 18);
  FileReader(FileReader const&) = delete;
  FileReader& operator=(FileReader const&) = delete;

  /// As it was given.
  std::string const& path() const { return path_; }
  /// Bytes from the current position to the end of the file.
  std::uint64_t remaining() const { return size_ - position(); }
  /// Bytes of the whole file.
  std::uint64_t size() const { return size_; }
  /// Bytes before the current position.
  std::uint64_t position() const { return windowStart_ + next_; }

  /// Makes `wanted` bytes stand at `data()`, or fewer if the file ends before.
  /// @return how many bytes stand there, which may be more than wanted
  std::size_t fetch(std::size_t wanted) {
    return filled_ - next_ >= wanted ? filled_ - next_ : refill(wanted);
  }
  /// The bytes at the current position; valid until the next `fetch` or `nextLine`.
  char const* data() const { return window_.data() + next_; }
  /// Moves the position over bytes that were fetched.
  void advance(std::size_t count) { next_ += count; }
  /// Moves the position over bytes that need not have been fetched; stops at the end of the file.
  void skip(std::uint64_t count);

  /// Takes the next line, without its line end: "\n", or "\r" if the file's first line ends so; of "\r\n" the
  /// "\r" stays. The character behind the line, at `line.end()`, is always '\n', so that a scan over digits
  /// or blanks needs no other stop. Valid until the next `fetch` or `nextLine`.
  /// @return false at the end of the file
  bool nextLine(std::string_view& line);
  /// Goes back to the start of the file.
  void rewind();
  /// The number of the line taken last, from 1.
  std::uint64_t lineNumber() const { return lineNumber_; }

  [[noreturn]] void fail(std::string const& reason) const;
  /// Names the line taken last.
  [[noreturn]] void failAtLine(std::string const& reason) const { failAtLine(lineNumber_, reason); }
  [[noreturn]] void failAtLine(std::uint64_t line, std::string const& reason) const;
  /// Names the current position.
  [[noreturn]] void failAtByte(std::string const& reason) const;

private:
  std::size_t refill(std::size_t wanted);
  void readAll();
  void findLineEnd();
  std::size_t readSome(char* to, std::size_t count);

  std::string path_;
  char const* context_;
  std::size_t step_;              ///< how much to read at a time
  SystemFile file_;               ///< closed when all content is in the window
  std::uint64_t size_ = 0;        ///< of the file
  std::vector<char> window_;      ///< one byte longer than what can be read into it: room for the last '\n'
  std::uint64_t windowStart_ = 0; ///< the window's place in the file
  std::size_t next_ = 0;          ///< the current position in the window
  std::size_t filled_ = 0;        ///< how many bytes of the window are read
  std::uint64_t lineNumber_ = 0;
  char lineEnd_ = '\n';
};

} // namespace vorn::graphic
