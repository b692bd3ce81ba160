// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/core/export.hpp>

namespace vorn::mv {

/// The projector coordinates that light camera points, such as the centres of a calibration target's dots:
/// the bridge from dots that a camera detected to the calibration of the projector.
///
/// Around each point a polynomial of second degree is fitted to either decoded map, in the least-squares
/// sense with Tukey's biweight (A. E. Beaton, J. W. Tukey, Technometrics 16, 1974) from a median start, and
/// taken at the point. The neighbourhood is round and reaches half way to the nearest other point. It is
/// symmetric about a dot's centre, so that what the step of albedo at the dot's edge does to the decoded
/// coordinates cancels. Pixels inside and outside the dot count by the noise they have.
///
/// A point is not valid when the light around it is incomplete: it lies at the edge of the projector's image,
/// of the camera's, or of a hole in the maps that reaches into the dot.
///
/// Working memory: none that grows with the maps.
/// @param columns  H x W CV_32FC1, projector column seen by each camera pixel; negative or NaN where not
/// decoded
/// @param rows     the same for projector rows
/// @param imgPnts  camera pixels; points that are not finite are not valid
/// @param projPnts (out) projector pixels, one for each point; (-1, -1) where not valid
/// @param valid    (out) 1 or 0 for each point
/// @throws Exception when the maps are not CV_32FC1 of one size
VORN_API void find_projector_points(cv::Mat const& columns, cv::Mat const& rows,
                                    std::vector<cv::Point2f> const& imgPnts,
                                    std::vector<cv::Point2f>& projPnts, std::vector<std::uint8_t>& valid);

/// The same, with how exact each point is read: one standard deviation of its column and of its row, from how
/// the pixels around it scatter about the polynomial. An error of the camera point is not in it. Errors that
/// neighbouring pixels share, such as a smoothed map's, make it too small, but for all points alike: as
/// weights
/// (`AdjustmentView::sigmas1`) it serves all the same.
///
/// @param sigmas (out) projector pixels, above 0 along x and y; (0, 0) where not valid
VORN_API void find_projector_points(cv::Mat const& columns, cv::Mat const& rows,
                                    std::vector<cv::Point2f> const& imgPnts,
                                    std::vector<cv::Point2f>& projPnts, std::vector<cv::Point2f>& sigmas,
                                    std::vector<std::uint8_t>& valid);

/// The same for the corners of a chessboard or a ChArUco board, whose black squares return too little light
/// to be decoded.
///
/// The polynomials are fitted to the pixels in the two white squares that meet in a corner, those within one
/// to three pixels of an edge left out: across edges the camera's blur mixes light of places that the
/// projector sees apart. The neighbourhood reaches most of the way to the next corner. A corner is valid when
/// what is decoded close to it stands alike on opposite sides, so that the polynomial interpolates.
///
/// @param light what the camera sees under full light, of the maps' size; one channel or three, any depth
/// that `detectTarget` takes
/// @param imgPnts corners where four squares meet, camera pixels; points that are not finite are not valid
/// @throws Exception when the maps are not CV_32FC1 of one size, and for an image of another size or a type
/// that is none
VORN_API void find_projector_corners(cv::Mat const& columns, cv::Mat const& rows, cv::Mat const& light,
                                     std::vector<cv::Point2f> const& imgPnts,
                                     std::vector<cv::Point2f>& projPnts, std::vector<cv::Point2f>& sigmas,
                                     std::vector<std::uint8_t>& valid);

} // namespace vorn::mv
