// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/graphic/graphic_object.hpp>

#include "graphic/file_reader.hpp"
#include "graphic/ply_header.hpp"

namespace vorn::graphic {

/// Reads the rows of the vertex element into the arrays of `object`. The header was checked against the
/// file's size, so that the arrays may be allocated at once.
void readPlyVertices(FileReader& file, PlyElement const& element, PlyEncoding encoding,
                     GraphicObject& object);

} // namespace vorn::graphic
