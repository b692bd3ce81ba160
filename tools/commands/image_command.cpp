// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/imaging/image_filters.hpp>

#include "sim/demo.hpp"
#include "sim/render.hpp"
#include "tools/commands/commands.hpp"
#include "tools/commands/option_words.hpp"
#include "tools/commands/property_table.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/json_file.hpp"
#include "tools/files/output_path.hpp"
#include "tools/report/work.hpp"

namespace vorn::tools {

namespace fs = std::filesystem;

namespace {

using ImageFilters = FilterChain<mv::IImageFilter>;

struct ImageOptions {
  std::string input;
  std::string output;
  std::string chainFile;
  std::vector<std::string> filters;
  std::string savedChain;
  std::string gallery;
  bool list = false;
};

ImageFilters chainOf(ImageOptions const& options) {
  ImageFilters chain;
  if (!options.chainFile.empty()) {
    nlohmann::json const json = readJsonFile(options.chainFile);
    try {
      chain = readFilterChain(json, mv::imageFilters());
    } catch (Exception const& e) {
      throw Exception(options.chainFile + ": " + e.message(), nullptr, 0, e.file().c_str());
    }
  }
  for (std::string const& filter : options.filters) {
    chain.push_back(parseFilter(filter, mv::imageFilters()));
  }
  return chain;
}

/// Names the filter in OpenCV's errors, which do not know it.
cv::Mat applied(mv::IImageFilter const& filter, cv::Mat const& image) {
  try {
    return filter.apply(image);
  } catch (std::exception const& e) {
    throw Exception(filter.toString() + " fails: " + e.what(), nullptr, 0, "image");
  }
}

/// The image in an element type that its file holds without loss: signed and floating-point values go to
/// TIFF.
cv::Mat storable(cv::Mat const& image, std::string const& path) {
  if (image.depth() == CV_8U || image.depth() == CV_16U) {
    return image;
  }
  if (!isTiff(path)) {
    throw Exception("The filtered image has signed or floating-point values: write it as .tiff, not to " +
                        path,
                    nullptr, 0, "image");
  }
  cv::Mat converted;
  image.convertTo(converted, image.depth() == CV_32S || image.depth() == CV_64F ? CV_64F : CV_32F);
  return converted;
}

/// A detail of the demonstration scene under stripes: edges, slopes, textures, shadow and noise.
cv::Mat galleryImage() {
  sim::Rig rig = sim::demoRig(4);
  rig.camera.sensor.exposure *= 1.4;
  cv::Mat stripes(rig.projector.device.resolution(), CV_8U, cv::Scalar(255));
  constexpr int period = 16;
  for (int x = 0; x < stripes.cols; x += period) {
    stripes.colRange(x, std::min(x + period / 2, stripes.cols)) = cv::Scalar(120);
  }
  sim::ProjectorView const view(rig.camera, rig.projector, sim::demoScene());
  return view.capture({stripes}).at(0)(cv::Rect(95, 32, 160, 120)).clone();
}

/// The class without its namespace of every filter, and "input".
std::vector<std::string> galleryNames() {
  std::vector<std::string> names{"input"};
  for (std::string const& name : mv::imageFilters().names()) {
    names.push_back(name.substr(name.rfind(':') + 1));
  }
  return names;
}

std::string galleryPath(std::string const& folder, std::string const& name) {
  return (fs::path(folder) / (name + ".png")).string();
}

/// Writes the input and what each filter makes of it with its default settings.
void writeGallery(std::string const& folder, cv::Mat const& image) {
  makeFolder(folder);
  auto const write = [&](std::string const& name, cv::Mat const& picture) {
    writeImage(galleryPath(folder, name), picture);
  };
  write("input", image);
  for (std::string const& name : mv::imageFilters().names()) {
    write(name.substr(name.rfind(':') + 1), applied(*mv::createImageFilter(name), image));
  }
}

void run(ImageOptions const& options, Report& report) {
  if (options.list) {
    for (std::string const& name : mv::imageFilters().names()) {
      printProperties(std::cout, *mv::createImageFilter(name));
      report["filters"].push_back(name);
    }
    return;
  }
  std::vector<std::string> outputs{options.output, options.savedChain};
  for (std::string const& name : galleryNames()) {
    if (!options.gallery.empty() && fs::is_directory(options.gallery)) {
      outputs.push_back(galleryPath(options.gallery, name));
    }
  }
  report.declare({options.input, options.chainFile}, outputs);
  if (!options.gallery.empty()) {
    writeGallery(options.gallery, options.input.empty() ? galleryImage() : readImage(options.input));
    return;
  }
  ImageFilters const chain = chainOf(options);
  nlohmann::json json;
  writeFilterChain(chain, json);
  report["filters"] = json;
  if (!options.savedChain.empty()) {
    writeTogether({{options.savedChain, jsonText(json)}});
  }
  if (!options.input.empty()) {
    if (chain.empty() && lowerCaseEnding(options.input) == lowerCaseEnding(options.output)) {
      report.warn("no filter is named: " + options.output + " gets the picture as it is");
    }
    cv::Mat image = readImage(options.input);
    for (auto const& filter : chain) {
      image = applied(*filter, image);
    }
    writeImage(options.output, storable(image, options.output));
    report["size"] = {image.cols, image.rows};
    report["type"] = cv::typeToString(image.type());
  }
}

} // namespace

void addImageCommand(CLI::App& app) {
  auto options = std::make_shared<ImageOptions>();
  CLI::App* command = app.add_subcommand("image", "Send a picture through image filters");
  CLI::Option* input = command->add_option("input", options->input, "Picture to filter");
  CLI::Option* output = command->add_option("output", options->output, "Picture to write")->needs(input);
  command->add_option("--filters", options->chainFile, "JSON file with a chain of filters");
  CLI::Option* filter =
      command
          ->add_option("--filter", options->filters,
                       "A filter, after those of --filters, as Gaussian:Radius=3,SigmaX=1.2; may be repeated")
          ->type_name("FILTER")
          ->allow_extra_args(false)
          ->take_all();
  setWords(*filter, filterWords(mv::imageFilters()));
  command->add_option("--save-filters", options->savedChain, "Write the whole chain to a JSON file");
  command->add_option("--gallery", options->gallery,
                      "Write to a folder what every filter makes of the picture, or of one rendered here");
  command->add_flag("--list", options->list, "Print all filters with their properties and ranges");
  setWork(*command, [=](Report& report) {
    bool const isComplete = options->list || !options->gallery.empty() || output->count() > 0 ||
                            (input->count() == 0 && !options->savedChain.empty());
    if (!isComplete) {
      throw CLI::RequiredError("input and output");
    }
    run(*options, report);
  });
}

} // namespace vorn::tools
