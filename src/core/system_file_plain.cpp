// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "core/system_file.hpp"

#ifndef VORN_POSIX_FILES

#include <cerrno>
#include <filesystem>
#include <random>
#include <system_error>

namespace vorn {

namespace fs = std::filesystem;

namespace {

/// The errno value of a failure whose kind the standard library knows.
int reasonOf(std::error_code const& code) {
  return code ? code.default_error_condition().value() : 0;
}

} // namespace

FileFacts factsOf(std::string const& path) {
  FileFacts facts;
  std::error_code code;
  fs::file_status const status = fs::status(path, code);
  switch (status.type()) {
  case fs::file_type::none:
    facts.reason = reasonOf(code);
    break;
  case fs::file_type::not_found:
    break;
  case fs::file_type::regular:
    facts.kind = FileKind::Regular;
    facts.size = fs::file_size(path, code);
    facts.reason = reasonOf(code);
    break;
  case fs::file_type::directory:
    facts.kind = FileKind::Folder;
    break;
  case fs::file_type::fifo:
    facts.kind = FileKind::Pipe;
    break;
  default:
    facts.kind = FileKind::Other;
  }
  return facts;
}

int writeRefusal(std::string const& path) {
  std::error_code code;
  fs::file_status const status = fs::status(path, code);
  constexpr fs::perms anyWrite = fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write;
  return code ? reasonOf(code) : (status.permissions() & anyWrite) == fs::perms::none ? EACCES : 0;
}

int SystemFile::take(std::FILE* stream) {
  int const reason = stream != nullptr ? 0 : errno;
  stream_ = stream;
  isOpen_ = stream != nullptr;
  if (isOpen_) {
    std::setvbuf(stream, nullptr, _IONBF, 0);
  }
  return reason;
}

int SystemFile::openForReading(std::string const& path) {
  path_ = path;
  return take(std::fopen(path.c_str(), "rb"));
}

int SystemFile::openForWriting(std::string const& path) {
  path_ = path;
  return take(std::fopen(path.c_str(), "ab"));
}

int SystemFile::create(std::string const& path) {
  path_ = path;
  return take(std::fopen(path.c_str(), "wbx"));
}

bool SystemFile::createNameless(std::string const& /*folder*/) {
  return false;
}

int SystemFile::name(std::string const& /*path*/) {
  return ENOTSUP;
}

FileFacts SystemFile::facts() const {
  return factsOf(path_);
}

void SystemFile::takePermissionsOf(std::string const& path) {
  std::error_code code;
  fs::file_status const status = fs::status(path, code);
  if (!code) {
    fs::permissions(path_, status.permissions(), code);
  }
}

int SystemFile::read(char* to, std::size_t count, std::size_t& got) {
  got = 0;
  if (!isOpen_) {
    return EBADF;
  }
  errno = 0;
  got = std::fread(to, 1, count, stream_);
  return std::ferror(stream_) != 0 ? (errno != 0 ? errno : EIO) : 0;
}

int SystemFile::rewind() {
  if (!isOpen_) {
    return EBADF;
  }
  errno = 0;
  return std::fseek(stream_, 0, SEEK_SET) == 0 ? 0 : errno != 0 ? errno : EIO;
}

int SystemFile::write(char const* from, std::size_t count) {
  if (!isOpen_) {
    return EBADF;
  }
  errno = 0;
  return std::fwrite(from, 1, count, stream_) == count ? 0 : errno != 0 ? errno : EIO;
}

int SystemFile::sync() {
  if (!isOpen_) {
    return EBADF;
  }
  return std::fflush(stream_) == 0 ? 0 : errno;
}

int SystemFile::close() {
  if (!isOpen_) {
    return 0;
  }
  isOpen_ = false;
  return std::fclose(std::exchange(stream_, nullptr)) == 0 ? 0 : errno;
}

int replaceFile(std::string const& from, std::string const& to) {
  std::error_code code;
  fs::rename(from, to, code);
  return reasonOf(code);
}

void removeFile(std::string const& path) noexcept {
  std::error_code code;
  fs::remove(path, code);
}

std::uint64_t processNumber() {
  static std::uint64_t const number = std::random_device{}();
  return number;
}

} // namespace vorn

#endif
