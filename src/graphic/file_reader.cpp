// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "graphic/file_reader.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "core/error.hpp"

namespace vorn::graphic {
FileReader::FileReader(std::string const& path, char const* context, std::size_t window)
    : path_(path), context_(context), step_(window) {
  auto const failOpening = [&](int reason) {
    throw error("Cannot open " + path_ + ": " + std::generic_category().message(reason), context_);
  };
  // Before it is opened: opening a folder is an error of another kind on every system.
  if (factsOf(path).kind == FileKind::Folder) {
    failOpening(EISDIR);
  }
  if (int const reason = file_.openForReading(path)) {
    failOpening(reason);
  }
  FileFacts const facts = file_.facts();
  if (facts.reason != 0) {
    failOpening(facts.reason);
  }
  if (facts.kind == FileKind::Pipe) {
    readAll();
  } else if (facts.kind == FileKind::Regular) {
    size_ = facts.size;
    window_.resize(static_cast<std::size_t>(std::min<std::uint64_t>(step_, size_)) + 1);
  } else {
    fail("it is a device");
  }
  if (size_ == 0) {
    fail("the file is empty");
  }
}

std::size_t FileReader::readSome(char* to, std::size_t count) {
  std::size_t got = 0;
  if (int const reason = file_.read(to, count, got)) {
    fail(std::generic_category().message(reason));
  }
  return got;
}

/// A pipe's size shows only at its end, so that all of it goes into the window.
void FileReader::readAll() {
  for (;;) {
    if (window_.size() < filled_ + step_ + 1) {
      window_.resize(2 * filled_ + step_ + 1);
    }
    std::size_t const got = readSome(window_.data() + filled_, window_.size() - 1 - filled_);
    if (got == 0) {
      break;
    }
    filled_ += got;
  }
  size_ = filled_;
  file_.close();
}

std::size_t FileReader::refill(std::size_t wanted) {
  std::size_t const kept = filled_ - next_;
  if (!file_.isOpen()) {
    return kept;
  }
  if (next_ > 0) {
    std::memmove(window_.data(), window_.data() + next_, kept);
    windowStart_ += next_;
    next_ = 0;
    filled_ = kept;
  }
  // More than the file holds is never asked for, however much a damaged file promises.
  wanted = static_cast<std::size_t>(std::min<std::uint64_t>(wanted, remaining()));
  if (window_.size() < wanted + 1) {
    window_.resize(std::max(wanted + 1, 2 * window_.size()));
  }
  while (filled_ < wanted) {
    std::size_t const room = static_cast<std::size_t>(
        std::min<std::uint64_t>(window_.size() - 1 - filled_, size_ - windowStart_ - filled_));
    std::size_t const got = readSome(window_.data() + filled_, room);
    if (got == 0) {
      break; // truncated since it was opened
    }
    filled_ += got;
  }
  return filled_;
}

void FileReader::skip(std::uint64_t count) {
  count = std::min(count, remaining());
  while (count > 0) {
    std::size_t const step = static_cast<std::size_t>(std::min<std::uint64_t>(count, step_));
    std::size_t const got = std::min(fetch(step), step);
    if (got == 0) {
      return;
    }
    advance(got);
    count -= got;
  }
}

void FileReader::findLineEnd() {
  std::string_view const start(data(), fetch(step_));
  std::size_t const end = start.find_first_of("\r\n");
  bool const classicMac = end < start.size() && start[end] == '\r' && start.substr(end + 1, 1) != "\n";
  lineEnd_ = classicMac ? '\r' : '\n';
}

void FileReader::rewind() {
  if (file_.isOpen()) {
    if (int const reason = file_.rewind()) {
      fail(std::generic_category().message(reason));
    }
    windowStart_ = 0;
    filled_ = 0;
  }
  next_ = 0;
  lineNumber_ = 0;
}

bool FileReader::nextLine(std::string_view& line) {
  std::size_t searched = 0;
  std::size_t available = fetch(1);
  if (available == 0) {
    return false;
  }
  if (lineNumber_++ == 0) {
    findLineEnd();
    available = fetch(1);
  }
  for (;;) {
    char* const begin = window_.data() + next_;
    char* const found = static_cast<char*>(std::memchr(begin + searched, lineEnd_, available - searched));
    if (found != nullptr) {
      *found = '\n';
      line = {begin, static_cast<std::size_t>(found - begin)};
      advance(line.size() + 1);
      return true;
    }
    searched = available;
    available = fetch(searched + 1);
    if (available == searched) { // the last line, without a line end
      window_[filled_] = '\n';
      line = {data(), available};
      advance(available);
      return true;
    }
  }
}

void FileReader::fail(std::string const& reason) const {
  throw error("Cannot read " + path_ + ": " + reason, context_);
}

void FileReader::failAtLine(std::uint64_t line, std::string const& reason) const {
  throw error("Cannot read " + path_ + ", line " + std::to_string(line) + ": " + reason, context_);
}

void FileReader::failAtByte(std::string const& reason) const {
  throw error("Cannot read " + path_ + ", byte " + std::to_string(position()) + ": " + reason, context_);
}

} // namespace vorn::graphic
