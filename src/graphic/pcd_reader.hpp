// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/graphic/graphic_object.hpp>

#include "graphic/file_reader.hpp"

namespace vorn::graphic {

/// The content of a PCD file.
GraphicObject readPcd(FileReader& file);

} // namespace vorn::graphic
