// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// What nearly every test includes, parsed once for all of them.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <random>
#include <string>
#include <vector>
