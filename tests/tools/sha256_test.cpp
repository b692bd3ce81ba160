// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <string>

#include <gtest/gtest.h>

#include "tools/report/sha256.hpp"

namespace vorn::tools {
namespace {

std::string hashOf(std::string const& text, std::size_t pieceSize) {
  Sha256 hash;
  for (std::size_t at = 0; at < text.size(); at += pieceSize) {
    std::string const piece = text.substr(at, pieceSize);
    hash.update(piece.data(), piece.size());
  }
  return hash.digest();
}

// The examples of FIPS 180-4's own validation: empty, one block, two blocks, a million characters.
TEST(Sha256, HasThePublishedValues) {
  EXPECT_EQ(Sha256().digest(), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(hashOf("abc", 3), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(hashOf("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq", 56),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  EXPECT_EQ(hashOf(std::string(1000000, 'a'), 1000000),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Sha256, TakesPiecesOfAnySize) {
  std::string const text(1000000, 'a');
  for (std::size_t const size : {1U, 63U, 64U, 65U, 4096U}) {
    EXPECT_EQ(hashOf(text, size), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0") << size;
  }
}

} // namespace
} // namespace vorn::tools
