// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/core/object.hpp>

#include <utility>

#include "core/error.hpp"

namespace vorn {

namespace {

void release(ObjectBase::Private* record) {
  if (record != nullptr && record->count.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    delete record;
  }
}

/// A reference to `record` for one more object, or to a copy of it where somebody may change it unseen.
ObjectBase::Private* shared(ObjectBase::Private* record) {
  if (record == nullptr) {
    return nullptr;
  }
  if (record->lent || record->isNeverShared) {
    return record->clone();
  }
  record->count.fetch_add(1, std::memory_order_relaxed);
  return record;
}

} // namespace

ObjectBase::Private::~Private() = default;

ObjectBase::ObjectBase(ObjectBase const& other) : record_(shared(other.record_)) {}

ObjectBase::ObjectBase(ObjectBase&& other) noexcept : record_(std::exchange(other.record_, nullptr)) {}

ObjectBase& ObjectBase::operator=(ObjectBase const& other) {
  if (this != &other) {
    release(std::exchange(record_, shared(other.record_)));
  }
  return *this;
}

ObjectBase::~ObjectBase() {
  release(record_);
}

std::vector<std::string> const& ObjectBase::getInterfaces() const {
  static std::vector<std::string> const names{"vorn::IObject"};
  return names;
}

std::string ObjectBase::toString() const {
  return getClassName();
}

void ObjectBase::finalize() {
  release(std::exchange(record_, nullptr));
}

void ObjectBase::adopt(Private* record) {
  if (record_ != record) {
    release(std::exchange(record_, record));
  }
}

ObjectBase::Private const& ObjectBase::record() const {
  if (record_ == nullptr) {
    throw error("The object is null: it was finalized or moved from", getClassName().c_str());
  }
  return *record_;
}

ObjectBase::Private& ObjectBase::ownRecord() {
  if (record().count.load(std::memory_order_acquire) > 1) {
    release(std::exchange(record_, record_->clone()));
  }
  return *record_;
}

ObjectBase::Private& ObjectBase::lendRecord() {
  Private& own = ownRecord();
  own.lent = true;
  return own;
}

} // namespace vorn
