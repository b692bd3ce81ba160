// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Numbers in files and texts do not depend on the locale of the host application.
#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <locale>
#include <nlohmann/json.hpp>
#include <string>

#include <gtest/gtest.h>

#include <vorn/mv.hpp>

#include "support/file_content.hpp"
#include "support/temporary_folder.hpp"

namespace vorn::mv {
namespace {

/// Writes one and a half as "1,5" and a thousand as "1.000".
class CommaNumbers : public std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

/// Sets such a locale for C and C++ for as long as it lives.
class CommaLocale {
public:
  CommaLocale() {
    std::string const make =
        "localedef -i de_DE -f UTF-8 '" + (folder_ / "de_DE.UTF-8").string() + "' > /dev/null 2>&1";
    isMade_ = std::system(make.c_str()) == 0 && setenv("LOCPATH", folder_.path().c_str(), 1) == 0 &&
              std::setlocale(LC_ALL, "de_DE.UTF-8") != nullptr;
    before_ = std::locale::global(std::locale(std::locale::classic(), new CommaNumbers));
  }
  ~CommaLocale() {
    std::locale::global(before_);
    std::setlocale(LC_ALL, "C");
    unsetenv("LOCPATH");
  }
  CommaLocale(CommaLocale const&) = delete;
  CommaLocale& operator=(CommaLocale const&) = delete;

  bool isMade() const { return isMade_; }

private:
  vorn::test::TemporaryFolder folder_;
  bool isMade_ = false;
  std::locale before_;
};

/// Every kind of text that the library writes, and what reading it back gives.
std::vector<std::string> textsOf(std::filesystem::path const& folder) {
  std::vector<std::string> texts;
  graphic::GraphicObject object;
  object.vertices() = {{1234.5F, -0.25F, 1e-7F}, {1000000.0F, 2.5F, 3.5F}, {0.1F, 0.2F, 12345678.0F}};
  object.normals() = {{0.5F, 0.5F, 0.7F}, {0.0F, 0.0F, 1.0F}, {1.0F, 0.0F, 0.0F}};
  object.triangles() = {{0, 1, 2}};
  auto const writeAndRead = [&](auto file, std::string const& name) {
    std::string const path = folder / name;
    file.write(path, object);
    texts.push_back(vorn::test::contentOf(path));
    EXPECT_EQ(file.read(path).vertices(), object.vertices()) << name;
  };
  writeAndRead(graphic::PLYFile(graphic::PLYFile::Format::Ascii), "a.ply");
  writeAndRead(graphic::OBJFile(), "a.obj");
  writeAndRead(graphic::STLFile(graphic::STLFile::Format::Ascii), "a.stl");

  nlohmann::json json;
  pc::ZRangeFilter filter;
  filter["Zmax"] = 1234.5;
  filter.write(json);
  json["Matrix"] = cv::Matx22d(1234.5, 0.1, 1e-300, 1e17);
  texts.push_back(json.dump());
  nlohmann::json const read = nlohmann::json::parse(texts.back());
  EXPECT_EQ(read.at("Matrix").get<cv::Matx22d>(), cv::Matx22d(1234.5, 0.1, 1e-300, 1e17));
  filter["Zmax"] = "2345.75";
  EXPECT_EQ(filter["Zmax"].getValue().toDouble(), 2345.75);
  texts.push_back(Variant(1234567.25).toString());
  texts.push_back(Variant(1234567).toString());
  try {
    filter["Zmax"] = 12345.5;
  } catch (Exception const& exception) {
    texts.push_back(exception.message());
  }
  return texts;
}

TEST(Locale, ChangesNoTextThatIsWrittenAndNoNumberThatIsRead) {
  vorn::test::TemporaryFolder folder;
  std::vector<std::string> const expected = textsOf(folder.path());
  CommaLocale const locale;
  ASSERT_TRUE(locale.isMade()) << "the package \"locales\" has the sources of a locale with a decimal comma";
  ASSERT_EQ(std::strtod("1,5", nullptr), 1.5);
  EXPECT_EQ(textsOf(folder.path()), expected);
}

} // namespace
} // namespace vorn::mv
