// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>

// Which of the two implementations is built: that of POSIX systems, or the plain one on the standard library
// alone. VORN_MV_PLAIN asks for the plain one where both would do, so that tests can run it.
#if !defined(VORN_MV_PLAIN) && (defined(__unix__) || defined(__APPLE__))
#define VORN_POSIX_FILES
#endif

namespace vorn {

/// What stands under a file's name, links followed.
enum class FileKind { Missing, Regular, Folder, Pipe, Other };

struct FileFacts {
  FileKind kind = FileKind::Missing;
  std::uint64_t size = 0; ///< bytes of a regular file
  int reason = 0;         ///< why nothing is known: an errno value; 0 when the facts hold
};

FileFacts factsOf(std::string const& path);

/// Whether this process may write to an existing file, or into an existing folder. @return 0, or an errno
/// value
int writeRefusal(std::string const& path);

/// A file of the system, opened for reading or for writing, without a buffer of its own. Failures are errno
/// values.
class SystemFile {
public:
  SystemFile() = default;
  SystemFile(SystemFile const&) = delete;
  SystemFile& operator=(SystemFile const&) = delete;
  ~SystemFile() { close(); }

  bool isOpen() const { return isOpen_; }

  /// @return 0, or why not
  int openForReading(std::string const& path);
  /// Opens what exists for writing at its end, such as a pipe or a device.
  int openForWriting(std::string const& path);
  /// Creates a file that must not exist yet.
  int create(std::string const& path);
  /// Creates a file in `folder` that has no name, where the system knows such files.
  /// @return whether it did
  bool createNameless(std::string const& folder);
  /// Gives a nameless file a name that must be free. @return 0, or why not
  int name(std::string const& path);

  /// The facts of the open file.
  FileFacts facts() const;
  /// Gives the file the permissions of the one at `path`, and its owner as far as the process may.
  void takePermissionsOf(std::string const& path);

  /// @param got the bytes read; 0 at the end
  int read(char* to, std::size_t count, std::size_t& got);
  /// Goes back to the start of a file that is read. @return 0, or why not
  int rewind();
  int write(char const* from, std::size_t count);
  /// Brings what was written to the disk.
  int sync();
  int close();

private:
#ifdef VORN_POSIX_FILES
  int take(int descriptor);
  int descriptor_ = -1;
#else
  int take(std::FILE* stream);
  std::FILE* stream_ = nullptr;
  std::string path_;
#endif
  bool isOpen_ = false;
};

/// Puts the file `from` in the place of `to`, at once. @return 0, or why not
int replaceFile(std::string const& from, std::string const& to);
void removeFile(std::string const& path) noexcept;

/// A number that no other process on this machine has at this time.
std::uint64_t processNumber();

} // namespace vorn
