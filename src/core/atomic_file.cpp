// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/core/atomic_file.hpp>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "core/error.hpp"

namespace vorn {
namespace {

constexpr mode_t permissionBits = 07777;

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

/// The name under which the system shows an open file of this process, whether it has a name of its own or
/// not.
std::string descriptorPath(int descriptor) {
  return "/proc/self/fd/" + std::to_string(descriptor);
}

/// A name in the target's folder that is hardly taken. It does not contain the target's name, which may
/// already be as long as a name can be.
std::string temporaryName(std::string const& target) {
  static std::atomic<unsigned> counter{0};
  auto const ticks = std::chrono::steady_clock::now().time_since_epoch().count();
  std::string const name = ".vorn-" + std::to_string(getpid()) + "-" + std::to_string(ticks) + "-" +
                           std::to_string(counter++) + ".tmp";
  return (std::filesystem::path(target).parent_path() / name).string();
}

} // namespace

AtomicFile::AtomicFile(std::string const& path) : path_(path) {
  std::optional<std::string> const target = followLinks(path);
  if (!target) {
    fail("open", ELOOP);
  }
  target_ = *target;

  struct stat status = {};
  bool const exists = ::stat(target_.c_str(), &status) == 0;
  if (!exists) {
    if (errno != ENOENT) {
      fail("open", errno);
    }
    if (path.empty() || path.back() == '/') {
      fail("open", path.empty() ? ENOENT : EISDIR);
    }
    openTemporary();
    return;
  }
  if (S_ISDIR(status.st_mode)) {
    fail("open", EISDIR);
  }
  if (!S_ISREG(status.st_mode)) {
    descriptor_ = ::open(target_.c_str(), O_WRONLY | O_CLOEXEC);
    if (descriptor_ < 0) {
      fail("open", errno);
    }
    return;
  }
  // A rename asks only for the folder's permission; a write-protected file is to stay all the same.
  if (::access(target_.c_str(), W_OK) != 0) {
    fail("open", errno);
  }
  openTemporary();
  // The owner first: changing it may clear permission bits. Only the superuser may set it, and some file
  // systems know no permissions: neither is a reason to refuse the file.
  if (status.st_uid != ::geteuid() || status.st_gid != ::getegid()) {
    [[maybe_unused]] int const ownerKept = ::fchown(descriptor_, status.st_uid, status.st_gid);
  }
  [[maybe_unused]] int const bitsKept = ::fchmod(descriptor_, status.st_mode & permissionBits);
}

AtomicFile::~AtomicFile() {
  discard();
}

void AtomicFile::openTemporary() {
#ifdef O_TMPFILE
  descriptor_ = ::open(folderOf(target_).c_str(), O_WRONLY | O_TMPFILE | O_CLOEXEC, 0666);
  if (descriptor_ >= 0) {
    // It can be named later only through /proc, which a restricted environment may lack.
    if (::access(descriptorPath(descriptor_).c_str(), F_OK) == 0) {
      isNameless_ = true;
      return;
    }
    ::close(descriptor_);
  }
#endif
  takeTemporaryName("open", [this] {
    descriptor_ = ::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    return descriptor_ >= 0;
  });
}

template <class Make>
void AtomicFile::takeTemporaryName(char const* action, Make const& make) {
  constexpr int mostAttempts = 100;
  for (int attempt = 0; attempt < mostAttempts; ++attempt) {
    temporary_ = temporaryName(target_);
    if (make()) {
      return;
    }
    if (errno != EEXIST && errno != EINTR) {
      break;
    }
  }
  int const reason = errno;
  temporary_.clear(); // not ours to remove
  fail(action, reason);
}

void AtomicFile::nameTemporary() {
  std::string const source = descriptorPath(descriptor_);
  auto const link = [&](std::string const& name) {
    return ::linkat(AT_FDCWD, source.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0;
  };
  // A link replaces nothing, so only where no file stands is the target named at once.
  if (!link(target_)) {
    takeTemporaryName("write", [&] { return link(temporary_); });
  }
  isNameless_ = false;
}

void AtomicFile::write(void const* data, std::size_t size) {
  char const* next = static_cast<char const*>(data);
  while (size > 0) {
    ssize_t const written = ::write(descriptor_, next, size);
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      fail("write", written < 0 ? errno : EIO);
    }
    next += written;
    size -= static_cast<std::size_t>(written);
  }
}

void AtomicFile::commit() {
  bool const direct = temporary_.empty() && !isNameless_;
  // Without this a power failure soon after the rename could leave an empty file where the old one was.
  if (!direct && ::fsync(descriptor_) != 0) {
    fail("write", errno);
  }
  if (isNameless_) {
    nameTemporary();
  }
  // Some file systems report a failed write only here. The descriptor is gone whatever close returns.
  int const closed = ::close(descriptor_);
  descriptor_ = -1;
  if (closed != 0 && errno != EINTR) {
    fail("write", errno);
  }
  if (!temporary_.empty()) {
    if (std::rename(temporary_.c_str(), target_.c_str()) != 0) {
      fail("write", errno);
    }
    temporary_.clear();
  }
}

void AtomicFile::discard() noexcept {
  if (descriptor_ >= 0) {
    ::close(descriptor_);
    descriptor_ = -1;
  }
  if (!temporary_.empty()) {
    ::unlink(temporary_.c_str());
    temporary_.clear();
  }
}

void AtomicFile::fail(char const* action, int reason) {
  discard();
  throw error("Cannot " + std::string(action) + " " + path_ + ": " + reasonText(reason), "AtomicFile");
}

} // namespace vorn
