// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/core/atomic_file.hpp>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <optional>
#include <system_error>

#include "core/error.hpp"
#include "core/system_file.hpp"

namespace vorn {
namespace {

std::string reasonText(int reason) {
  return std::generic_category().message(reason);
}

/// The file that `path` leads to through symbolic links, whether that file exists or not; none for a loop.
std::optional<std::string> followLinks(std::string const& path) {
  constexpr int mostLinks = 40; // the kernel's own limit
  std::filesystem::path target = path;
  for (int links = 0; links <= mostLinks; ++links) {
    std::error_code noLink;
    std::filesystem::path const next = std::filesystem::read_symlink(target, noLink);
    if (noLink) {
      return target.string();
    }
    target = target.parent_path() / next; // an absolute `next` replaces the whole path
  }
  return std::nullopt;
}

std::string folderOf(std::string const& target) {
  std::string const folder = std::filesystem::path(target).parent_path().string();
  return folder.empty() ? "." : folder;
}

/// A name in the target's folder that is hardly taken. It does not contain the target's name, which may
/// already be as long as a name can be.
std::string temporaryName(std::string const& target) {
  static std::atomic<unsigned> counter{0};
  auto const ticks = std::chrono::steady_clock::now().time_since_epoch().count();
  std::string const name = ".vorn-" + std::to_string(processNumber()) + "-" + std::to_string(ticks) + "-" +
                           std::to_string(counter++) + ".tmp";
  return (std::filesystem::path(target).parent_path() / name).string();
}

/// Whether a path names one of this process's open files, such as /dev/stdout: what the shell has opened is
/// written on, and not replaced, even if it is a regular file.
bool isOpenFile(std::string const& path) {
  for (char const* prefix : {"/dev/stdout", "/dev/stderr", "/dev/fd/", "/proc/self/fd/"}) {
    if (path.rfind(prefix, 0) == 0) {
      return true;
    }
  }
  return false;
}

} // namespace

AtomicFile::AtomicFile(std::string const& path) : path_(path), file_(std::make_unique<SystemFile>()) {
  if (isOpenFile(path)) {
    target_ = path;
    if (int const reason = file_->openForWriting(path)) {
      fail("open", reason);
    }
    return;
  }
  std::optional<std::string> const target = followLinks(path);
  if (!target) {
    fail("open", ELOOP);
  }
  target_ = *target;

  FileFacts const old = factsOf(target_);
  if (old.reason != 0) {
    fail("open", old.reason);
  }
  if (old.kind == FileKind::Missing) {
    if (path.empty() || path.back() == '/') {
      fail("open", path.empty() ? ENOENT : EISDIR);
    }
    openTemporary();
    return;
  }
  if (old.kind == FileKind::Folder) {
    fail("open", EISDIR);
  }
  if (old.kind != FileKind::Regular) {
    if (int const reason = file_->openForWriting(target_)) {
      fail("open", reason);
    }
    return;
  }
  // A rename asks only for the folder's permission; a write-protected file is to stay all the same.
  if (int const reason = writeRefusal(target_)) {
    fail("open", reason);
  }
  openTemporary();
  file_->takePermissionsOf(target_);
}

AtomicFile::~AtomicFile() {
  discard();
}

void AtomicFile::openTemporary() {
  isNameless_ = file_->createNameless(folderOf(target_));
  if (!isNameless_) {
    takeTemporaryName("open", [this] { return file_->create(temporary_); });
  }
}

template <class Make>
void AtomicFile::takeTemporaryName(char const* action, Make const& make) {
  constexpr int mostAttempts = 100;
  int reason = 0;
  for (int attempt = 0; attempt < mostAttempts; ++attempt) {
    temporary_ = temporaryName(target_);
    reason = make();
    if (reason == 0) {
      return;
    }
    if (reason != EEXIST && reason != EINTR) {
      break;
    }
  }
  temporary_.clear(); // not ours to remove
  fail(action, reason);
}

void AtomicFile::nameTemporary() {
  // A name that is taken is not replaced, so only where no file stands is the target named at once.
  if (file_->name(target_) != 0) {
    takeTemporaryName("write", [this] { return file_->name(temporary_); });
  }
  isNameless_ = false;
}

void AtomicFile::write(void const* data, std::size_t size) {
  if (int const reason = file_->write(static_cast<char const*>(data), size)) {
    fail("write", reason);
  }
}

void AtomicFile::commit() {
  if (!file_->isOpen()) {
    fail("write", EBADF); // a write failed before, and took what was written with it
  }
  bool const direct = temporary_.empty() && !isNameless_;
  // Without this a power failure soon after the rename could leave an empty file where the old one was.
  if (int const reason = direct ? 0 : file_->sync()) {
    fail("write", reason);
  }
  if (isNameless_) {
    nameTemporary();
  }
  // Some file systems report a failed write only here.
  if (int const reason = file_->close()) {
    fail("write", reason);
  }
  if (!temporary_.empty()) {
    if (int const reason = replaceFile(temporary_, target_)) {
      fail("write", reason);
    }
    temporary_.clear();
  }
}

void AtomicFile::discard() noexcept {
  file_->close();
  if (!temporary_.empty()) {
    removeFile(temporary_);
    temporary_.clear();
  }
}

void AtomicFile::fail(char const* action, int reason) {
  discard();
  throw error("Cannot " + std::string(action) + " " + path_ + ": " + reasonText(reason), "AtomicFile");
}

} // namespace vorn
