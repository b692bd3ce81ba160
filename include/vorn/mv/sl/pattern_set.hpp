// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>
#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>
#include <vorn/core/interfaces.hpp>

namespace vorn::mv {

/// What an image of a pattern set shows.
enum class PatternRole {
  Phase,     ///< fringes: one of the steps of a phase shift
  Bit,       ///< one bit of the numbers of stripes
  White,     ///< all pixels lit
  Black,     ///< none
  Reference, ///< what bits are compared with: a pixel is lit where it is brighter than here
  Line       ///< bright lines on dark ground; decoding passes them over, `find_stripes` finds them
};

/// Which projector coordinate an image codes.
enum class PatternAxis { Column, Row };

/// How the number of a stripe is written in bits.
enum class BitCode {
  Gray,   ///< reflected: from stripe to stripe one bit changes
  Binary, ///< as numbers are
  Xor ///< that of `generate_ps4_patterns`: of the number + 2, bit 0, and each other one exclusive-or bit 0
};

/// One image of a set. With c the projector coordinate of its axis, whose pixel centres are whole numbers:
///
/// - Phase: brightness 1/2 + 1/2 sin(2 pi (c / period + sign * step / steps + offset / 360));
/// - Bit: bit `bit` of the number floor((c + shift) / cell), written as `code` says;
/// - Line: lit where (c + shift) modulo `period`, all whole numbers, is below `cell`, dark elsewhere.
struct PatternImage {
  std::string file;                       ///< its name beside the description; may be empty
  PatternRole role = PatternRole::White;  ///< what it shows
  PatternAxis axis = PatternAxis::Column; ///< along which it changes; of no meaning for plain images
  /// How long the camera looks, in any unit: images of one pattern at several exposures are merged.
  double exposure = 1.0;

  double period = 0.0; ///< of fringes and lines, projector pixels; at least 2
  int step = 0;        ///< of a phase shift: 0 to `steps` - 1
  int steps = 1;       ///< 1 for fringes whose offsets are all given
  double offset = 0.0; ///< degrees
  int sign = 1;        ///< 1, or -1 for fringes that move the other way

  BitCode code = BitCode::Gray; ///< of stripes
  int bit = 0;                  ///< 0 for the one that changes most often
  double cell = 1.0;            ///< width of a stripe or line, projector pixels
  double shift = 0.0;           ///< by how much stripe 0 begins before pixel 0, projector pixels
  bool isInverse = false;       ///< dark and lit exchanged

  /// What it is in words, such as "step 1 of 4 of period 16 along columns".
  VORN_API std::string describe() const;
};

/// Which coordinates a set codes.
enum class PatternAxes { Both, Columns, Rows };

/// What a built-in set is to be like. 0 leaves a number to the set.
struct PatternSetOptions {
  PatternAxes axes = PatternAxes::Both; ///< what to code
  int steps = 0;                        ///< of every phase shift, 3 to 32; usually 4
  double period = 0.0;                  ///< of the finest fringes, projector pixels
  /// Whether every bit is followed by its inverse; else white and black come first. Of gray and gray-phase.
  bool hasInverses = true;
};

/// The images that a projector shows one after another, and what each of them means: everything that those
/// who project, capture and decode them must agree on.
struct VORN_API PatternSet : IJsonSerializable {
  std::string name;                 ///< such as "gray-phase"; free for sets of others
  cv::Size projector;               ///< columns and rows
  std::vector<PatternImage> images; ///< in the order in which they are shown

  /// A set that needs no description:
  ///
  /// - "xor4", that of `generate_ps4_patterns`, whose fringes and steps are given;
  /// - "gray": stripes of one pixel, in Gray code;
  /// - "gray-phase": fringes of 8 pixels, and a Gray code of stripes half as wide;
  /// - "multi-frequency": fringes as long as the image, and ever shorter ones down to 16 pixels (J. M.
  /// Huntley,
  ///   H. O. Saldner, Applied Optics 32, 1993);
  /// - "heterodyne": three fringes of almost one period, n, n - 1 and n - sqrt(n) of them in the image (C. E.
  ///   Towers, D. P. Towers, J. D. C. Jones, Optics Letters 28, 2003).
  ///
  /// Columns come before rows.
  /// @throws Exception for an unknown name, for options that the set does not have, and what `validate`
  ///         throws
  static PatternSet builtIn(std::string const& name, cv::Size projector,
                            PatternSetOptions const& options = {});
  /// The names that `builtIn` knows.
  static std::vector<std::string> const& builtInNames();

  bool codes(PatternAxis axis) const; ///< whether an image codes that coordinate

  /// The images as the projector takes them: CV_8UC1 of its size, one for each entry of `images`, those of
  /// several exposures alike.
  /// @param gammaTable what the projector must be given to show a brightness of 0 to 255; empty to show it as
  ///        it is, else 256 entries
  /// @throws Exception as `validate`, and for a table of another length
  std::vector<cv::Mat> generate(std::vector<std::uint8_t> const& gammaTable = {}) const;

  /// Checks that the set can be decoded: every image is possible and there once, no step, bit or inverse is
  /// missing, the steps determine a phase, every coordinate of the projector looks different, and exposures
  /// are the same for all patterns, in rising order.
  /// @throws Exception that names the image and the value
  void validate() const;

  /// Reads "name", "projector" [columns, rows] and "images", a list of objects:
  ///
  /// - "file", or "files", a list of names that stands for as many images;
  /// - "role": "phase", "gray", "binary", "xor", "white", "black", "reference" or "line";
  /// - "axis" of fringes and bits: "column" or "row"; "exposure";
  /// - of fringes "period", "step", "steps", "offset" (of "files" also a list) and "sign". "files" are steps
  ///   one after another, from "step" or 0, of as many steps as files;
  /// - of lines, one image each, "period", "cell" and "shift";
  /// - of bits "bit", "cell", "shift", "inverse". "files" are bits one after another, from the highest down
  ///   to 0, or from "bit" in the order "order" says, "falling" or "rising"; with "inverse" "each" every one
  ///   is followed by its inverse.
  ///
  /// The set is as it was when it throws.
  /// @throws Exception for a member that is missing, unknown, or of a wrong type or value, and as `validate`
  void read(nlohmann::json const& json) override;
  /// Writes each image by itself.
  void write(nlohmann::json& json) const override;
};

} // namespace vorn::mv
