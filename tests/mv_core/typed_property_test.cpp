// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cctype>
#include <cmath>
#include <limits>
#include <set>
#include <string>
#include <type_traits>
#include <utility>

#include <gtest/gtest.h>

#include <vorn/core/exception.hpp>
#include <vorn/mv/calib/calib_pattern_detector.hpp>
#include <vorn/mv/calib/line_scanner.hpp>
#include <vorn/mv/imaging/edge_filters.hpp>
#include <vorn/mv/imaging/image_filters.hpp>
#include <vorn/mv/imaging/morphology_filters.hpp>
#include <vorn/mv/imaging/smoothing_filters.hpp>
#include <vorn/mv/imaging/threshold_filters.hpp>
#include <vorn/mv/pointcloud/cloud_filters.hpp>
#include <vorn/mv/registration/icp_aligner.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

namespace vorn::mv {
namespace {

template <class T>
bool holds(Property const& property) {
  switch (property.getValue().type()) {
  case Variant::Type::Int:
    return std::is_same_v<T, int>;
  case Variant::Type::Double:
    return std::is_same_v<T, double>;
  case Variant::Type::Bool:
    return std::is_same_v<T, bool>;
  case Variant::Type::Enum:
    if constexpr (std::is_base_of_v<IEnum, T>) {
      return property.getValue().toEnum().getClassName() == T().getClassName();
    }
    return false;
  default:
    return false;
  }
}

/// A value that a property of this range refuses and the nearest to it that it takes, at either end.
template <class T>
std::pair<T, T> ends(Property const& property, bool isUpper) {
  T const end = (isUpper ? property.getMax() : property.getMin()).toDouble() == 0.0
                    ? T(0)
                    : static_cast<T>((isUpper ? property.getMax() : property.getMin()).toDouble());
  if constexpr (std::is_same_v<T, double>) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    return {std::nextafter(end, isUpper ? infinity : -infinity), end};
  } else {
    return {isUpper ? end + 1 : end - 1, end};
  }
}

template <class Object, class Scope, class T>
void checkNumber(Object object, Property const& property, T (Scope::*get)() const, void (Scope::*set)(T)) {
  std::string const& name = property.getName();
  for (bool const isUpper : {false, true}) {
    auto const [refused, taken] = ends<T>(property, isUpper);
    (object.*set)(taken);
    EXPECT_EQ((object.*get)(), taken) << name;
    EXPECT_EQ(object[name].getValue(), Variant(taken)) << name;
    EXPECT_THROW((object.*set)(refused), Exception) << name << " = " << refused;
    EXPECT_EQ((object.*get)(), taken) << name;
  }
}

template <class Object, class Scope, class T>
void checkItem(Object object, Property const& property, T (Scope::*get)() const, void (Scope::*set)(T)) {
  std::string const& name = property.getName();
  if constexpr (std::is_same_v<T, bool>) {
    bool const other = !(object.*get)();
    (object.*set)(other);
    EXPECT_EQ((object.*get)(), other) << name;
    EXPECT_EQ(object[name].getValue(), Variant(other)) << name;
  } else {
    for (std::size_t item = T().getItems().size(); item-- > 0;) {
      T value;
      value.setIndex(static_cast<int>(item));
      (object.*set)(value);
      EXPECT_EQ((object.*get)().getIndex(), value.getIndex()) << name;
      EXPECT_EQ(object[name].getValue().toString(), value.toString()) << name;
    }
  }
}

template <class Object, class Scope, class T>
void checkRow(std::string const& name, T (Scope::*get)() const, void (Scope::*set)(T)) {
  Object const fresh;
  ASSERT_TRUE(fresh.hasProperty(name)) << fresh.getClassName() << " declares " << name << " but has none";
  Property const& property = fresh[name];
  EXPECT_TRUE(holds<T>(property)) << fresh.getClassName() << ' ' << name;
  if constexpr (std::is_same_v<T, int> || std::is_same_v<T, double>) {
    EXPECT_EQ((fresh.*get)(), property.getValue().toDouble()) << name;
    ASSERT_TRUE(property.hasRange()) << name;
    checkNumber(fresh, property, get, set);
  } else {
    checkItem(fresh, property, get, set);
  }
}

/// The name with its leading capitals lowered, but the one that begins the next word.
std::string typedNameOf(std::string name) {
  for (std::size_t i = 0; i < name.size() && std::isupper(static_cast<unsigned char>(name[i])) != 0; ++i) {
    bool const beginsWord =
        i > 0 && i + 1 < name.size() && std::islower(static_cast<unsigned char>(name[i + 1])) != 0;
    if (beginsWord) {
      break;
    }
    name[i] = static_cast<char>(std::tolower(static_cast<unsigned char>(name[i])));
  }
  return name;
}

/// The typed names of a class, each checked against the property.
template <class Object>
struct TypedNames {
  std::set<std::string> found;

#define CHECK(Name, typedName)                                                                               \
  template <class T>                                                                                         \
  auto look##Name(int)->decltype(std::declval<T const&>().typedName(), void()) {                             \
    found.insert(#Name);                                                                                     \
    EXPECT_EQ(typedNameOf(#Name), #typedName);                                                               \
    checkRow<T>(#Name, &T::typedName, &T::set##Name);                                                        \
  }                                                                                                          \
  template <class T>                                                                                         \
  void look##Name(long) {}                                                                                   \
  bool const has##Name = (look##Name<Object>(0), true);
  CHECK(AngledSampleRadius, angledSampleRadius)
  CHECK(BatchSize, batchSize)
  CHECK(BlackWhiteSensitivity, blackWhiteSensitivity)
  CHECK(BlurRadius, blurRadius)
  CHECK(C, c)
  CHECK(Depth, depth)
  CHECK(Diameter, diameter)
  CHECK(Dx, dx)
  CHECK(Dy, dy)
  CHECK(Dz, dz)
  CHECK(EnableDebug, enableDebug)
  CHECK(EnableTexture, enableTexture)
  CHECK(EncodingType, encodingType)
  CHECK(HighCutRate, highCutRate)
  CHECK(Inverted, inverted)
  CHECK(LowCutRate, lowCutRate)
  CHECK(MaxDistance, maxDistance)
  CHECK(MaxDotArea, maxDotArea)
  CHECK(MaxDotAreaMultiplier, maxDotAreaMultiplier)
  CHECK(MaxFillRadius, maxFillRadius)
  CHECK(MaxGrayLevel, maxGrayLevel)
  CHECK(MaxIteration, maxIteration)
  CHECK(MaxNormalAngle, maxNormalAngle)
  CHECK(MaxValue, maxValue)
  CHECK(MinClusterSize, minClusterSize)
  CHECK(MinDotArea, minDotArea)
  CHECK(MinDotAreaMultiplier, minDotAreaMultiplier)
  CHECK(MinDotRatio, minDotRatio)
  CHECK(MinError, minError)
  CHECK(MinKeypointCount, minKeypointCount)
  CHECK(MinNeighbourCount, minNeighbourCount)
  CHECK(MinPhaseConfident, minPhaseConfident)
  CHECK(MinSampleCount, minSampleCount)
  CHECK(MinSegmentSize, minSegmentSize)
  CHECK(MorphRadius, morphRadius)
  CHECK(PXMax, pxMax)
  CHECK(PXMin, pxMin)
  CHECK(PYMax, pyMax)
  CHECK(PYMin, pyMin)
  CHECK(PatternDim, patternDim)
  CHECK(PatternType, patternType)
  CHECK(PhaseBlurRadius, phaseBlurRadius)
  CHECK(PlaneCount, planeCount)
  CHECK(PointcloudBlurRadius, pointcloudBlurRadius)
  CHECK(QuadraticFit, quadraticFit)
  CHECK(Radius, radius)
  CHECK(SampleAngleThreshold, sampleAngleThreshold)
  CHECK(SampleRadius, sampleRadius)
  CHECK(ScannerType, scannerType)
  CHECK(Sensitivity, sensitivity)
  CHECK(Shape, shape)
  CHECK(SigmaColor, sigmaColor)
  CHECK(SigmaSpace, sigmaSpace)
  CHECK(SigmaX, sigmaX)
  CHECK(SigmaY, sigmaY)
  CHECK(TextureExposure, textureExposure)
  CHECK(Threshold, threshold)
  CHECK(Threshold1, threshold1)
  CHECK(Threshold2, threshold2)
  CHECK(Tolerance, tolerance)
  CHECK(XMax, xMax)
  CHECK(XMin, xMin)
  CHECK(YMax, yMax)
  CHECK(YMin, yMin)
  CHECK(Zmax, zmax)
  CHECK(Zmin, zmin)
#undef CHECK
};

template <class Object>
void expectEveryRow() {
  auto const names = Object().getPropertyNames();
  EXPECT_EQ(TypedNames<Object>().found, std::set<std::string>(names.begin(), names.end()))
      << Object().getClassName();
}

template <class... Objects>
std::size_t expectEveryRowOf() {
  (expectEveryRow<Objects>(), ...);
  return sizeof...(Objects);
}

TEST(TypedProperty, EveryRowOfEveryTableHasItsTypedName) {
  EXPECT_EQ(
      (expectEveryRowOf<
          BilateralFilter, BinaryThresholdFilter, BlurFilter, BoxFilter, CalibPatternDetector, CannyFilter,
          DilateFilter, ErodeFilter, GaussianAdaptiveThresholdFilter, GaussianFilter, LaplacianFilter,
          LineScanner, LocalAverageAdaptiveThresholdFilter, MeanAdaptiveThresholdFilter, MedianFilter,
          OtsuThresholdFilter, Sl3dScanner, SobelFilter, ToZeroThresholdFilter, TriangleThresholdFilter,
          TruncateThresholdFilter, pc::DzFilter, pc::ICPAligner, pc::ICPAligner2, pc::OutlierFilter,
          pc::PlaneRemovalFilter, pc::SmallClusterFilter, pc::UniformSampler, pc::ZRangeFilter>()),
      imageFilters().names().size() + pc::filters().names().size() + 5)
      << "a class without a check here";
}

TEST(TypedProperty, ReadsAsTheRestOfTheCode) {
  Sl3dScanner scanner;
  scanner.setSensitivity(7);
  scanner.setScannerType(scanner::ScannerType::Vertical);
  Sl3dScanner const copy = scanner;
  scanner["Sensitivity"] = 5;
  EXPECT_EQ(scanner.sensitivity(), 5);
  EXPECT_EQ(copy.sensitivity(), 7);
  EXPECT_EQ(copy.scannerType(), scanner::ScannerType::Vertical);
  try {
    scanner.setSensitivity(21);
    FAIL() << "taken";
  } catch (Exception const& e) {
    EXPECT_NE(std::string(e.what()).find("Sensitivity"), std::string::npos) << e.what();
    EXPECT_NE(std::string(e.what()).find("21"), std::string::npos) << e.what();
  }
}

} // namespace
} // namespace vorn::mv
