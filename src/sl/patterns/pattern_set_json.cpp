// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <utility>

#include <nlohmann/json.hpp>

#include <vorn/mv/sl/pattern_set.hpp>

#include "core/json_member.hpp"
#include "core/nearest_word.hpp"

namespace vorn::mv {

namespace {

constexpr char const* context = "PatternSet";
using Json = nlohmann::json;
using Words = std::vector<std::string>;

struct Role {
  char const* word;
  PatternRole role;
  BitCode code;
};

constexpr std::array<Role, 8> roles{{{"phase", PatternRole::Phase, BitCode::Gray},
                                     {"gray", PatternRole::Bit, BitCode::Gray},
                                     {"binary", PatternRole::Bit, BitCode::Binary},
                                     {"xor", PatternRole::Bit, BitCode::Xor},
                                     {"white", PatternRole::White, BitCode::Gray},
                                     {"black", PatternRole::Black, BitCode::Gray},
                                     {"reference", PatternRole::Reference, BitCode::Gray},
                                     {"line", PatternRole::Line, BitCode::Gray}}};

Words const setMembers{"name", "projector", "images"};
Words const commonMembers{"file", "files", "role", "exposure"};
Words const phaseMembers{"axis", "period", "step", "steps", "offset", "sign"};
Words const lineMembers{"axis", "period", "cell", "shift"};
Words const bitMembers{"axis", "bit", "cell", "shift", "inverse", "order"};

std::string listOf(Words const& words) {
  std::string list;
  for (std::string const& word : words) {
    list += (list.empty() ? "\"" : ", \"") + word + '"';
  }
  return list;
}

void requireMembers(Json const& json, Words const& known) {
  requireJson(json.is_object(), json, "an object", context);
  for (auto const& [name, value] : json.items()) {
    if (std::find(known.begin(), known.end(), name) == known.end()) {
      std::string const meant = nearestWord(name, known);
      throw JsonRefusal(name,
                        meant.empty() ? " is not known here; there are " + listOf(known)
                                      : " is not known; did you mean \"" + meant + "\"?",
                        context);
    }
  }
}

/// The one of `words` that a member holds, as its index.
std::size_t wordIn(Json const& json, char const* member, Words const& words) {
  auto const word = jsonValue<std::string>(json, member, context);
  auto const found = std::find(words.begin(), words.end(), word);
  if (found == words.end()) {
    throw JsonRefusal(member, " holds \"" + word + "\" and must be one of " + listOf(words), context);
  }
  return static_cast<std::size_t>(found - words.begin());
}

template <class T>
void readOptional(Json const& json, char const* member, T& value) {
  if (json.contains(member)) {
    readJson(json, member, value, context);
  }
}

void readWhole(Json const& json, char const* member, int& value) {
  if (json.contains(member)) {
    atJsonPlace(member, context, [&] {
      requireJson(json[member].is_number_integer(), json[member], "a whole number", context);
    });
    readJson(json, member, value, context);
  }
}

Role const& roleIn(Json const& json) {
  Words words;
  for (Role const& role : roles) {
    words.emplace_back(role.word);
  }
  return roles[wordIn(json, "role", words)];
}

/// The names of an entry; one empty name where it has none.
Words filesIn(Json const& json) {
  if (!json.contains("files")) {
    std::string file;
    readOptional(json, "file", file);
    return {file};
  }
  if (json.contains("file")) {
    throw JsonRefusal("files", " stands beside \"file\"; one of them is enough", context);
  }
  atJsonPlace("files", context, [&] {
    requireJson(json["files"].is_array(), json["files"],
                "a list of names (the tool makes lists of patterns such as \"step_*.png\")", context);
  });
  auto files = jsonValue<Words>(json, "files", context);
  if (files.empty()) {
    throw JsonRefusal("files", " is empty", context);
  }
  return files;
}

void readPhases(Json const& json, PatternImage const& start, Words const& files,
                std::vector<PatternImage>& images) {
  PatternImage image = start;
  readJson(json, "period", image.period, context);
  bool const isSequence = json.contains("files");
  std::vector<double> offsets;
  if (isSequence && json.contains("offset") && json["offset"].is_array()) {
    offsets = jsonValue<std::vector<double>>(json, "offset", context);
    if (offsets.size() != files.size()) {
      throw JsonRefusal("offset",
                        " has " + std::to_string(offsets.size()) + " numbers for " +
                            std::to_string(files.size()) + " files",
                        context);
    }
  } else {
    readOptional(json, "offset", image.offset);
    image.steps = isSequence ? static_cast<int>(files.size()) : 1;
  }
  readWhole(json, "steps", image.steps);
  readWhole(json, "step", image.step);
  readWhole(json, "sign", image.sign);
  for (std::size_t k = 0; k < files.size(); ++k) {
    images.push_back(image);
    images.back().file = files[k];
    if (offsets.empty()) {
      images.back().step += static_cast<int>(k);
    } else {
      images.back().offset = offsets[k];
    }
  }
}

void readBits(Json const& json, PatternImage const& start, Words const& files,
              std::vector<PatternImage>& images) {
  PatternImage image = start;
  readOptional(json, "cell", image.cell);
  readOptional(json, "shift", image.shift);
  bool const isSequence = json.contains("files");
  bool isEach = false;
  if (json.contains("inverse")) {
    Json const& inverse = json["inverse"];
    isEach = isSequence && inverse == Json("each");
    if (!isEach) {
      requireJson(inverse.is_boolean(), inverse, "true, false or, of \"files\", \"each\"", context);
      image.isInverse = inverse.get<bool>();
    }
  }
  bool const isRising = json.contains("order") && wordIn(json, "order", {"falling", "rising"}) == 1;
  std::size_t const perBit = isEach ? 2 : 1;
  if (files.size() % perBit != 0) {
    throw JsonRefusal("files", " are " + std::to_string(files.size()) + "; with inverses there must be pairs",
                      context);
  }
  image.bit = isRising ? 0 : static_cast<int>(files.size() / perBit) - 1;
  readWhole(json, "bit", image.bit);
  for (std::size_t k = 0; k < files.size(); ++k) {
    images.push_back(image);
    images.back().file = files[k];
    images.back().bit += (isRising ? 1 : -1) * static_cast<int>(k / perBit);
    images.back().isInverse = image.isInverse || (isEach && k % 2 == 1);
  }
}

void readImages(Json const& json, std::vector<PatternImage>& images) {
  requireJson(json.is_object(), json, "an object", context);
  Role const& role = roleIn(json);
  Words known = commonMembers;
  Words const own = role.role == PatternRole::Phase  ? phaseMembers
                    : role.role == PatternRole::Bit  ? bitMembers
                    : role.role == PatternRole::Line ? lineMembers
                                                     : Words();
  known.insert(known.end(), own.begin(), own.end());
  requireMembers(json, known);
  PatternImage image;
  image.role = role.role;
  image.code = role.code;
  readOptional(json, "exposure", image.exposure);
  Words const files = filesIn(json);
  if (!own.empty()) {
    image.axis = wordIn(json, "axis", {"column", "row"}) == 0 ? PatternAxis::Column : PatternAxis::Row;
  }
  if (role.role == PatternRole::Phase) {
    readPhases(json, image, files, images);
  } else if (role.role == PatternRole::Bit) {
    readBits(json, image, files, images);
  } else {
    if (role.role == PatternRole::Line) {
      readJson(json, "period", image.period, context);
      readOptional(json, "cell", image.cell);
      readOptional(json, "shift", image.shift);
    }
    if (files.size() != 1) {
      throw JsonRefusal("files", " are several; a " + std::string(role.word) + " image is one", context);
    }
    images.push_back(image);
    images.back().file = files.front();
  }
}

Json jsonOf(PatternImage const& image) {
  auto const role = std::find_if(roles.begin(), roles.end(), [&](Role const& one) {
    return one.role == image.role && (image.role != PatternRole::Bit || one.code == image.code);
  });
  Json json{{"role", role->word}};
  if (!image.file.empty()) {
    json["file"] = image.file;
  }
  if (image.exposure != 1.0) {
    json["exposure"] = image.exposure;
  }
  if (image.role == PatternRole::Phase || image.role == PatternRole::Bit || image.role == PatternRole::Line) {
    json["axis"] = image.axis == PatternAxis::Column ? "column" : "row";
  }
  if (image.role == PatternRole::Phase) {
    json.update({{"period", image.period}, {"step", image.step}, {"steps", image.steps}});
    if (image.offset != 0.0) {
      json["offset"] = image.offset;
    }
    if (image.sign != 1) {
      json["sign"] = image.sign;
    }
  } else if (image.role == PatternRole::Line) {
    json.update({{"period", image.period}, {"cell", image.cell}, {"shift", image.shift}});
  } else if (image.role == PatternRole::Bit) {
    json.update({{"bit", image.bit}, {"cell", image.cell}, {"inverse", image.isInverse}});
    if (image.shift != 0.0) {
      json["shift"] = image.shift;
    }
  }
  return json;
}

} // namespace

void PatternSet::read(nlohmann::json const& json) {
  requireMembers(json, setMembers);
  PatternSet set;
  readOptional(json, "name", set.name);
  auto const size = jsonValue<std::vector<int>>(json, "projector", context);
  if (size.size() != 2) {
    throw JsonRefusal("projector", " holds " + std::to_string(size.size()) + " numbers in place of 2",
                      context);
  }
  set.projector = {size[0], size[1]};
  Json const& list = jsonMember(json, "images", context);
  requireJson(list.is_array(), list, "a list \"images\"", context);
  atJsonPlace("images", context, [&] {
    for (std::size_t i = 0; i < list.size(); ++i) {
      atJsonIndex(i, context, [&] { readImages(list[i], set.images); });
    }
  });
  set.validate();
  *this = std::move(set);
}

void PatternSet::write(nlohmann::json& json) const {
  Json list = Json::array();
  for (PatternImage const& image : images) {
    list.push_back(jsonOf(image));
  }
  json = {{"name", name}, {"projector", {projector.width, projector.height}}, {"images", list}};
}

} // namespace vorn::mv
