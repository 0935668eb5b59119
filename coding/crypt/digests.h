// Digests of bytes that lie in memory: MD5 (RFC 1321) and SHA-2 (FIPS 180-4).
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace tq::crypt {

using Bytes = std::span<const std::uint8_t>;

template <int kBytes>
using Digest = std::array<std::uint8_t, kBytes>;

Digest<16> md5(Bytes bytes);
Digest<32> sha256(Bytes bytes);
Digest<48> sha384(Bytes bytes);
Digest<64> sha512(Bytes bytes);

}  // namespace tq::crypt
