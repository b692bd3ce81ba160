// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "measure/inked_row.hpp"

#include <algorithm>
#include <cmath>
#include <type_traits>

#include <opencv2/core.hpp>
#include <opencv2/core/hal/intrin.hpp>

namespace vorn::mv {

namespace {

template <class T>
T mixed(T old, double color, double share) {
  if constexpr (std::is_floating_point_v<T>) {
    // What is not finite has no shade to mix with.
    return static_cast<T>(
        std::isfinite(old) ? static_cast<double>(old) + (color - static_cast<double>(old)) * share : color);
  } else {
    return cv::saturate_cast<T>(old + (color - old) * share);
  }
}

template <class T>
void blendPixels(T* row, float const* coverage, int columns, cv::Vec3d const& color) {
  for (int x = 0; x < columns; ++x) {
    if (coverage[x] > 0.0F) {
      double const share = std::min(1.0, static_cast<double>(coverage[x]));
      for (int c = 0; c < 3; ++c) {
        // What is covered counts no more, be it a NaN of a picture that nothing was drawn into yet.
        row[3 * x + c] =
            share < 1.0 ? mixed(row[3 * x + c], color[c], share) : cv::saturate_cast<T>(color[c]);
      }
    }
  }
}

/// Shares of ink, rim and what was there before, in 256ths.
constexpr int whole = 256;

/// The same in whole numbers: bytes are what most pictures are made of.
void blendPixels(uchar* row, float const* coverage, int columns, cv::Vec3d const& color) {
  cv::Vec3i const bytes(cv::saturate_cast<uchar>(color[0]), cv::saturate_cast<uchar>(color[1]),
                        cv::saturate_cast<uchar>(color[2]));
  for (int x = 0; x < columns; ++x) {
    int const share = static_cast<int>(std::min(1.0F, coverage[x]) * static_cast<float>(whole) + 0.5F);
    for (int c = 0; c < 3 && share > 0; ++c) {
      row[3 * x + c] =
          static_cast<uchar>((row[3 * x + c] * (whole - share) + bytes[c] * share + whole / 2) / whole);
    }
  }
}

float shareOf(float reach, float distance) {
  return std::clamp(reach - distance, 0.0F, 1.0F);
}

template <class T>
void inkPixel(T* pixel, float distance, InkedPen const& pen) {
  float const inked = shareOf(pen.inkReach, distance);
  float const rimmed = shareOf(pen.haloReach, distance);
  for (int c = 0; c < 3; ++c) {
    if (inked < 1.0F) {
      pixel[c] = mixed(pixel[c], pen.halo[c], static_cast<double>(rimmed));
    }
    pixel[c] = mixed(pixel[c], pen.color[c], static_cast<double>(inked));
  }
}

template <class T>
void inkPixels(T* row, float const* distances, int columns, InkedPen const& pen) {
  float const reach = std::max(pen.inkReach, pen.haloReach);
  for (int x = 0; x < columns; ++x) {
    if (distances[x] < reach) {
      inkPixel(row + 3 * x, distances[x], pen);
    }
  }
}

/// Bytes are mixed in whole numbers of 16 bits.
void inkPixel(uchar* pixel, float distance, InkedPen const& pen) {
  auto const shareIn = [](float share, float of) {
    return static_cast<int>(std::lrint(static_cast<double>(share * of)));
  };
  int const inked = shareIn(shareOf(pen.inkReach, distance), whole);
  int const rimmed = shareIn(shareOf(pen.haloReach, distance), static_cast<float>(whole - inked));
  for (int c = 0; c < 3; ++c) {
    int const value = pixel[c] * (whole - inked - rimmed) + static_cast<int>(pen.halo[c]) * rimmed +
                      static_cast<int>(pen.color[c]) * inked;
    pixel[c] = static_cast<uchar>((value + whole / 2) / whole);
  }
}

#if CV_SIMD128
constexpr int chunk = 16; // pixels mixed at once

/// The shares of 16 pixels.
struct Shares {
  cv::v_uint16x8 inked[2];
  cv::v_uint16x8 rimmed[2];
  cv::v_uint16x8 kept[2];
};

/// The shares that `inkPixel` takes; none where all pixels are out of reach.
bool sharesOf(float const* distances, InkedPen const& pen, Shares& shares) {
  cv::v_float32x4 const none = cv::v_setzero_f32();
  cv::v_float32x4 const one = cv::v_setall_f32(1.0F);
  cv::v_float32x4 const all = cv::v_setall_f32(static_cast<float>(whole));
  cv::v_float32x4 const inkReach = cv::v_setall_f32(pen.inkReach);
  cv::v_float32x4 const haloReach = cv::v_setall_f32(pen.haloReach);
  cv::v_int32x4 inked[4];
  cv::v_int32x4 rimmed[4];
  cv::v_int32x4 any = cv::v_setzero_s32();
  for (int i = 0; i < 4; ++i) {
    cv::v_float32x4 const distance = cv::v_load(distances + 4 * i);
    inked[i] = cv::v_round(cv::v_min(cv::v_max(inkReach - distance, none), one) * all);
    rimmed[i] =
        cv::v_round(cv::v_min(cv::v_max(haloReach - distance, none), one) * (all - cv::v_cvt_f32(inked[i])));
    any = any | inked[i] | rimmed[i];
  }
  if (!cv::v_check_any(any > cv::v_setzero_s32())) {
    return false;
  }
  cv::v_uint16x8 const total = cv::v_setall_u16(static_cast<ushort>(whole));
  for (int i = 0; i < 2; ++i) {
    shares.inked[i] = cv::v_pack_u(inked[2 * i], inked[2 * i + 1]);
    shares.rimmed[i] = cv::v_pack_u(rimmed[2 * i], rimmed[2 * i + 1]);
    shares.kept[i] = total - shares.inked[i] - shares.rimmed[i];
  }
  return true;
}

cv::v_uint8x16 mixedBytes(cv::v_uint8x16 const& old, double halo, double color, Shares const& shares) {
  cv::v_uint16x8 parts[2];
  cv::v_expand(old, parts[0], parts[1]);
  cv::v_uint16x8 const ofHalo = cv::v_setall_u16(static_cast<ushort>(halo));
  cv::v_uint16x8 const ofColor = cv::v_setall_u16(static_cast<ushort>(color));
  cv::v_uint16x8 const half = cv::v_setall_u16(static_cast<ushort>(whole / 2));
  for (int i = 0; i < 2; ++i) {
    parts[i] = (cv::v_mul_wrap(parts[i], shares.kept[i]) + cv::v_mul_wrap(ofHalo, shares.rimmed[i]) +
                cv::v_mul_wrap(ofColor, shares.inked[i]) + half) >>
               8;
  }
  return cv::v_pack(parts[0], parts[1]);
}
#endif

void inkPixels(uchar* row, float const* distances, int columns, InkedPen const& pen) {
  int x = 0;
#if CV_SIMD128
  Shares shares;
  for (; x + chunk <= columns; x += chunk) {
    if (sharesOf(distances + x, pen, shares)) {
      cv::v_uint8x16 planes[3];
      cv::v_load_deinterleave(row + 3 * x, planes[0], planes[1], planes[2]);
      for (int c = 0; c < 3; ++c) {
        planes[c] = mixedBytes(planes[c], pen.halo[c], pen.color[c], shares);
      }
      cv::v_store_interleave(row + 3 * x, planes[0], planes[1], planes[2]);
    }
  }
#endif
  for (; x < columns; ++x) {
    inkPixel(row + 3 * x, distances[x], pen);
  }
}

/// Calls `body` with a row of a picture in its own type.
template <class Body>
void withRow(cv::Mat& picture, cv::Point at, Body const& body) {
  uchar* row = picture.ptr(at.y) + static_cast<std::size_t>(at.x) * picture.elemSize();
  switch (picture.depth()) {
  case CV_8U:
    return body(row);
  case CV_8S:
    return body(reinterpret_cast<schar*>(row));
  case CV_16U:
    return body(reinterpret_cast<ushort*>(row));
  case CV_16S:
    return body(reinterpret_cast<short*>(row));
  case CV_32S:
    return body(reinterpret_cast<int*>(row));
  case CV_32F:
    return body(reinterpret_cast<float*>(row));
  default:
    return body(reinterpret_cast<double*>(row));
  }
}

} // namespace

void inkRow(cv::Mat& picture, cv::Point at, float const* distances, int columns, InkedPen const& pen) {
  withRow(picture, at, [&](auto* row) { inkPixels(row, distances, columns, pen); });
}

void blendRow(cv::Mat& picture, cv::Point at, float const* coverage, int columns, cv::Vec3d const& color) {
  withRow(picture, at, [&](auto* row) { blendPixels(row, coverage, columns, color); });
}

} // namespace vorn::mv
