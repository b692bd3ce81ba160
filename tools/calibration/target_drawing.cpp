// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/calibration/target_drawing.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <sstream>
#include <vector>

#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/core/exception.hpp>

#include "tools/calibration/board_drawing.hpp"
#include "tools/files/json_file.hpp"
#include "tools/files/output_path.hpp"

namespace vorn::tools {

namespace fs = std::filesystem;

namespace {

constexpr double mmPerInch = 25.4;

/// Bare ground around the outermost dot centres, in pitches: a detector looks at the ground around each dot.
constexpr double border = 1.0;
/// Height of the line of text below the target.
constexpr double textHeight = 3;
constexpr double textRoom = 2 * textHeight;

struct Greys {
  int ground;
  int dots;
};

/// White dots shine on a ground that is dark, but not so dark that light cannot be measured on it.
Greys greysOf(TargetDrawing const& target) {
  return target.hasDarkDots || target.board ? Greys{255, 40} : Greys{70, 255};
}

struct Disc {
  cv::Point2d centre;
  double radius;
};

std::vector<Disc> discsOf(TargetDrawing const& target) {
  cv::Size2d const page = pageSize(target);
  cv::Point2d const middle(0.5 * page.width, 0.5 * (page.height - textRoom));
  cv::Point2d const gridMiddle = 0.5 * cv::Point2d(target.minIndex + target.maxIndex);
  std::vector<Disc> discs;
  for (int y = target.minIndex.y; y <= target.maxIndex.y; ++y) {
    for (int x = target.minIndex.x; x <= target.maxIndex.x; ++x) {
      bool const isMarker = target.hasMarkers && x >= 0 && y >= 0 && x + y <= 1;
      discs.push_back({middle + (cv::Point2d(x, y) - gridMiddle) * target.pitch,
                       (isMarker ? 0.375 : 0.25) * target.pitch});
    }
  }
  return discs;
}

/// Where the first square of a board stands.
cv::Point2d boardCorner(TargetDrawing const& target) {
  cv::Size2d const page = pageSize(target);
  cv::Size2d const board = boardSize(*target.board);
  return {0.5 * (page.width - board.width), 0.5 * (page.height - textRoom - board.height)};
}

std::string caption(TargetDrawing const& target) {
  if (target.board) {
    return boardCaption(*target.board);
  }
  std::ostringstream text;
  text << "pitch " << target.pitch << " mm (measure it)   x " << target.minIndex.x << " to "
       << target.maxIndex.x << "   y " << target.minIndex.y << " to " << target.maxIndex.y;
  return text.str();
}

void drawDisc(cv::Mat& picture, cv::Point2d const& centre, double radius, int grey) {
  int const top = std::max(0, static_cast<int>(centre.y - radius) - 1);
  int const bottom = std::min(picture.rows - 1, static_cast<int>(centre.y + radius) + 2);
  int const left = std::max(0, static_cast<int>(centre.x - radius) - 1);
  int const right = std::min(picture.cols - 1, static_cast<int>(centre.x + radius) + 2);
  for (int y = top; y <= bottom; ++y) {
    for (int x = left; x <= right; ++x) {
      double const share = std::clamp(radius - std::hypot(x - centre.x, y - centre.y) + 0.5, 0.0, 1.0);
      auto& pixel = picture.at<std::uint8_t>(y, x);
      pixel = cv::saturate_cast<std::uint8_t>(pixel + share * (grey - pixel));
    }
  }
}

std::uint32_t pngChecksum(std::uint8_t const* bytes, std::size_t size) {
  std::uint32_t crc = 0xffffffffU;
  for (std::size_t i = 0; i < size; ++i) {
    crc ^= bytes[i];
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc >> 1U) ^ ((crc & 1U) != 0 ? 0xedb88320U : 0U);
    }
  }
  return ~crc;
}

void appendBigEndian(std::vector<std::uint8_t>& bytes, std::uint32_t value) {
  for (unsigned shift : {24U, 16U, 8U, 0U}) {
    bytes.push_back(static_cast<std::uint8_t>(value >> shift));
  }
}

/// A PNG with the physical size of its pixels, chunk pHYs (ISO/IEC 15948, 11.3.5.3).
std::vector<std::uint8_t> pngToScale(cv::Mat const& picture, double resolution) {
  std::vector<std::uint8_t> bytes;
  cv::imencode(".png", picture, bytes);
  auto const pixelsPerMetre = static_cast<std::uint32_t>(std::lround(1000.0 * resolution / mmPerInch));
  std::vector<std::uint8_t> chunk;
  appendBigEndian(chunk, 9);
  for (char const c : {'p', 'H', 'Y', 's'}) {
    chunk.push_back(static_cast<std::uint8_t>(c));
  }
  appendBigEndian(chunk, pixelsPerMetre);
  appendBigEndian(chunk, pixelsPerMetre);
  chunk.push_back(1); // the unit is the metre
  constexpr std::size_t lengthField = 4;
  appendBigEndian(chunk, pngChecksum(chunk.data() + lengthField, chunk.size() - lengthField));
  constexpr std::ptrdiff_t signatureAndHeader = 33;
  bytes.insert(bytes.begin() + signatureAndHeader, chunk.begin(), chunk.end());
  return bytes;
}

/// Nobody asked for the description's file by name: one that is something else, or holds what was measured,
/// stays.
void checkReplaceable(std::string const& path) {
  if (!fs::exists(path)) {
    return;
  }
  mv::TargetDescription old;
  try {
    load(path, old);
  } catch (Exception const&) {
    throw Exception("The description of the target would replace " + path +
                        ", which is none; give the target another name",
                    nullptr, 0, "target");
  }
  if (!old.deviations.empty()) {
    throw Exception("The description of the target would replace " + path + ", which holds deviations of " +
                        std::to_string(old.deviations.size()) + " dots; give the target another name",
                    nullptr, 0, "target");
  }
}

} // namespace

namespace {

/// The least page that the target takes.
/// @throws Exception when its figures make no target
cv::Size2d leastPage(TargetDrawing const& target) {
  if (target.board) {
    target.board->check();
    cv::Size2d const board = boardSize(*target.board);
    double const white = 2 * border * target.board->pitch;
    return {board.width + white, board.height + white + textRoom};
  }
  cv::Point const steps = target.maxIndex - target.minIndex;
  if (!(target.pitch > 0) || steps.x < 1 || steps.y < 1 || !(target.resolution > 0)) {
    throw Exception("A target needs a pitch, a resolution and at least two columns and two rows", nullptr, 0,
                    "target");
  }
  return {(steps.x + 2 * border) * target.pitch, (steps.y + 2 * border) * target.pitch + textRoom};
}

} // namespace

cv::Size2d pageSize(TargetDrawing const& target) {
  cv::Size2d const least = leastPage(target);
  if (target.page.empty()) {
    return least;
  }
  if (target.page.width < least.width || target.page.height < least.height) {
    std::ostringstream message;
    message << "The target needs " << least.width << " x " << least.height << " mm, the page has "
            << target.page.width << " x " << target.page.height;
    throw Exception(message.str(), nullptr, 0, "target");
  }
  return target.page;
}

std::string targetSvg(TargetDrawing const& target) {
  cv::Size2d const page = pageSize(target);
  Greys const greys = greysOf(target);
  auto const grey = [](int g) {
    return "rgb(" + std::to_string(g) + "," + std::to_string(g) + "," + std::to_string(g) + ")";
  };
  std::ostringstream svg;
  svg.precision(10);
  svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << page.width << "mm\" height=\"" << page.height
      << "mm\" viewBox=\"0 0 " << page.width << ' ' << page.height << "\">\n<rect width=\"" << page.width
      << "\" height=\"" << page.height << "\" fill=\"" << grey(greys.ground) << "\"/>\n<g fill=\""
      << grey(greys.dots) << "\">\n";
  if (target.board) {
    svg << boardSvg(*target.board, boardCorner(target));
  }
  for (Disc const& disc : target.board ? std::vector<Disc>() : discsOf(target)) {
    svg << "<circle cx=\"" << disc.centre.x << "\" cy=\"" << disc.centre.y << "\" r=\"" << disc.radius
        << "\"/>\n";
  }
  svg << "<text x=\"" << textHeight << "\" y=\"" << page.height - 0.5 * textHeight
      << "\" font-family=\"sans-serif\" font-size=\"" << textHeight << "\">" << caption(target)
      << "</text>\n</g>\n</svg>\n";
  return svg.str();
}

cv::Mat targetPicture(TargetDrawing const& target) {
  cv::Size2d const page = pageSize(target);
  double const pixelsPerMm = target.resolution / mmPerInch;
  constexpr double mostPixels = 5e8;
  if (page.area() * pixelsPerMm * pixelsPerMm > mostPixels) {
    throw Exception("The picture would have more than 500 million pixels: lower the resolution", nullptr, 0,
                    "target");
  }
  Greys const greys = greysOf(target);
  cv::Mat picture(cvRound(page.height * pixelsPerMm), cvRound(page.width * pixelsPerMm), CV_8U,
                  cv::Scalar::all(greys.ground));
  if (target.board) {
    drawBoard(picture, *target.board, boardCorner(target), pixelsPerMm, greys.dots);
  }
  for (Disc const& disc : target.board ? std::vector<Disc>() : discsOf(target)) {
    // A pixel's centre lies half a pixel inside its edge.
    drawDisc(picture, disc.centre * pixelsPerMm - cv::Point2d(0.5, 0.5), disc.radius * pixelsPerMm,
             greys.dots);
  }
  constexpr double fontHeight = 22; // pixels of the font at scale 1
  double const scale = textHeight * pixelsPerMm / fontHeight;
  cv::putText(picture, caption(target),
              {cvRound(textHeight * pixelsPerMm), picture.rows - cvRound(0.5 * textHeight * pixelsPerMm)},
              cv::FONT_HERSHEY_SIMPLEX, scale, cv::Scalar::all(greys.dots), std::max(1, cvRound(1.5 * scale)),
              cv::LINE_AA);
  return picture;
}

mv::TargetDescription describe(TargetDrawing const& target) {
  if (target.board) {
    return *target.board;
  }
  mv::TargetDescription description;
  description.pitch = target.pitch;
  description.size = target.maxIndex - target.minIndex + cv::Point(1, 1);
  description.first = target.minIndex;
  if (target.hasMarkers) {
    description.marks = {{0, 0}, {1, 0}, {0, 1}};
  }
  description.polarity = target.hasDarkDots ? mv::TargetPolarity::Dark : mv::TargetPolarity::Bright;
  return description;
}

std::vector<std::string> targetFiles(std::string const& path) {
  std::string const extension = fs::path(path).extension().string();
  if (!extension.empty() && extension != ".svg" && extension != ".png") {
    throw Exception("A target is written as .svg or .png, not to " + path, nullptr, 0, "target");
  }
  std::string const stem = extension.empty() ? path : fs::path(path).replace_extension().string();
  std::vector<std::string> files =
      extension.empty() ? std::vector<std::string>{stem + ".svg", stem + ".png"} : std::vector{path};
  files.push_back(stem + ".json");
  return files;
}

void writeTarget(std::string const& path, TargetDrawing const& target) {
  std::vector<std::string> const paths = targetFiles(path);
  checkReplaceable(paths.back());
  nlohmann::json description;
  describe(target).write(description);
  std::vector<FileContent> files;
  for (std::string const& file : paths) {
    std::string const extension = fs::path(file).extension().string();
    if (extension == ".svg") {
      files.push_back({file, targetSvg(target)});
    } else if (extension == ".png") {
      std::vector<std::uint8_t> const png = pngToScale(targetPicture(target), target.resolution);
      files.push_back({file, std::string(png.begin(), png.end())});
    } else {
      files.push_back({file, jsonText(description)});
    }
  }
  writeTogether(files);
}

} // namespace vorn::tools
