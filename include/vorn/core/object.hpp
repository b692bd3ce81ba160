// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include <vorn/core/export.hpp>
#include <vorn/core/interfaces.hpp>

namespace vorn {

/// The root of the object model: owns a reference-counted private record and makes objects behave as values.
///
/// Copies share one record until one of them is changed; that one takes its own copy of the record first
/// (copy on write). A class derives its record from `ObjectBase::Private` (through `Record`, which clones
/// it), hands it to the constructor, reads it with `record()` and changes it with `ownRecord()` or
/// `lendRecord()`. One object is used by one thread at a time; copies may live in different threads.
class VORN_API ObjectBase : public virtual IObject {
public:
  /// The part of an object that its copies share. Its count starts at 1, for the object that it is made for.
  struct VORN_API Private {
    Private() = default;
    /// A copy starts unshared.
    Private(Private const& other) : isNeverShared(other.isNeverShared) {}
    Private& operator=(Private const&) = delete;
    virtual ~Private();
    /// A new record with the same content.
    virtual Private* clone() const = 0;

    /// The objects that share the record.
    std::atomic<int> count{1};
    /// Set once somebody may hold a reference into the record: it is never shared from then on.
    bool lent = false;
    /// For records whose content callers can change through what calls on a const object return, such as the
    /// pixels of a matrix: every object has its own. To be set in the record's constructor.
    bool isNeverShared = false;
  };

  /// Shares the record, or copies it where a reference into it was handed out.
  ObjectBase(ObjectBase const& other);
  /// Takes over the record; the other object is null afterwards.
  ObjectBase(ObjectBase&& other) noexcept;
  /// Serves moves too, by sharing: a virtual base may be assigned along more than one path.
  ObjectBase& operator=(ObjectBase const& other);
  ~ObjectBase() override;

  /// "vorn::IObject".
  std::vector<std::string> const& getInterfaces() const override;
  /// The class name.
  std::string toString() const override;
  bool isNull() const override { return record_ == nullptr; }
  void finalize() override;

protected:
  /// A null object: for classes in between, whose constructor takes a record and calls `adopt`.
  ObjectBase() = default;
  /// Takes over `record`, whose count is 1.
  explicit ObjectBase(Private* record) : record_(record) {}

  /// Takes over `record` unless the object has it already. As a virtual base, this class is constructed by
  /// the most derived one; a base class in between hands on its record by this call.
  void adopt(Private* record);

  /// The record, to read.
  /// @throws Exception when the object is null
  Private const& record() const;
  /// The record, to change: this object's own from now on.
  /// @throws Exception when the object is null
  Private& ownRecord();
  /// As `ownRecord`, for calls that hand out a reference into the record.
  Private& lendRecord();

private:
  Private* record_ = nullptr;
};

/// A private record that can be cloned: `struct Private : Record<Private> { ... };`, or with the record of a
/// base class as second argument.
template <class Self, class Base = ObjectBase::Private>
struct Record : Base {
  using Base::Base;
  /// A new record of the class `Self` with the same content.
  ObjectBase::Private* clone() const override { return new Self(static_cast<Self const&>(*this)); }
};

} // namespace vorn
