// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include <vorn/core/export.hpp>

namespace vorn {

/// What every object of the library can say of itself. Always inherited virtually.
class VORN_API IObject {
public:
  virtual ~IObject();

  /// The fully qualified class name, such as "vorn::mv::CameraModel"; one string object a class.
  virtual std::string const& getClassName() const = 0;
  /// The names of the interfaces that the object is to be known by.
  virtual std::vector<std::string> const& getInterfaces() const = 0;
  /// The object in words, for logs and debugging.
  virtual std::string toString() const = 0;
  /// True when the object holds nothing: after `finalize`, or after it was moved from.
  virtual bool isNull() const = 0;
  /// Releases what the object holds, before its destruction; it is null afterwards.
  virtual void finalize() = 0;

protected:
  IObject() = default;
  IObject(IObject const&) = default;
  IObject(IObject&&) = default;
  IObject& operator=(IObject const&) = default;
  IObject& operator=(IObject&&) = default;
};

/// An object that reads itself from JSON and writes itself to it.
class VORN_API IJsonSerializable {
public:
  virtual ~IJsonSerializable();

  /// Takes the object's state from `json`. When it throws, the object is as it was.
  /// @throws Exception or nlohmann::json::exception when a member is missing or has a wrong type or value
  virtual void read(nlohmann::json const& json) = 0;
  /// Writes the object's state into `json`, whatever that held before.
  virtual void write(nlohmann::json& json) const = 0;

protected:
  IJsonSerializable() = default;
  IJsonSerializable(IJsonSerializable const&) = default;
  IJsonSerializable(IJsonSerializable&&) = default;
  IJsonSerializable& operator=(IJsonSerializable const&) = default;
  IJsonSerializable& operator=(IJsonSerializable&&) = default;
};

/// Marks an object that runs an algorithm over an input.
class VORN_API IAlgorithm {
public:
  virtual ~IAlgorithm();

protected:
  IAlgorithm() = default;
  IAlgorithm(IAlgorithm const&) = default;
  IAlgorithm(IAlgorithm&&) = default;
  IAlgorithm& operator=(IAlgorithm const&) = default;
  IAlgorithm& operator=(IAlgorithm&&) = default;
};

/// Marks an object that an algorithm returned.
class VORN_API IAlgorithmResult {
public:
  virtual ~IAlgorithmResult();

protected:
  IAlgorithmResult() = default;
  IAlgorithmResult(IAlgorithmResult const&) = default;
  IAlgorithmResult(IAlgorithmResult&&) = default;
  IAlgorithmResult& operator=(IAlgorithmResult const&) = default;
  IAlgorithmResult& operator=(IAlgorithmResult&&) = default;
};

} // namespace vorn
