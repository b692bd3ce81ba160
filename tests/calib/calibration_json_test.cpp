// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// What every calibrated object promises of its document: no bit is lost through a file, and no number may be
// missing.
#include <cmath>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/calib/line_scanner.hpp>
#include <vorn/mv/calib/line_scanner_calib_data.hpp>
#include <vorn/mv/calib/stereo_camera.hpp>
#include <vorn/mv/calib/target_description.hpp>
#include <vorn/mv/core/library.hpp>
#include <vorn/mv/core/matrix_json.hpp>
#include <vorn/mv/geometry/plane3f.hpp>
#include <vorn/mv/geometry/rotation.hpp>
#include <vorn/mv/geometry/transform.hpp>
#include <vorn/mv/pointcloud/cloud_filters.hpp>
#include <vorn/mv/scanner/scan.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "sim/demo.hpp"
#include "support/expect_error.hpp"
#include "support/scanner_rig.hpp"

namespace vorn::mv {
namespace {

/// A rigid motion whose elements need all their digits.
cv::Matx44d oddTransform() {
  return math::createTransform(math::rot3(cv::Vec3d(2, -3, 6) / 7, 0.9),
                               cv::Vec3d(std::sqrt(5.0), -100 / 7.0, std::sqrt(7.0)));
}

CameraModel oddCamera() {
  return test::modelOf(sim::demoRig(4).camera.device);
}

nlohmann::json documentOf(IJsonSerializable const& object) {
  nlohmann::json json;
  object.write(json);
  return json;
}

StereoCamera oddStereo() {
  nlohmann::json const camera = documentOf(oddCamera());
  StereoCamera stereo;
  stereo.read({{"CameraModel0", camera},
               {"CameraModel1", camera},
               {"Hpc", oddTransform()},
               {"Hpose", oddTransform()}});
  return stereo;
}

/// Reads the object's document through text into a fresh object; there, each number in turn is null.
template <class Object>
Object throughText(Object const& object) {
  nlohmann::json const written = documentOf(object);
  Object copy;
  copy.read(nlohmann::json::parse(written.dump()));
  nlohmann::json const before = documentOf(copy);
  EXPECT_EQ(before, written);

  int numbers = 0;
  nlohmann::json const flat = written.flatten();
  for (auto const& [place, value] : flat.items()) {
    if (!value.is_number()) {
      continue;
    }
    ++numbers;
    nlohmann::json broken = written;
    broken[nlohmann::json::json_pointer(place)] = nullptr;
    EXPECT_ANY_THROW(copy.read(broken)) << place;
    EXPECT_EQ(documentOf(copy), before) << place;
  }
  EXPECT_GT(numbers, 15);
  return copy;
}

TEST(CalibrationJson, Camera) {
  CameraModel const camera = oddCamera();
  CameraModel const copy = throughText(camera);
  EXPECT_EQ(cv::norm(copy.getK(), camera.getK(), cv::NORM_INF), 0);
  EXPECT_EQ(cv::norm(copy.getD(), camera.getD(), cv::NORM_INF), 0);
}

TEST(CalibrationJson, Scanner) {
  Sl3dScanner scanner = test::scannerOf(sim::demoRig(4));
  scanner.setTransform(oddTransform());
  scanner.setPose(oddTransform().inv());
  Sl3dScanner const copy = throughText(scanner);
  EXPECT_EQ(copy.getTransform(), oddTransform());
  EXPECT_EQ(copy.getPose(), oddTransform().inv());
}

TEST(CalibrationJson, StereoCamera) {
  StereoCamera const stereo = oddStereo();
  EXPECT_EQ(throughText(stereo).getTransform(), oddTransform());
}

TEST(CalibrationJson, LineScanner) {
  Plane3f const plane({0.1F, 1 / 3.0F, 500.7F}, {0.6F, -0.48F, 0.64F});
  nlohmann::json json = {{"CameraModel", documentOf(oddCamera())}, {"Plane_0", documentOf(plane)}};
  LineScanner scanner;
  scanner.read(json);
  LineScanner const copy = throughText(scanner);
  ASSERT_EQ(copy.getPlanes().size(), 1U);
  EXPECT_EQ(copy.getPlanes()[0].point(), plane.point());
  EXPECT_EQ(copy.getPlanes()[0].normal(), plane.normal());

  json["Plane_0"]["n"] = {0.0, 0.0, 0.0};
  EXPECT_THROW(scanner.read(json), Exception);

  nlohmann::json const other = {{"CameraModel", documentOf(oddCamera())},
                                {"ProjectorModel", documentOf(oddCamera())}};
  vorn::test::expectError([&] { scanner.read(other); },
                          "\"ProjectorModel\" is there: this is a structured-light scanner");
  EXPECT_EQ(scanner.getPlanes().size(), 1U);
}

/// "/CameraModel/K/data/2" as messages name it: "CameraModel.K.data[2]".
std::string placeOf(nlohmann::json::json_pointer pointer) {
  std::string place;
  for (; !pointer.empty(); pointer.pop_back()) {
    std::string const part = pointer.back();
    bool const isIndex = part.find_first_not_of("0123456789") == std::string::npos;
    bool const isBeforeIndex = place.empty() || place[0] == '[';
    place = (isIndex ? '[' + part + ']' : part) + (isBeforeIndex ? "" : ".") + place;
  }
  return place;
}

/// The name of the innermost member that a place lies in.
std::string memberOf(std::string const& place) {
  std::string const name = place.substr(0, place.find_first_of('[', place.rfind('.') + 1));
  return name.substr(name.rfind('.') + 1);
}

/// Every member and element of a document, with all that hold it.
std::set<std::string> pointersOf(nlohmann::json const& document) {
  std::set<std::string> pointers;
  nlohmann::json const flat = document.flatten();
  for (auto const& entry : flat.items()) {
    for (nlohmann::json::json_pointer pointer(entry.key()); !pointer.empty(); pointer.pop_back()) {
      pointers.insert(pointer.to_string());
    }
  }
  return pointers;
}

/// What people and programs do to a value.
std::vector<nlohmann::json> damagesOf(nlohmann::json const& value) {
  std::vector<nlohmann::json> damages = {nullptr, "NaN", nlohmann::json::object()};
  damages.push_back(value.is_number() ? nlohmann::json("12") : nlohmann::json(7));
  if (value.is_array()) {
    damages.push_back(value);
    damages.back().push_back(1.5);
  }
  return damages;
}

/// Reads a damaged document: it is refused with the name of the damaged member, or taken where that is
/// allowed, and a refusal leaves the object as it was.
template <class Object>
void readDamaged(Object& object, nlohmann::json const& damaged, std::string const& place,
                 std::set<std::string> const& optional) {
  nlohmann::json const before = documentOf(object);
  try {
    object.read(damaged);
    EXPECT_GT(optional.count(place) + optional.count(memberOf(place)), 0U) << place << " was taken";
    object.read(before);
  } catch (Exception const& e) {
    std::string const& message = e.message();
    bool const isNamed = message.find(place) != std::string::npos ||
                         message.find('"' + memberOf(place) + '"') != std::string::npos ||
                         (memberOf(place) == "dt" && message.find("Unsupported type") != std::string::npos);
    EXPECT_TRUE(isNamed) << place << ": " << message;
    EXPECT_EQ(message.find("json.exception"), std::string::npos) << message;
    EXPECT_EQ(documentOf(object), before) << place;
  }
}

/// @param optional names of members that a document may lack, or hold in several ways
template <class Object>
void refusesAnyDamage(Object object, std::set<std::string> const& optional) {
  nlohmann::json const written = documentOf(object);
  object.read(written);
  int count = 0;
  for (std::string const& text : pointersOf(written)) {
    nlohmann::json::json_pointer const pointer(text);
    std::string const place = placeOf(pointer);
    for (nlohmann::json const& value : damagesOf(written[pointer])) {
      nlohmann::json damaged = written;
      damaged[pointer] = value;
      readDamaged(object, damaged, place, optional);
      ++count;
    }
    if (written[pointer.parent_pointer()].is_object()) {
      nlohmann::json lacking = written;
      lacking[pointer.parent_pointer()].erase(pointer.back());
      readDamaged(object, lacking, place, optional);
    }
  }
  for (nlohmann::json const& other : {nlohmann::json(), nlohmann::json(3), nlohmann::json::array()}) {
    EXPECT_THROW(object.read(other), Exception) << other;
  }
  EXPECT_GT(count, 8);
}

TEST(JsonRefusal, NamesTheMemberOfACalibration) {
  refusesAnyDamage(oddCamera(), {"D"});
  Sl3dScanner scanner = test::scannerOf(sim::demoRig(4));
  scanner.setTransform(oddTransform());
  std::set<std::string> optional = {"D", "Hpc", "Properties"};
  for (std::string const& property : scanner.getPropertyNames()) {
    optional.insert(property);
  }
  refusesAnyDamage(scanner, optional);
  nlohmann::json const camera = documentOf(oddCamera());
  StereoCamera const stereo = oddStereo();
  refusesAnyDamage(stereo, {"D"});
  LineScanner line;
  line.read({{"CameraModel", camera}, {"Plane_0", documentOf(Plane3f({1, 2, 3}, {0, 0, 1}))}});
  refusesAnyDamage(line, {"D", "Plane_0"});
}

TEST(JsonRefusal, NamesTheMemberOfWhatElseIsRead) {
  LineScannerCalibData data;
  data.addPose(oddTransform());
  data.add({{1, 2}, {3, 4}}, {{5, 6}, {7, 8}}, {{{1, 1}, {2, 2}}});
  // Points may be not a number: null and "Poses" of any number of views are taken.
  refusesAnyDamage(data, {"Poses", "ImgPntss", "ObjPntss", "LinePntsss", "data"});
  TargetDescription target;
  target.pitch = 2.5;
  target.size = {7, 5};
  target.marks = {{0, 0}};
  target.deviations = {{{1, 1}, {0.1, 0.2}}};
  refusesAnyDamage(target, {"kind", "polarity", "size", "first", "marks", "deviations"});
  pc::PlaneRemovalFilter filter;
  filter.setPlane(Plane3f({1, 2, 3}, {0, 0, 1}));
  refusesAnyDamage(filter, {"Plane", "Tolerance", "p", "n"});
}

TEST(JsonRefusal, CamerasThatCannotBe) {
  nlohmann::json const good = documentOf(oddCamera());
  CameraModel camera;
  for (auto const& [element, value] : {std::pair(0, -1200.0),
                                       {0, 0.0},
                                       {0, 1e308},
                                       {4, 1e-9},
                                       {4, 1e10},
                                       {1, 0.5},
                                       {3, -0.5},
                                       {6, 0.001},
                                       {7, 1.0},
                                       {8, 0.0},
                                       {8, 1.001}}) {
    nlohmann::json bad = good;
    bad["K"]["data"][static_cast<std::size_t>(element)] = value;
    vorn::test::expectError([&, &bad = bad] { camera.read(bad); },
                            "\"K.data[" + std::to_string(element) + "]\" is ");
  }
  nlohmann::json bad = good;
  bad["Resolution"] = {-1, 480};
  vorn::test::expectError([&] { camera.read(bad); }, "\"Resolution\"");
  bad = good;
  bad["D"]["data"] = {0, 0, 0};
  bad["D"]["cols"] = 3;
  bad["D"]["rows"] = 1;
  vorn::test::expectError([&] { camera.read(bad); }, "\"D\"");
}

TEST(JsonRefusal, TransformsThatAreNoMotion) {
  nlohmann::json const good = documentOf(test::scannerOf(sim::demoRig(4)));
  Sl3dScanner scanner;
  scanner.read(good);
  for (char const* const member : {"Hpc", "Hpose"}) {
    cv::Matx44d const motion = good[member].get<cv::Matx44d>();
    auto const refused = [&](cv::Matx44d const& transform, std::string const& words) {
      nlohmann::json bad = good;
      bad[member] = transform;
      vorn::test::expectError([&] { scanner.read(bad); }, std::string(member) + words);
    };
    for (double const stretch : {0.0, 0.97, 1.001, 1.5, 1e30}) {
      refused(motion * cv::Matx44d::diag({stretch, 1, 1, 1}), "\" is no rigid motion");
    }
    refused(motion * cv::Matx44d::diag({1, 1, -1, 1}), "\" is no rigid motion: its rotation mirrors");
    for (int column = 0; column < 4; ++column) {
      cv::Matx44d odd = motion;
      odd(3, column) += 0.01;
      refused(odd, ".data[" + std::to_string(12 + column) + "]\" is ");
    }
  }
  EXPECT_EQ(documentOf(scanner), good);
}

TEST(JsonRefusal, TheMeanOfRotationsIsNearEnough) {
  // Views that differ by far more than those of a calibration that fits: five degrees about three axes.
  cv::Matx33d sum;
  std::vector<cv::Vec3d> const axes = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  for (cv::Vec3d const& axis : axes) {
    sum += math::rot3(axis, 5 * CV_PI / 180) + math::rot3(axis, -5 * CV_PI / 180);
  }
  cv::Matx44d const mean = math::createTransform(sum * (1 / 6.0), cv::Vec3d(100, 2, 3));
  nlohmann::json document = documentOf(test::scannerOf(sim::demoRig(4)));
  document["Hpc"] = mean;
  Sl3dScanner scanner;
  scanner.read(document);
  EXPECT_EQ(scanner.getTransform(), mean);
}

TEST(JsonRefusal, AScannerWithoutTransformIsReadButNotUsed) {
  Library::init();
  Sl3dScanner const good = test::scannerOf(sim::demoRig(4));
  nlohmann::json document = documentOf(good);
  document.erase("Hpc");
  Sl3dScanner scanner = good;
  scanner.read(document);
  EXPECT_EQ(scanner.getTransform(), good.getTransform());
  EXPECT_FALSE(documentOf(scanner).contains("Hpc"));
  cv::Size const size = scanner.getCameraModel().getResolution();
  cv::Mat_<float> const map(size, 100.5F);
  cv::Mat_<cv::Vec3f> xyz;
  auto const use = [&] { scanner.triangulate(map, xyz, {{}, size}); };
  vorn::test::expectError(use, "without \"Hpc\"");
  vorn::test::expectError([&] { scan(scanner, {}, {}); }, "without \"Hpc\"");
  scanner.setTransform(good.getTransform());
  use();
  EXPECT_TRUE(documentOf(scanner).contains("Hpc"));
}

} // namespace
} // namespace vorn::mv
