// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <filesystem>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/file_content.hpp"
#include "support/page_json.hpp"
#include "support/temporary_folder.hpp"
#include "support/tool_run.hpp"
#include "tools/report/page.hpp"

namespace vorn::tools {
namespace {

namespace fs = std::filesystem;
using test::run;
using test::ToolOutcome;

nlohmann::json reportWith(std::string const& words) {
  return {{"tool", {{"name", "vorn-mv"}, {"version", words}}},
          {"inputs", {{{"path", words}, {"size", 12}, {"sha256", nullptr}}}},
          {"settings", {{"options", {{"out", words}}}, {"properties", {{words, {{words, words}}}}}}},
          {words, words},
          {"warnings", {words}}};
}

std::size_t countOf(std::string const& text, std::string const& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

/// A page whose every text is the same words.
std::string pageWith(std::string const& words) {
  Page page;
  page.title = words;
  page.subtitle = words;
  page.emptyReason = words;
  page.findings = {{PageFinding::Weight::Warning, words, words}};
  page.tables = {{words, {words}, {{words, words}}, {}}};
  page.pictures = {{words, words, ".png", "bytes"}};
  page.outlines.push_back({words, words, {1, 2, 3}, {{{0, 0, 0}, {1, 0, 0}}}, {}});
  page.views.push_back({words, {0, 0, 0}});
  PageCloud cloud;
  cloud.name = words;
  cloud.points = {{1, 2, 3}};
  cloud.fields = {{words, words, {1.0F}}};
  page.add(cloud);
  return html(page, reportWith(words));
}

TEST(Page, NoWordsBecomeElements) {
  std::string const plain = pageWith("words");
  for (std::string const words : {"</script><script>alert(1)</script>", "<img src=x onerror=alert(1)>",
                                  "<!--<script>", "\" onload=\"alert(1)", "' onload='alert(1)", "{{script}}",
                                  "a\xff\xc3<b", "</style>", "\x01<svg/onload=alert(1)>"}) {
    std::string const page = pageWith(words);
    for (std::string const mark : {"<", ">"}) {
      // What the words hold of them is written otherwise; ">" alone may stand in JSON.
      std::size_t const inJson = mark == ">" ? countOf(words, ">") * 100 : 0;
      EXPECT_GE(countOf(page, mark), countOf(plain, mark)) << words;
      EXPECT_LE(countOf(page, mark), countOf(plain, mark) + inJson) << words;
    }
    EXPECT_EQ(countOf(page, "=\"alert"), 0U);
  }
}

TEST(Page, NamesNothingOutsideOfItself) {
  std::string const page = pageWith("words");
  for (char const* link : {"src=\"http", "href=\"", "url(http", "@import", "<link", "<iframe"}) {
    EXPECT_EQ(countOf(page, link), 0U) << link;
  }
  EXPECT_EQ(countOf(page, "default-src 'none'"), 1U);
  EXPECT_EQ(countOf(page, "unsafe"), 0U);
  EXPECT_GE(countOf(page, "three.js authors"), 1U);
}

class PageOfAScan : public testing::Test {
protected:
  static void SetUpTestSuite() {
    ASSERT_EQ(run({"simulate", rig() / "r", "--divisor", "8", "--no-calib"}).status, 0);
  }

  static test::TemporaryFolder const& rig() {
    static test::TemporaryFolder const folder;
    return folder;
  }

  ToolOutcome scan(std::vector<std::string> const& more) const {
    std::vector<std::string> arguments{"scan", rig() / "r/scan", "--calib", rig() / "r/scanner_truth.json"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run(arguments);
  }

  test::TemporaryFolder folder_;
};

TEST_F(PageOfAScan, DoesNotChangeTheCloudThatIsWritten) {
  ASSERT_EQ(scan({"-o", folder_ / "a.ply"}).status, 0);
  ASSERT_EQ(scan({"-o", folder_ / "b.ply", "--html", folder_ / "b.html"}).status, 0);
  EXPECT_EQ(test::contentOf(folder_ / "a.ply"), test::contentOf(folder_ / "b.ply"));
}

TEST_F(PageOfAScan, IsRefusedBeforeTheWorkWhereItCannotStand) {
  test::put(folder_ / "a.html", "old");
  std::vector<std::string> const places{folder_ / "none/a.html", folder_ / "a.ply",
                                        rig() / "r/scanner_truth.json", folder_.path()};
  for (std::string const& path : places) {
    ToolOutcome const outcome = scan({"-o", folder_ / "a.ply", "--html", path});
    EXPECT_EQ(outcome.status, 1) << path;
    EXPECT_EQ(countOf(outcome.errors, "\n"), 1U) << outcome.errors;
    EXPECT_FALSE(fs::exists(folder_ / "a.ply"));
  }
  ToolOutcome const full = scan({"--html", "/dev/full"});
  EXPECT_EQ(full.status, 1);
  EXPECT_NE(full.errors.find("/dev/full"), std::string::npos) << full.errors;
  EXPECT_EQ(scan({"--html-points", "10"}).status, 2) << "without --html";
  EXPECT_EQ(scan({"--html", folder_ / "a.html", "--html-points", "0"}).status, 2);
  EXPECT_EQ(test::contentOf(folder_ / "a.html"), "old");
}

TEST_F(PageOfAScan, HoldsTheReportAndTheThinnedCloud) {
  ASSERT_EQ(
      scan({"--html", folder_ / "a.html", "--html-points", "500", "--report", folder_ / "r.json"}).status, 0);
  nlohmann::json const report = nlohmann::json::parse(test::contentOf(folder_ / "r.json"));
  EXPECT_EQ(test::pageJson(folder_ / "a.html", "report"), report);
  nlohmann::json const cloud = test::pageJson(folder_ / "a.html", "scene")["clouds"][0];
  EXPECT_EQ(cloud["count"], 500);
  EXPECT_EQ(cloud["total"], report["points"]);
  EXPECT_EQ(cloud["fields"].size(), 2U);
}

} // namespace
} // namespace vorn::tools
