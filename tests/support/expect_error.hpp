// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>
#include <string>

#include <vorn/core/exception.hpp>

namespace vorn::test {

/// Expects `call` to throw a vorn::Exception whose message contains `part`.
template <class Call>
void expectError(Call const& call, std::string const& part) {
  try {
    call();
    ADD_FAILURE() << "no exception; expected one with: " << part;
  } catch (Exception const& exception) {
    EXPECT_NE(exception.message().find(part), std::string::npos)
        << "message: " << exception.message() << "\nexpected in it: " << part;
  }
}

} // namespace vorn::test
