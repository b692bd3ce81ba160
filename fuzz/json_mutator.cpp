// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Mutations of a JSON document that leave it a JSON document, so that the fuzzer spends its time behind the
// parser.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

namespace {

using nlohmann::json;
using Random = std::minstd_rand;

std::size_t pick(Random& random, std::size_t count) {
  return random() % count;
}

void collect(json& value, std::vector<json*>& values) {
  values.push_back(&value);
  if (value.is_structured()) {
    for (json& child : value) {
      collect(child, values);
    }
  }
}

json oddValue(Random& random) {
  static std::vector<json> const values{nullptr,
                                        true,
                                        false,
                                        0,
                                        1,
                                        -1,
                                        2,
                                        64,
                                        65,
                                        255,
                                        256,
                                        65536,
                                        1 << 30,
                                        2.5,
                                        1e-40,
                                        1e39,
                                        1e300,
                                        -1e300,
                                        1e18,
                                        -0.0,
                                        INT32_MAX,
                                        INT32_MIN,
                                        INT64_MAX,
                                        "",
                                        "Rect",
                                        "nan",
                                        "inf",
                                        "1e9",
                                        json::array(),
                                        json::object(),
                                        {1, 2},
                                        {1.0, 2.0, 3.0},
                                        {nullptr, nullptr, nullptr},
                                        {{"rows", 1 << 15}, {"cols", 1 << 15}, {"dt", "d"}}};
  return values[pick(random, values.size())];
}

/// Members and elements of `value` to remove, double or move.
void reshape(json& value, Random& random) {
  std::size_t const index = pick(random, value.size());
  bool const removes = pick(random, 2) == 0;
  if (value.is_array()) {
    if (removes) {
      value.erase(index);
    } else {
      value.insert(value.begin(), json(value[index]));
    }
    return;
  }
  auto member = value.begin();
  std::advance(member, static_cast<std::ptrdiff_t>(index));
  if (removes) {
    value.erase(member);
  } else {
    // The value of one member in the place of another.
    json const copy = *member;
    member = value.begin();
    std::advance(member, static_cast<std::ptrdiff_t>(pick(random, value.size())));
    *member = copy;
  }
}

void mutate(json& document, Random& random) {
  std::vector<json*> values;
  collect(document, values);
  json& value = *values[pick(random, values.size())];
  switch (pick(random, 4)) {
  case 0:
    value = oddValue(random);
    break;
  case 1:
    value = json(*values[pick(random, values.size())]); // a copy first: one may hold the other
    break;
  case 2:
    if (value.is_number()) {
      double const factors[] = {-1, 0.5, 2, 1e3, 1e-3, 1e9};
      value = value.get<double>() * factors[pick(random, 6)];
    } else {
      value = oddValue(random);
    }
    break;
  default:
    if (value.is_structured() && !value.empty()) {
      reshape(value, random);
    } else {
      value = static_cast<int>(pick(random, 40)) - 20;
    }
  }
}

} // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed) {
  Random random(seed);
  json document = json::parse(data, data + size, nullptr, false);
  constexpr std::size_t bytewise = 8; // one mutation in so many knows nothing of JSON
  if (document.is_discarded() || pick(random, bytewise) == 0) {
    return LLVMFuzzerMutate(data, size, maxSize);
  }
  for (std::size_t i = pick(random, 3) + 1; i > 0; --i) {
    mutate(document, random);
  }
  std::string const text = document.dump(-1, ' ', true, json::error_handler_t::replace);
  if (text.size() > maxSize) {
    return LLVMFuzzerMutate(data, size, maxSize);
  }
  std::memcpy(data, text.data(), text.size());
  return text.size();
}
