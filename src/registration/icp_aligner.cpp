// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/registration/icp_aligner.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "core/error.hpp"
#include "registration/spread_samples.hpp"
#include "registration/surface_registration.hpp"
#include "registration/trimmed_icp.hpp"

namespace vorn::mv {

namespace {

/// Samples of `icpMatch` when it is given none.
constexpr std::size_t usualSamples = 5000;
constexpr std::size_t fewestSamples = 50;

double doubleOf(IPropertySet const& set, char const* name) {
  return set.getProperty(name).getValue().toDouble();
}

std::size_t countOf(IPropertySet const& set, char const* name) {
  return static_cast<std::size_t>(set.getProperty(name).getValue().toInt());
}

} // namespace

std::vector<unsigned> PointCloud::getICPSample(int count) {
  if (count < 1) {
    throw error("The number of samples is " + std::to_string(count) + ", not at least 1", "getICPSample");
  }
  checkSizes();
  return isEmpty() ? std::vector<unsigned>{} : evenSamples(*this, static_cast<std::size_t>(count));
}

double PointCloud::icpMatch(PointCloud& target, std::vector<unsigned>& samples) {
  checkSizes();
  target.checkSizes();
  PointCloud source = withNormals(*this, Progress());
  PointCloud const surface = withNormals(target, Progress());
  TrimmedIcp settings;
  settings.minSamples = fewestSamples;
  settings.lowCut = 0.0;
  settings.maxDistance = std::numeric_limits<float>::max();
  std::vector<unsigned> const chosen =
      samples.empty() && !isEmpty() ? evenSamples(source, usualSamples) : samples;
  TrimmedAlignment alignment = alignTrimmed(source, surface, chosen, settings, "icpMatch");
  samples = std::move(alignment.used);
  transform_ = alignment.targetFromSource;
  return alignment.rms;
}

namespace pc {

IAligner::~IAligner() = default;

AlignerBase::AlignerBase(std::initializer_list<Property*> more) : AlignerBase(new PropertySetBase::Private) {
  declareProperties({maxNormalAngleRow(), batchSizeRow(), maxDistanceRow(), minSampleCountRow(),
                     lowCutRateRow(), highCutRateRow(), maxIterationRow(), minErrorRow()});
  for (Property* const property : more) {
    addProperty(property);
  }
}

double AlignerBase::apply(PointCloud& source, PointCloud& target, std::vector<unsigned>& indices) {
  source.checkSizes();
  target.checkSizes();
  PointCloud sampled = withNormals(source, Progress());
  PointCloud const surface = withNormals(target, Progress());
  TrimmedIcp settings;
  settings.maxNormalAngle = maxNormalAngle();
  settings.maxDistance = maxDistance();
  settings.minSamples = countOf(*this, "MinSampleCount");
  settings.lowCut = lowCutRate();
  settings.highCut = highCutRate();
  settings.maxIterations = maxIteration();
  settings.minError = minError();
  TrimmedAlignment alignment = alignTrimmed(sampled, surface, chooseSamples(sampled), settings, "apply");
  indices = std::move(alignment.used);
  source.setTransform(alignment.targetFromSource);
  return alignment.rms;
}

namespace {

/// As many samples as the batches give, but enough for the cuts to leave "MinSampleCount".
std::size_t wantedSamples(IPropertySet const& aligner, PointCloud const& cloud) {
  double const batch = doubleOf(aligner, "BatchSize");
  double const kept = 1.0 - std::max(doubleOf(aligner, "LowCutRate"), doubleOf(aligner, "HighCutRate"));
  double const least = 2.0 * doubleOf(aligner, "MinSampleCount") / kept;
  return static_cast<std::size_t>(std::max(least, static_cast<double>(cloud.pointCount()) / (batch * batch)));
}

} // namespace

ICPAligner::ICPAligner() : AlignerBase(std::initializer_list<Property*>{}) {}

std::string const& ICPAligner::getClassName() const {
  static std::string const name = className;
  return name;
}

std::vector<unsigned> ICPAligner::chooseSamples(PointCloud& source) {
  return source.isEmpty() ? std::vector<unsigned>{} : evenSamples(source, wantedSamples(*this, source));
}

ICPAligner2::ICPAligner2()
    : AlignerBase({sampleAngleThresholdRow(), sampleRadiusRow(), angledSampleRadiusRow()}) {}

std::string const& ICPAligner2::getClassName() const {
  static std::string const name = className;
  return name;
}

std::vector<unsigned> ICPAligner2::getSamples(PointCloud& cloud, int count) {
  if (count < 1) {
    throw error("The number of samples is " + std::to_string(count) + ", not at least 1", "getSamples");
  }
  cloud.checkSizes();
  if (!cloud.isEmpty() && !cloud.hasNormals()) {
    throw error("The cloud has no normals; call calcNormals first", "getSamples");
  }
  if (cloud.isEmpty()) {
    return {};
  }
  SampleSpread spread;
  spread.radius = sampleRadius();
  spread.angledRadius = angledSampleRadius();
  spread.angleThreshold = sampleAngleThreshold();
  return spreadSamples(cloud, evenSamples(cloud, cloud.pointCount()), spread,
                       static_cast<std::size_t>(count));
}

std::vector<unsigned> ICPAligner2::chooseSamples(PointCloud& source) {
  std::size_t const most =
      std::min<std::size_t>(wantedSamples(*this, source), std::numeric_limits<int>::max());
  std::vector<unsigned> samples = getSamples(source, static_cast<int>(most));
  // Parts smaller than the radii are meant for: better even samples than too few.
  double const kept = 1.0 - std::max(lowCutRate(), highCutRate());
  bool const isEnough = static_cast<double>(samples.size()) * kept >= minSampleCount();
  return isEnough || source.isEmpty() ? samples : evenSamples(source, most);
}

} // namespace pc

} // namespace vorn::mv
