// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Marks what the shared library exports; everything else stays hidden inside it.
#define VORN_API __attribute__((visibility("default")))
