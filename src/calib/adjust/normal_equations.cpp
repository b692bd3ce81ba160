// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/adjust/normal_equations.hpp"

#include <cmath>

#include <opencv2/core.hpp>

#include <vorn/mv/geometry/rotation.hpp>

#include "calib/projection.hpp"

namespace vorn::mv {

namespace {

/// Both devices' images of dots, and the derivatives that are asked for.
class DotModel {
public:
  explicit DotModel(Bundle const& bundle)
      : bundle_(bundle), isPair_(bundle.devices.size() > 1), projection0_(bundle.devices[0].numbers),
        projection1_(bundle.devices.back().numbers) {
    for (int i = 0; i < static_cast<int>(bundle.target.size()); ++i) {
      dots_.push_back(bundle.dotInTarget(i));
    }
  }

  struct Images {
    cv::Vec2d in0;
    cv::Vec2d in1;
    cv::Vec3d turned;  ///< the dot, turned into device 0's frame, not shifted
    cv::Vec3d beside1; ///< the dot in device 0's frame, from the place of device 1
    cv::Matx23d by0;   ///< image in device 0 by the dot in its frame
    cv::Matx23d by1;   ///< image in device 1 by the dot in device 0's frame
    Projection::ByParameters byParameters[2];
  };

  /// @param isSlope fills in the derivatives by parameters too
  void images(BundleView const& view, BundleDot const& dot, bool isSlope, Images& result) const {
    result.turned = view.dev0_from_target.R * dots_[static_cast<std::size_t>(dot.target)];
    cv::Vec3d const inDev0 = result.turned + view.dev0_from_target.t;
    if (dot.has0 || bundle_.isRead) {
      result.in0 = projection0_(inDev0, &result.by0, isSlope ? &result.byParameters[0] : nullptr);
    }
    if (isPair_ && dot.has1) {
      Placement const& dev0_from_dev1 = bundle_.dev0_from_dev1_of(view);
      cv::Matx33d const dev1_from_dev0 = dev0_from_dev1.R.t();
      result.beside1 = inDev0 - dev0_from_dev1.t;
      cv::Matx23d byOwn;
      result.in1 =
          projection1_(dev1_from_dev0 * result.beside1, &byOwn, isSlope ? &result.byParameters[1] : nullptr);
      result.by1 = byOwn * dev1_from_dev0;
    }
  }

  DotResidual residual(BundleDot const& dot, Images const& images, cv::Matx22d const* transfer) const {
    DotResidual residual;
    if (dot.has0) {
      residual.in0 = dot.point0 - images.in0;
    }
    if (dot.has1 && isPair_) {
      residual.in1 = dot.point1 - images.in1;
      if (transfer != nullptr) {
        residual.in1 -= *transfer * residual.in0;
      }
    }
    return residual;
  }

private:
  Bundle const& bundle_;
  bool isPair_;
  Projection projection0_;
  Projection projection1_;
  std::vector<cv::Vec3d> dots_;
};

using Rows = Eigen::Ref<Eigen::Matrix<double, 2, Eigen::Dynamic>, 0, Eigen::OuterStride<>>;

template <int n>
Eigen::Matrix<double, 2, n> eigenOf(cv::Matx<double, 2, n> const& m) {
  return Eigen::Map<Eigen::Matrix<double, 2, n, Eigen::RowMajor> const>(m.val);
}

/// Which columns of a view's matrix hold what: devices, transform, shape unless it is by dot, pose.
struct Columns {
  explicit Columns(Bundle const& bundle)
      : device1(static_cast<int>(bundle.devices[0].freeParameters.size())), transform(bundle.deviceCount()),
        shape(transform + bundle.transformCount()),
        pose(shape + (bundle.shape.isByDot() ? 0 : bundle.shape.parameterCount())), end(pose + 6) {}

  int device1;
  int transform;
  int shape; ///< also the first of a shape by dot in the common parameters
  int pose;
  int end;
};

/// The rows of one dot in one device.
class DotRows {
public:
  DotRows(Bundle const& bundle, Columns const& columns) : bundle_(bundle), columns_(columns) {}

  /// Of device 0.
  void fill0(DotModel::Images const& images, int target, Rows rows) const {
    fillLens(images.byParameters[0], 0, 0, rows);
    fillPlace(images, images.by0, target, rows);
  }

  /// Of device 1: its image less `transfer` times that in device 0.
  void fill1(DotModel::Images const& images, int target, cv::Matx22d const* transfer, Rows rows) const {
    fillLens(images.byParameters[1], 1, columns_.device1, rows);
    int const transform = columns_.transform + 6 * station_;
    rows.middleCols<3>(transform) = eigenOf<3>(images.by1 * math::skew3(images.beside1));
    rows.middleCols<3>(transform + 3) = -eigenOf<3>(images.by1);
    cv::Matx23d byDot = images.by1;
    if (transfer != nullptr) {
      byDot -= *transfer * images.by0;
      cv::Matx<double, 2, Projection::parameterCount> const carried = *transfer * images.byParameters[0];
      fillLens(-1 * carried, 0, 0, rows);
    }
    fillPlace(images, byDot, target, rows);
  }

private:
  void fillLens(Projection::ByParameters const& by, std::size_t device, int column, Rows rows) const {
    auto const& free = bundle_.devices[device].freeParameters;
    for (std::size_t i = 0; i < free.size(); ++i) {
      rows(0, column + static_cast<int>(i)) = by(0, free[i]);
      rows(1, column + static_cast<int>(i)) = by(1, free[i]);
    }
  }

  void fillPlace(DotModel::Images const& images, cv::Matx23d const& byDot, int target, Rows rows) const {
    rows.middleCols<3>(columns_.pose) = -eigenOf<3>(byDot * math::skew3(images.turned));
    rows.middleCols<3>(columns_.pose + 3) = eigenOf<3>(byDot);
    if (columns_.pose > columns_.shape) {
      rows.middleCols(columns_.shape, columns_.pose - columns_.shape) =
          eigenOf<3>(byDot * R_) * bundle_.shape.ofDot(target);
    }
  }

public:
  void setView(BundleView const& view) {
    R_ = view.dev0_from_target.R;
    station_ = view.station;
  }

private:
  Bundle const& bundle_;
  Columns columns_;
  cv::Matx33d R_;
  int station_ = 0;
};

ViewRows viewRowsOf(Bundle const& bundle, DotModel const& model, Columns const& columns,
                    BundleView const& view, std::vector<cv::Matx22d> const* transfers, int device) {
  ViewRows rows;
  int count = 0;
  for (BundleDot const& dot : view.dots) {
    count += 2 * ((dot.has0 && device != 1 ? 1 : 0) + (dot.has1 && device != 0 ? 1 : 0));
  }
  rows.slope.setZero(count, columns.end);
  rows.residual.resize(count);
  DotRows dotRows(bundle, columns);
  dotRows.setView(view);
  Eigen::Matrix<double, 2, Eigen::Dynamic> two(2, columns.end);
  int row = 0;
  auto const append = [&](cv::Vec2d const& residual, BundleDot const& dot, std::size_t of) {
    for (int axis = 0; axis < 2; ++axis) {
      double const scale = std::sqrt(dot.weights[of][axis]) / bundle.sigma[of];
      rows.slope.row(row) = two.row(axis) * scale;
      rows.residual[row] = residual[axis] * scale;
      ++row;
    }
    rows.dots.push_back(dot.target);
  };
  DotModel::Images images;
  for (std::size_t i = 0; i < view.dots.size(); ++i) {
    BundleDot const& dot = view.dots[i];
    cv::Matx22d const* const transfer = transfers != nullptr ? &(*transfers)[i] : nullptr;
    model.images(view, dot, true, images);
    DotResidual const residual = model.residual(dot, images, transfer);
    if (dot.has0 && device != 1) {
      two.setZero();
      dotRows.fill0(images, dot.target, two);
      append(residual.in0, dot, 0);
    }
    if (dot.has1 && device != 0) {
      two.setZero();
      dotRows.fill1(images, dot.target, transfer, two);
      append(residual.in1, dot, 1);
    }
  }
  return rows;
}

/// Adds the parts of a shape that is by dot. Its derivatives are those by the pose's shift, turned.
void addDots(ViewRows const& rows, Columns const& columns, cv::Matx33d const& rotation,
             NormalEquations& normal, Eigen::MatrixXd& mixed) {
  using RowMajor3 = Eigen::Matrix<double, 3, 3, Eigen::RowMajor>;
  Eigen::Matrix3d const R = Eigen::Map<RowMajor3 const>(rotation.val);
  for (std::size_t i = 0; i < rows.dots.size(); ++i) {
    int const row = 2 * static_cast<int>(i);
    int const first = columns.shape + 3 * rows.dots[i];
    Eigen::Matrix<double, 2, 3> const byDot = rows.slope.block<2, 3>(row, columns.pose + 3) * R;
    auto const others = rows.slope.middleRows<2>(row);
    normal.common.block<3, 3>(first, first) += byDot.transpose() * byDot;
    normal.common.block(first, 0, 3, columns.shape) += byDot.transpose() * others.leftCols(columns.shape);
    normal.commonSlope.segment<3>(first) += byDot.transpose() * rows.residual.segment<2>(row);
    mixed.middleRows<3>(first) += byDot.transpose() * others.rightCols<6>();
  }
}

std::vector<cv::Matx22d> const* listOf(Transfers const& transfers, std::size_t view) {
  return transfers.empty() ? nullptr : &transfers[view];
}

} // namespace

ViewRows viewRowsOf(Bundle const& bundle, Transfers const& transfers, std::size_t view, int device) {
  return viewRowsOf(bundle, DotModel(bundle), Columns(bundle), bundle.views[view], listOf(transfers, view),
                    device);
}

Transfers transfersOf(Bundle const& bundle) {
  Transfers transfers;
  if (!bundle.isRead) {
    return transfers;
  }
  DotModel const model(bundle);
  DotModel::Images images;
  for (BundleView const& view : bundle.views) {
    transfers.emplace_back();
    for (BundleDot const& dot : view.dots) {
      cv::Matx22d transfer;
      if (dot.has0 && dot.has1) {
        model.images(view, dot, false, images);
        auto const onTarget = [&](cv::Matx23d const& by) {
          cv::Matx23d const byDot = by * view.dev0_from_target.R;
          return cv::Matx22d(byDot(0, 0), byDot(0, 1), byDot(1, 0), byDot(1, 1));
        };
        transfer = onTarget(images.by1) * onTarget(images.by0).inv();
      }
      transfers.back().push_back(transfer);
    }
  }
  return transfers;
}

std::vector<std::vector<DotResidual>> residualsOf(Bundle const& bundle, Transfers const& transfers) {
  std::vector<std::vector<DotResidual>> residuals;
  DotModel const model(bundle);
  DotModel::Images images;
  for (std::size_t i = 0; i < bundle.views.size(); ++i) {
    residuals.emplace_back();
    auto const* const list = listOf(transfers, i);
    for (std::size_t j = 0; j < bundle.views[i].dots.size(); ++j) {
      BundleDot const& dot = bundle.views[i].dots[j];
      model.images(bundle.views[i], dot, false, images);
      residuals.back().push_back(model.residual(dot, images, list != nullptr ? &(*list)[j] : nullptr));
    }
  }
  return residuals;
}

Squares squaresOf(Bundle const& bundle, Transfers const& transfers) {
  Squares squares;
  auto const residuals = residualsOf(bundle, transfers);
  for (std::size_t i = 0; i < residuals.size(); ++i) {
    for (std::size_t j = 0; j < residuals[i].size(); ++j) {
      BundleDot const& dot = bundle.views[i].dots[j];
      DotResidual const& residual = residuals[i][j];
      squares.sum[0] += dot.weights[0].dot(residual.in0.mul(residual.in0));
      squares.sum[1] += dot.weights[1].dot(residual.in1.mul(residual.in1));
      squares.count[0] += dot.has0 ? 2 : 0;
      squares.count[1] += dot.has1 ? 2 : 0;
    }
  }
  for (int device = 0; device < 2; ++device) {
    squares.sum[device] /= bundle.sigma[device] * bundle.sigma[device];
  }
  for (int i = 0; i < bundle.shape.parameterCount(); ++i) {
    squares.prior += bundle.shape.priorWeight(i) * bundle.shapeParameters[i] * bundle.shapeParameters[i];
  }
  return squares;
}

NormalEquations normalEquationsOf(Bundle const& bundle, Transfers const& transfers, int device) {
  Columns const columns(bundle);
  int const count = bundle.commonCount();
  NormalEquations normal;
  normal.common.setZero(count, count);
  normal.commonSlope.setZero(count);
  DotModel const model(bundle);
  for (std::size_t i = 0; i < bundle.views.size(); ++i) {
    BundleView const& view = bundle.views[i];
    ViewRows const rows = viewRowsOf(bundle, model, columns, view, listOf(transfers, i), device);
    Eigen::MatrixXd products = Eigen::MatrixXd::Zero(columns.end, columns.end);
    if (rows.slope.rows() > 0) { // Eigen divides by that number
      products.selfadjointView<Eigen::Lower>().rankUpdate(rows.slope.transpose());
    }
    Eigen::VectorXd const slopes = rows.slope.transpose() * rows.residual;
    Eigen::MatrixXd mixed = Eigen::MatrixXd::Zero(count, 6);
    mixed.topRows(columns.pose) = products.bottomLeftCorner(6, columns.pose).transpose();
    normal.common.topLeftCorner(columns.pose, columns.pose) +=
        products.topLeftCorner(columns.pose, columns.pose);
    normal.commonSlope.head(columns.pose) += slopes.head(columns.pose);
    if (bundle.shape.isByDot()) {
      addDots(rows, columns, view.dev0_from_target.R, normal, mixed);
    }
    PoseMatrix const pose = products.bottomRightCorner<6, 6>();
    normal.mixed.push_back(std::move(mixed));
    normal.pose.push_back(pose.selfadjointView<Eigen::Lower>());
    normal.poseSlope.push_back(slopes.tail<6>());
  }
  normal.common = Eigen::MatrixXd(normal.common.selfadjointView<Eigen::Lower>());
  for (int i = 0; i < bundle.shape.parameterCount() && device < 0; ++i) {
    double const weight = bundle.shape.priorWeight(i);
    normal.common(columns.shape + i, columns.shape + i) += weight;
    normal.commonSlope[columns.shape + i] -= weight * bundle.shapeParameters[i];
  }
  return normal;
}

} // namespace vorn::mv
