// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/image_files.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <optional>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/core/atomic_file.hpp>
#include <vorn/core/exception.hpp>

#include "tools/commands/size_option.hpp"
#include "tools/files/input_file.hpp"
#include "tools/files/output_path.hpp"
#include "tools/files/silence.hpp"
#include "tools/files/tiff_bytes.hpp"
#include "tools/progress.hpp"
#include "tools/report/warning.hpp"

namespace vorn::tools {

namespace fs = std::filesystem;

namespace {

Exception failure(std::string const& message) {
  return {message, nullptr, 0, "images"};
}

/// Whether a JPEG file breaks off: its reader fills what is missing with grey and says nothing. In the coded
/// picture, which the first scan (FF DA) begins, FF D9 stands for nothing but the end.
bool isCutJpeg(std::vector<unsigned char> const& bytes) {
  constexpr unsigned char marker = 0xFF;
  constexpr unsigned char startOfImage = 0xD8;
  constexpr unsigned char startOfScan = 0xDA;
  constexpr unsigned char endOfImage = 0xD9;
  if (bytes.size() < 4 || bytes[0] != marker || bytes[1] != startOfImage) {
    return false;
  }
  std::size_t at = 2;
  while (at + 4 <= bytes.size() && bytes[at] == marker && bytes[at + 1] != startOfScan) {
    // A fill byte stands alone, a segment says its length.
    at += bytes[at + 1] == marker ? 1U : 2U + 256U * bytes[at + 2] + bytes[at + 3];
  }
  std::vector<unsigned char> const end{marker, endOfImage};
  return at >= bytes.size() || std::search(bytes.begin() + static_cast<std::ptrdiff_t>(at), bytes.end(),
                                           end.begin(), end.end()) == bytes.end();
}

/// The picture in a file's bytes; empty when there is none. What the codecs would say of it names no file.
cv::Mat decodedQuietly(std::vector<unsigned char> const& bytes, int flags) {
  Silence const silence;
  try {
    return bytes.empty() ? cv::Mat() : cv::imdecode(bytes, flags);
  } catch (cv::Exception const&) {
    return {};
  }
}

cv::Mat decoded(std::string const& path, std::vector<unsigned char> const& bytes, int flags) {
  if (isCutJpeg(bytes)) {
    throw failure(path + " is incomplete: the end of the picture is missing");
  }
  cv::Mat image = decodedQuietly(bytes, flags);
  if (image.empty() && isMosaicTiff(bytes)) {
    throw failure(
        path + " holds the raw pixels of a colour sensor (a Bayer mosaic): make a grey or a colour picture "
               "of it first");
  }
  if (image.empty()) {
    throw failure(path + " is not a picture that can be read");
  }
  return image;
}

/// Whether a PNG file has an alpha channel, as its colour type says.
bool isPngWithAlpha(std::vector<unsigned char> const& bytes) {
  constexpr std::size_t colourType = 25; // behind signature, length and name of the first chunk, and the size
  constexpr unsigned char alphaBit = 4;
  return bytes.size() > colourType && bytes[0] == 0x89 && bytes[1] == 'P' &&
         (bytes[colourType] & alphaBit) != 0;
}

/// A picture in 8 bits: of deeper ones the upper 8.
/// @throws Exception also for 16 bits of which hardly more than 12 are used: nearly nothing would be left
cv::Mat decodedIn8Bits(std::string const& path, std::vector<unsigned char> const& bytes) {
  constexpr int flags = cv::IMREAD_GRAYSCALE;
  constexpr std::size_t pngDepth = 24; // behind signature, length and name of the first chunk, and the size
  bool const isPng = bytes.size() > pngDepth && bytes[0] == 0x89 && bytes[1] == 'P';
  bool const isPnm = !bytes.empty() && bytes[0] == 'P'; // of 16 bits when its greatest value says so
  if (isPng ? bytes[pngDepth] == 16 : isPnm || isTiff(path)) {
    cv::Mat const deep = decoded(path, bytes, flags | cv::IMREAD_ANYDEPTH);
    double most = 0;
    cv::minMaxLoc(deep.reshape(1), nullptr, &most);
    constexpr double range12 = 4096;
    if (deep.depth() == CV_16U && most < range12) {
      throw failure(
          path + " has 16 bits but no value above " + std::to_string(std::lround(most)) +
          ": of what is measured, its upper 8 bits, hardly anything is left. Store values of 10 or 12 "
          "bits in the upper bits, or the picture in 8 bits");
    }
  }
  return decoded(path, bytes, flags);
}

/// A picture in the type it is stored in, with alpha dropped.
cv::Mat decodedAsStored(std::string const& path, std::vector<unsigned char> const& bytes) {
  cv::Mat image = decoded(path, bytes, cv::IMREAD_ANYCOLOR | cv::IMREAD_ANYDEPTH);
  if (isPngWithAlpha(bytes)) {
    warn("the transparency (alpha) of " + path + " is left out");
  }
  return image;
}

/// The bytes of a file of which one picture is wanted.
std::vector<unsigned char> readPictureFile(std::string const& path) {
  std::vector<unsigned char> bytes = readInputFile(path);
  if (std::size_t const pages = pageCount(bytes); pages > 1) {
    warn(path + " has " + std::to_string(pages) + " pages, of which the first alone is read");
  }
  return bytes;
}

/// The number in PREFIX_NN.EXT, when `name` is such a name.
std::optional<int> sequenceNumber(fs::path const& name, std::string const& prefix) {
  std::string const stem = name.stem().string();
  std::string const start = prefix + "_";
  constexpr std::size_t mostDigits = 6;
  if (!hasPictureEnding(name) || stem.rfind(start, 0) != 0 || stem.size() == start.size() ||
      stem.size() > start.size() + mostDigits ||
      !std::all_of(stem.begin() + static_cast<std::ptrdiff_t>(start.size()), stem.end(),
                   [](unsigned char c) { return std::isdigit(c) != 0; })) {
    return std::nullopt;
  }
  return std::stoi(stem.substr(start.size()));
}

} // namespace

bool hasPictureEnding(std::filesystem::path const& path) {
  static std::vector<std::string> const endings{".png", ".bmp", ".tif", ".tiff", ".jpg", ".jpeg", ".pgm"};
  return std::find(endings.begin(), endings.end(), lowerCaseEnding(path)) != endings.end();
}

cv::Mat readGrayImage(std::string const& path) {
  return decodedIn8Bits(path, readPictureFile(path));
}

cv::Mat readImage(std::string const& path) {
  return decodedAsStored(path, readPictureFile(path));
}

cv::Mat readMeasuredImage(std::string const& path) {
  std::vector<unsigned char> const bytes = readPictureFile(path);
  cv::Mat const image = decodedAsStored(path, bytes);
  // Colours become grey as ever, which is not to the bit what could be made of them here.
  return image.type() == CV_8UC1 || image.depth() != CV_8U ? image : decodedIn8Bits(path, bytes);
}

cv::Mat readDeepGrayImage(std::string const& path) {
  cv::Mat image = readMeasuredImage(path);
  if (image.channels() == 3) {
    cv::cvtColor(image, image, cv::COLOR_BGR2GRAY);
  }
  return image;
}

std::string encodedImage(std::string const& path, cv::Mat const& image, Packing packing) {
  std::string const extension = fs::path(path).extension().string();
  std::vector<unsigned char> bytes;
  bool encoded = false;
  // The default for floating-point TIFF is a lossy encoding of luminance.
  constexpr int lzw = 5;
  std::vector<int> parameters{cv::IMWRITE_TIFF_COMPRESSION, lzw};
  if (packing == Packing::Small) {
    constexpr int most = 9;
    parameters.insert(parameters.end(), {cv::IMWRITE_PNG_COMPRESSION, most, cv::IMWRITE_PNG_STRATEGY,
                                         cv::IMWRITE_PNG_STRATEGY_DEFAULT});
  }
  try {
    encoded = !extension.empty() && cv::imencode(extension, image, bytes, parameters);
  } catch (cv::Exception const&) {
    encoded = false;
  }
  if (!encoded) {
    throw failure("Cannot write " + path + ": no picture format for the ending \"" + extension + "\"");
  }
  return {bytes.begin(), bytes.end()};
}

void checkPicturePath(std::string const& path) {
  if (!path.empty()) {
    encodedImage(path, cv::Mat::zeros(1, 1, CV_8UC3));
  }
}

void writeImage(std::string const& path, cv::Mat const& image) {
  std::string const bytes = encodedImage(path, image);
  AtomicFile file(path);
  file.write(bytes);
  file.commit();
}

void makeFolder(std::string const& path) {
  std::error_code reason;
  fs::create_directories(path, reason);
  if (reason) {
    throw failure("Cannot make the folder " + path + ": " + reason.message());
  }
}

std::vector<NumberedFile> findSequence(std::string const& folder, std::string const& prefix) {
  if (!fs::is_directory(folder)) {
    throw failure("There is no folder " + folder);
  }
  std::vector<NumberedFile> files;
  for (auto const& entry : fs::directory_iterator(folder)) {
    if (auto const number = sequenceNumber(entry.path().filename(), prefix)) {
      files.push_back({*number, entry.path().string()});
    }
  }
  std::sort(files.begin(), files.end(), [](NumberedFile const& a, NumberedFile const& b) {
    return a.number != b.number ? a.number < b.number : a.path < b.path;
  });
  for (std::size_t i = 0; i < files.size(); ++i) {
    int const expected = static_cast<int>(i);
    if (files[i].number > expected) {
      throw failure("The sequence in " + folder + " has a gap: " + sequencePath("", prefix, expected) +
                    " is missing");
    }
    if (files[i].number < expected) {
      throw failure(files[i - 1].path + " and " + files[i].path + " have the same number");
    }
  }
  return files;
}

std::vector<cv::Mat> readSequence(std::string const& folder, std::string const& prefix,
                                  cv::Mat (*read)(std::string const&), Observer* observer) {
  std::vector<NumberedFile> const files = findSequence(folder, prefix);
  std::vector<cv::Mat> images;
  for (NumberedFile const& file : files) {
    tell(observer, "reading " + prefix, images.size(), files.size());
    images.push_back(read(file.path));
    if (images.back().size() != images.front().size()) {
      throw failure(file.path + " is " + sizeText(images.back().size()) + ", but " + files.front().path +
                    " is " + sizeText(images.front().size()));
    }
    if (images.back().type() != images.front().type()) {
      throw failure(file.path + " is " + cv::typeToString(images.back().type()) + ", but " +
                    files.front().path + " is " + cv::typeToString(images.front().type()));
    }
  }
  return images;
}

std::string sequencePath(std::string const& folder, std::string const& prefix, int number) {
  char name[16];
  std::snprintf(name, sizeof name, "_%02d.png", number);
  return (fs::path(folder) / (prefix + name)).string();
}

} // namespace vorn::tools
