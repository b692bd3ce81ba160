// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include <vorn/core/export.hpp>

namespace vorn {

class SystemFile;

/// A file that appears under its name only when it is complete.
///
/// What is written goes to a temporary file in the target's folder; `commit` brings it to the disk and
/// renames it over the target. Until then, and whenever anything fails, a file that stood under that name is
/// untouched; an object destroyed without `commit` leaves nothing behind.
///
/// The temporary file has no name until `commit` where the file system knows such files (Linux: ext4, XFS,
/// Btrfs, tmpfs and others), so a process that is killed on the way leaves nothing either. Elsewhere it is
/// called `.vorn-*.tmp`, and a killed process leaves it behind.
///
/// A replaced file keeps its permission bits, and its owner where the process may set that. A symbolic link
/// stays, and the file it leads to is replaced. A target that is no regular file but can be written to, such
/// as a pipe, is written directly. So are this process's own open files, `/dev/stdout`, `/dev/stderr` and
/// `/dev/fd/N`, at their end, whatever the shell has opened them on.
///
/// Every failure is an Exception with the path and the system's reason:
/// "Cannot open out/cloud.ply: No such file or directory".
class VORN_API AtomicFile {
public:
  /// Opens the temporary file.
  /// @param path the target; its folder must exist, the target itself need not
  /// @throws Exception when the folder is missing or not writable, or the target is a folder or
  /// write-protected
  explicit AtomicFile(std::string const& path);
  AtomicFile(AtomicFile const&) = delete;
  AtomicFile& operator=(AtomicFile const&) = delete;
  /// Discards what was written unless it was committed.
  ~AtomicFile();

  /// Appends `size` bytes. Not buffered: hand over large pieces.
  /// @throws Exception when the disk is full or fails; the temporary file is then gone
  void write(void const* data, std::size_t size);
  /// Appends a text as it is.
  void write(std::string_view text) { write(text.data(), text.size()); }

  /// Puts the file in the target's place. Nothing can be written afterwards.
  /// @throws Exception when the content cannot be brought to the disk or the target not be replaced
  void commit();

private:
  void openTemporary();
  /// Has `make` create a file `temporary_`, with ever new names while they are taken; it returns 0 or why
  /// not.
  template <class Make>
  void takeTemporaryName(char const* action, Make const& make);
  /// Gives a nameless file the target's name if that is free, else one to be renamed.
  void nameTemporary();
  void discard() noexcept;
  [[noreturn]] void fail(char const* action, int reason);

  std::string path_;      ///< as the caller named it, for messages
  std::string target_;    ///< the file to replace, links followed
  std::string temporary_; ///< the file's name to be renamed; empty for none
  bool isNameless_ = false;
  std::unique_ptr<SystemFile> file_;
};

} // namespace vorn
