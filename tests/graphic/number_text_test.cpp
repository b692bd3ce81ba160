// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Numbers as text, seen through the ascii PLY files that hold them, against the C library's conversions.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <sstream>
#include <string>
#include <vector>

#include <vorn/graphic/ply_file.hpp>

#include "support/file_content.hpp"
#include "support/temporary_folder.hpp"

using namespace vorn::graphic;

namespace {

std::string print(char const* format, int digits, double value) {
  char text[512];
  std::snprintf(text, sizeof text, format, digits, value);
  return text;
}

float floatOfBits(std::uint32_t bits) {
  float value = 0;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

float anyFloat() {
  for (;;) {
    float const value = floatOfBits(cv::theRNG().next());
    if (std::isfinite(value)) {
      return value;
    }
  }
}

/// What the x coordinates of a file with these texts are read as.
std::vector<float> readAll(std::vector<std::string> const& texts) {
  vorn::test::TemporaryFolder const folder;
  std::string content = "ply\nformat ascii 1.0\nelement vertex " + std::to_string(texts.size()) +
                        "\nproperty float x\nproperty float y\nproperty float z\nend_header\n";
  for (std::string const& text : texts) {
    content += text + " 0 0\n";
  }
  vorn::test::put(folder / "a.ply", content);
  std::vector<float> values;
  GraphicObject const object = PLYFile().read((folder / "a.ply").string());
  for (cv::Vec3f const& vertex : object.vertices()) {
    values.push_back(vertex[0]);
  }
  return values;
}

} // namespace

TEST(NumberText, ReadsTheNearestFloat) {
  std::vector<std::string> texts = {"0",
                                    "-0",
                                    "+1.5",
                                    "1e10",
                                    "1E-45",
                                    "0.7e-45",
                                    "1e39",
                                    "-1e400",
                                    "1e-400",
                                    "340282356779733661637539395458142568447",
                                    "16777217",
                                    "18446744073709551617",
                                    ".5",
                                    "5.",
                                    "1e+05",
                                    "340282356779733661637539395458142568448",
                                    "0000000000000000000000000000000.1250000000000000000000000000000000"};
  for (int i = 0; i < 30000; ++i) {
    float const value = anyFloat();
    texts.push_back(print("%.*g", cv::theRNG().uniform(1, 25), value));
    texts.push_back(print("%.*f", cv::theRNG().uniform(0, 12), std::fmod(value, 1e6F)));
    // Half-way between two floats, and a little beside it: where rounding twice goes wrong.
    double const middle = (double{value} + double{std::nextafterf(value, 0)}) / 2;
    texts.push_back(print("%.*g", 17, middle));
    texts.push_back(print("%.*e", 110, middle));
  }
  std::vector<float> const values = readAll(texts);
  for (std::size_t i = 0; i < texts.size(); ++i) {
    float const expected = std::strtof(texts[i].c_str(), nullptr);
    ASSERT_EQ(std::memcmp(&values[i], &expected, sizeof expected), 0) << texts[i] << " read as " << values[i];
  }
}

TEST(NumberText, TakesAllUsualSpellingsOfNanAndInfinity) {
  for (std::string const text :
       {"nan", "NaN", "-NAN", "+nan", "nan(0x12)", "1.#QNAN", "-1.#IND", "1.#IND00", "1.#SNAN"}) {
    EXPECT_TRUE(std::isnan(readAll({text})[0])) << text;
  }
  for (std::string const text : {"inf", "Inf", "+INF", "infinity", "INFINITY", "1.#INF", "1.#INF00"}) {
    EXPECT_EQ(readAll({text})[0], INFINITY) << text;
    EXPECT_EQ(readAll({text[0] == '+' ? "-" + text.substr(1) : "-" + text})[0], -INFINITY) << text;
  }
}

TEST(NumberText, RefusesWhatIsNoNumber) {
  for (std::string const text : {"one", "1x", "1.5.2", "--1", "+-1", "1e", "1e+", "e5", ".", "-", "0x10",
                                 "1,5", "1_000", "nanx", "infin", "1.#", "1.#INX", "#"}) {
    EXPECT_ANY_THROW(readAll({text})) << text;
  }
}

TEST(NumberText, WritesTheFewestDigitsThatReadBack) {
  vorn::test::TemporaryFolder const folder;
  std::string const path = (folder / "a.ply").string();
  GraphicObject object;
  for (int i = 0; i < 20000; ++i) {
    object.vertices().emplace_back(anyFloat(), cv::theRNG().uniform(-500.0F, 500.0F),
                                   static_cast<float>(cv::theRNG().uniform(-99999, 99999)) / 100);
  }
  PLYFile(PLYFile::Format::Ascii).write(path, object);
  std::string const content = vorn::test::contentOf(path);
  std::istringstream words(content.substr(content.find("end_header") + 10));
  for (cv::Vec3f const& vertex : object.vertices()) {
    for (float const value : vertex.val) {
      std::string word;
      words >> word;
      ASSERT_EQ(std::strtof(word.c_str(), nullptr), value) << word;
      std::size_t length = 0; // of the shortest form that the C library finds
      for (int digits = 1; length == 0; ++digits) {
        std::string const rounded = print("%.*g", digits, double{value});
        length = std::strtof(rounded.c_str(), nullptr) == value ? rounded.size() : 0;
      }
      ASSERT_LE(word.size(), length) << word;
    }
  }
}
