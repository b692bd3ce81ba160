// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/core/observer.hpp>

namespace vorn::tools {

/// Whether a file's name ends like that of a picture that can be read.
bool hasPictureEnding(std::filesystem::path const& path);

/// Reads a picture as 8-bit grey.
/// @throws Exception as `readInputFile`; when the file is no picture that OpenCV reads; when it has 16 bits
///         and no value above 4095, of which the upper 8 bits would hold hardly anything
cv::Mat readGrayImage(std::string const& path);

/// Reads a picture of a projector's or plain light in its full depth: those of 8 bits grey, as
/// `readGrayImage`; deeper ones in the type they are stored in.
/// @throws Exception as `readImage`
cv::Mat readMeasuredImage(std::string const& path);

/// Reads a picture as grey in its full depth: one channel, where `readMeasuredImage` keeps the colours of
/// deep ones.
/// @throws Exception as `readImage`
cv::Mat readDeepGrayImage(std::string const& path);

/// Reads a picture in the type it is stored in, with alpha dropped; a warning says so for PNG files.
cv::Mat readImage(std::string const& path);

/// How PNG files are packed: fast for what is large, small for what is drawn.
enum class Packing { Fast, Small };

/// The bytes of a picture file in the format of the path's extension.
/// @throws Exception for an unknown extension
std::string encodedImage(std::string const& path, cv::Mat const& image, Packing packing = Packing::Fast);

/// For what is to be told before long work.
/// @throws Exception when a path's ending is that of no picture format; none for an empty path
void checkPicturePath(std::string const& path);

/// Writes a picture in the format of the path's extension; an existing file is replaced only once the new one
/// is complete.
/// @throws Exception for an unknown extension, or when the file cannot be written
void writeImage(std::string const& path, cv::Mat const& image);

/// Makes a folder and those above it, where they are missing.
/// @throws Exception when that is not possible
void makeFolder(std::string const& path);

/// A file of a numbered sequence, such as columns_07.png: its number and its path.
struct NumberedFile {
  int number;
  std::string path;
};

/// The pictures PREFIX_NN.* (png, bmp, tif, tiff, jpg, jpeg, pgm) in a folder, by their numbers.
/// @throws Exception when the folder does not exist, when two have the same number, or when a number is
/// missing
///         between 0 and the last
std::vector<NumberedFile> findSequence(std::string const& folder, std::string const& prefix);

/// Reads the sequence PREFIX_00, PREFIX_01, ..., images of one size, each by `read`.
/// @throws Exception that names the picture which is missing, unreadable or of another size or type than the
/// first
std::vector<cv::Mat> readSequence(std::string const& folder, std::string const& prefix,
                                  cv::Mat (*read)(std::string const&) = readGrayImage,
                                  Observer* observer = nullptr);

/// The name of picture `number` of a sequence: FOLDER/PREFIX_NN.png.
std::string sequencePath(std::string const& folder, std::string const& prefix, int number);

} // namespace vorn::tools
