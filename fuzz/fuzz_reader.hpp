// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include <vorn/core/exception.hpp>
#include <vorn/graphic/graphic_object.hpp>

#include "graphic/file_reader.hpp"

namespace vorn::fuzz {

/// Hands the bytes to a reader as a file in memory. The reader must return a valid object or throw the
/// library's exception.
template <class Read>
int tryReader(std::uint8_t const* data, std::size_t size, Read const& read) {
  static int const descriptor = memfd_create("fuzz", 0);
  static std::string const path = "/proc/self/fd/" + std::to_string(descriptor);
  bool const isStored = ftruncate(descriptor, static_cast<off_t>(size)) == 0 &&
                        pwrite(descriptor, data, size, 0) == static_cast<ssize_t>(size);
  if (!isStored) {
    std::abort();
  }
  constexpr std::size_t smallWindow = 32; // so that even small inputs are read in many pieces
  graphic::GraphicObject object;
  try {
    graphic::FileReader file(path, "fuzz", smallWindow);
    object = read(file);
  } catch (Exception const&) {
    return 0;
  }
  object.assertValid();
  return 0;
}

} // namespace vorn::fuzz
