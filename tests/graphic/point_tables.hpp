// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstring>
#include <string>
#include <utility>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/core/system.hpp>
#include <vorn/graphic/graphic_object.hpp>

#include "support/file_content.hpp"
#include "support/graphic_objects.hpp"
#include "support/temporary_folder.hpp"

namespace vorn::test {

/// Points with everything that a table holds.
inline graphic::GraphicObject table(int count, Alpha alpha) {
  graphic::GraphicObject object = fullObject(count, alpha);
  object.triangles().clear();
  for (char const* const name : {"sigma", "rgb", "X", "scalar_sigma", "normal_y", "phase error"}) {
    for (cv::Vec3f const& vector : hardVectors(count)) {
      object.fields()[name].push_back(vector[0]);
    }
  }
  return object;
}

inline void expectSameTable(graphic::GraphicObject const& actual, graphic::GraphicObject expected) {
  auto renamed = expected.fields().extract("phase error");
  renamed.key() = "phase_error";
  expected.fields().insert(std::move(renamed));
  expectSameBits(actual, expected);
  ASSERT_EQ(actual.fields().size(), expected.fields().size());
  for (auto const& [name, values] : expected.fields()) {
    ASSERT_EQ(actual.fields().count(name), 1U) << name;
    ASSERT_EQ(actual.fields().at(name).size(), values.size()) << name;
    EXPECT_EQ(std::memcmp(actual.fields().at(name).data(), values.data(), values.size() * sizeof(float)), 0)
        << name;
  }
}

template <class File>
class PointFile : public testing::Test {
protected:
  static std::string path(std::string const& name = "a") { return folder() / name; }
  static graphic::GraphicObject parse(std::string const& content) {
    put(path("parsed"), content);
    return File().read(path("parsed"));
  }

private:
  static TemporaryFolder const& folder() {
    static TemporaryFolder const shared;
    return shared;
  }
};

/// What System::message says while something is done.
template <class Action>
std::string said(Action const& action) {
  std::string text;
  System::setMessageSink([&](std::string const& message) { text += message; });
  action();
  System::setMessageSink({});
  return text;
}

} // namespace vorn::test
