// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "core/system_file.hpp"

#ifdef VORN_POSIX_FILES

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vorn {

namespace {

FileFacts factsFrom(int result, struct stat const& status) {
  FileFacts facts;
  if (result != 0) {
    facts.reason = errno == ENOENT ? 0 : errno;
  } else if (S_ISREG(status.st_mode)) {
    facts.kind = FileKind::Regular;
    facts.size = static_cast<std::uint64_t>(status.st_size);
  } else if (S_ISDIR(status.st_mode)) {
    facts.kind = FileKind::Folder;
  } else {
    facts.kind = S_ISFIFO(status.st_mode) ? FileKind::Pipe : FileKind::Other;
  }
  return facts;
}

#ifdef O_TMPFILE
/// The name under which the system shows an open file of this process, whether it has a name of its own or
/// not.
std::string descriptorPath(int descriptor) {
  return "/proc/self/fd/" + std::to_string(descriptor);
}
#endif

} // namespace

FileFacts factsOf(std::string const& path) {
  struct stat status = {};
  int const result = ::stat(path.c_str(), &status);
  return factsFrom(result, status);
}

int writeRefusal(std::string const& path) {
  return ::access(path.c_str(), W_OK) == 0 ? 0 : errno;
}

int SystemFile::take(int descriptor) {
  descriptor_ = descriptor;
  isOpen_ = descriptor >= 0;
  return isOpen_ ? 0 : errno;
}

int SystemFile::openForReading(std::string const& path) {
  return take(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
}

int SystemFile::openForWriting(std::string const& path) {
  return take(::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
}

int SystemFile::create(std::string const& path) {
  return take(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
}

bool SystemFile::createNameless([[maybe_unused]] std::string const& folder) {
#ifdef O_TMPFILE
  if (take(::open(folder.c_str(), O_WRONLY | O_TMPFILE | O_CLOEXEC, 0666)) == 0) {
    // It can be named later only through /proc, which a restricted environment may lack.
    if (::access(descriptorPath(descriptor_).c_str(), F_OK) == 0) {
      return true;
    }
    close();
  }
#endif
  return false;
}

int SystemFile::name([[maybe_unused]] std::string const& path) {
#ifdef O_TMPFILE
  std::string const source = descriptorPath(descriptor_);
  return ::linkat(AT_FDCWD, source.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0 ? 0 : errno;
#else
  return ENOTSUP;
#endif
}

FileFacts SystemFile::facts() const {
  struct stat status = {};
  int const result = ::fstat(descriptor_, &status);
  return factsFrom(result, status);
}

void SystemFile::takePermissionsOf(std::string const& path) {
  constexpr mode_t permissionBits = 07777;
  struct stat status = {};
  if (::stat(path.c_str(), &status) != 0) {
    return;
  }
  // The owner first: changing it may clear permission bits. Only the superuser may set it, and some file
  // systems know no permissions: neither is a reason to refuse the file.
  if (status.st_uid != ::geteuid() || status.st_gid != ::getegid()) {
    [[maybe_unused]] int const ownerKept = ::fchown(descriptor_, status.st_uid, status.st_gid);
  }
  [[maybe_unused]] int const bitsKept = ::fchmod(descriptor_, status.st_mode & permissionBits);
}

int SystemFile::read(char* to, std::size_t count, std::size_t& got) {
  ssize_t result = 0;
  do {
    result = ::read(descriptor_, to, count);
  } while (result < 0 && errno == EINTR);
  got = result < 0 ? 0 : static_cast<std::size_t>(result);
  return result < 0 ? errno : 0;
}

int SystemFile::rewind() {
  return ::lseek(descriptor_, 0, SEEK_SET) < 0 ? errno : 0;
}

int SystemFile::write(char const* from, std::size_t count) {
  while (count > 0) {
    ssize_t const written = ::write(descriptor_, from, count);
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      return written < 0 ? errno : EIO;
    }
    from += written;
    count -= static_cast<std::size_t>(written);
  }
  return 0;
}

int SystemFile::sync() {
  return ::fsync(descriptor_) == 0 ? 0 : errno;
}

int SystemFile::close() {
  if (!isOpen_) {
    return 0;
  }
  // The descriptor is gone whatever close returns.
  isOpen_ = false;
  int const result = ::close(std::exchange(descriptor_, -1));
  return result == 0 || errno == EINTR ? 0 : errno;
}

int replaceFile(std::string const& from, std::string const& to) {
  return std::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

void removeFile(std::string const& path) noexcept {
  ::unlink(path.c_str());
}

std::uint64_t processNumber() {
  return static_cast<std::uint64_t>(::getpid());
}

} // namespace vorn

#endif
