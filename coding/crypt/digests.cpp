// All go block by block, and end with a bit of 1 and the length in bits.
#include "coding/crypt/digests.h"

#include <algorithm>
#include <bit>

#include "core/numbers.h"
#include "io/endian.h"

namespace tq::crypt {
namespace {

// Calls block(pointer) for each, the last one or two being made up of what is left.
template <int kBlock, bool kBigEndian, class Function>
void for_each_block(Bytes bytes, Function&& block) {
  const std::uint64_t bits = std::uint64_t{8} * bytes.size();
  for (; bytes.size() >= kBlock; bytes = bytes.subspan(kBlock)) block(bytes.data());
  constexpr int kLength = kBlock / 8;
  std::array<std::uint8_t, 2 * kBlock> last{};
  std::copy(bytes.begin(), bytes.end(), last.begin());
  last[bytes.size()] = 0x80;
  const int end = bytes.size() + 1 + kLength <= kBlock ? kBlock : 2 * kBlock;
  for (int i = 0; i < 8; ++i) {
    last[kBigEndian ? end - 1 - i : end - kLength + i] = byte(bits >> 8 * i);
  }
  for (int at = 0; at < end; at += kBlock) block(last.data() + at);
}

// RFC 1321, 3.4: the integer part of 4294967296 times the sine of i + 1.
constexpr std::uint32_t kSines[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

void add_md5_block(const std::uint8_t* block, std::array<std::uint32_t, 4>& state) {
  constexpr int kTurns[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};
  auto [a, b, c, d] = state;
  for (int i = 0; i < 64; ++i) {
    const int round = i / 16;
    const std::uint32_t mixed = round == 0   ? (b & c) | (~b & d)
                                : round == 1 ? (b & d) | (c & ~d)
                                : round == 2 ? b ^ c ^ d
                                             : c ^ (b | ~d);
    constexpr int kSteps[4][2] = {{1, 0}, {5, 1}, {3, 5}, {7, 0}};
    const int word = (kSteps[round][0] * i + kSteps[round][1]) % 16;
    const std::uint32_t sum = a + mixed + kSines[i] + load_le32(block + 4 * word);
    a = d;
    d = c;
    c = b;
    b += std::rotl(sum, kTurns[round][i % 4]);
  }
  state[0] += a;
  state[1] += b;
  state[2] += c;
  state[3] += d;
}

// FIPS 180-4, 4.2: the fractional parts of the cube roots of the first 80 primes. Those of 32 bits
// are the upper halves of the first 64.
constexpr std::uint64_t kRoots[80] = {
    0x428a2f98d728ae22, 0x7137449123ef65cd, 0xb5c0fbcfec4d3b2f, 0xe9b5dba58189dbbc,
    0x3956c25bf348b538, 0x59f111f1b605d019, 0x923f82a4af194f9b, 0xab1c5ed5da6d8118,
    0xd807aa98a3030242, 0x12835b0145706fbe, 0x243185be4ee4b28c, 0x550c7dc3d5ffb4e2,
    0x72be5d74f27b896f, 0x80deb1fe3b1696b1, 0x9bdc06a725c71235, 0xc19bf174cf692694,
    0xe49b69c19ef14ad2, 0xefbe4786384f25e3, 0x0fc19dc68b8cd5b5, 0x240ca1cc77ac9c65,
    0x2de92c6f592b0275, 0x4a7484aa6ea6e483, 0x5cb0a9dcbd41fbd4, 0x76f988da831153b5,
    0x983e5152ee66dfab, 0xa831c66d2db43210, 0xb00327c898fb213f, 0xbf597fc7beef0ee4,
    0xc6e00bf33da88fc2, 0xd5a79147930aa725, 0x06ca6351e003826f, 0x142929670a0e6e70,
    0x27b70a8546d22ffc, 0x2e1b21385c26c926, 0x4d2c6dfc5ac42aed, 0x53380d139d95b3df,
    0x650a73548baf63de, 0x766a0abb3c77b2a8, 0x81c2c92e47edaee6, 0x92722c851482353b,
    0xa2bfe8a14cf10364, 0xa81a664bbc423001, 0xc24b8b70d0f89791, 0xc76c51a30654be30,
    0xd192e819d6ef5218, 0xd69906245565a910, 0xf40e35855771202a, 0x106aa07032bbd1b8,
    0x19a4c116b8d2d0c8, 0x1e376c085141ab53, 0x2748774cdf8eeb99, 0x34b0bcb5e19b48a8,
    0x391c0cb3c5c95a63, 0x4ed8aa4ae3418acb, 0x5b9cca4f7763e373, 0x682e6ff3d6b2b8a3,
    0x748f82ee5defb2fc, 0x78a5636f43172f60, 0x84c87814a1f0ab72, 0x8cc702081a6439ec,
    0x90befffa23631e28, 0xa4506cebde82bde9, 0xbef9a3f7b2c67915, 0xc67178f2e372532b,
    0xca273eceea26619c, 0xd186b8c721c0c207, 0xeada7dd6cde0eb1e, 0xf57d4f7fee6ed178,
    0x06f067aa72176fba, 0x0a637dc5a2c898a6, 0x113f9804bef90dae, 0x1b710b35131c471b,
    0x28db77f523047d84, 0x32caab7b40c72493, 0x3c9ebe0a15c9bebc, 0x431d67c49c100d4c,
    0x4cc5d4becb3e42b6, 0x597f299cfc657e2a, 0x5fcb6fab3ad6faec, 0x6c44198c4a475817};

// What SHA-256 and SHA-512 differ in.
struct Sha256 {
  using Word = std::uint32_t;
  static constexpr int kRounds = 64;
  static constexpr int kSum0[] = {2, 13, 22}, kSum1[] = {6, 11, 25};
  static constexpr int kMix0[] = {7, 18, 3}, kMix1[] = {17, 19, 10};
};
struct Sha512 {
  using Word = std::uint64_t;
  static constexpr int kRounds = 80;
  static constexpr int kSum0[] = {28, 34, 39}, kSum1[] = {14, 18, 41};
  static constexpr int kMix0[] = {1, 8, 7}, kMix1[] = {19, 61, 6};
};

template <class Word>
constexpr Word sum_of(Word x, const int (&turns)[3]) {
  return std::rotr(x, turns[0]) ^ std::rotr(x, turns[1]) ^ std::rotr(x, turns[2]);
}
template <class Word>
constexpr Word mix_of(Word x, const int (&turns)[3]) {
  return std::rotr(x, turns[0]) ^ std::rotr(x, turns[1]) ^ x >> turns[2];
}

template <class Sha, int kBytes>
Digest<kBytes> sha(Bytes bytes, const std::uint64_t (&first)[8]) {
  using Word = typename Sha::Word;
  constexpr int kWordBytes = sizeof(Word), kDrop = 64 - 8 * kWordBytes;
  std::array<Word, 8> state;
  for (int i = 0; i < 8; ++i) state[i] = static_cast<Word>(first[i] >> kDrop);
  for_each_block<16 * kWordBytes, true>(bytes, [&](const std::uint8_t* block) {
    std::array<Word, Sha::kRounds> words{};
    for (int i = 0; i < 16 * kWordBytes; ++i) {
      words[i / kWordBytes] = static_cast<Word>(words[i / kWordBytes] << 8 | block[i]);
    }
    for (int i = 16; i < Sha::kRounds; ++i) {
      words[i] = mix_of(words[i - 2], Sha::kMix1) + words[i - 7] +
                 mix_of(words[i - 15], Sha::kMix0) + words[i - 16];
    }
    auto [a, b, c, d, e, f, g, h] = state;
    for (int i = 0; i < Sha::kRounds; ++i) {
      const Word root = static_cast<Word>(kRoots[i] >> kDrop);
      const Word t1 = h + sum_of(e, Sha::kSum1) + ((e & f) ^ (~e & g)) + root + words[i];
      const Word t2 = sum_of(a, Sha::kSum0) + ((a & b) ^ (a & c) ^ (b & c));
      h = g;
      g = f;
      f = e;
      e = d + t1;
      d = c;
      c = b;
      b = a;
      a = t1 + t2;
    }
    const Word ends[] = {a, b, c, d, e, f, g, h};
    for (int i = 0; i < 8; ++i) state[i] += ends[i];
  });
  Digest<kBytes> digest;
  for (int i = 0; i < kBytes; ++i) {
    digest[i] = byte(state[i / kWordBytes] >> 8 * (kWordBytes - 1 - i % kWordBytes));
  }
  return digest;
}

// FIPS 180-4, 5.3: the fractional parts of the square roots of the first eight primes, and of the next
// eight. SHA-256 begins with the upper halves of the first.
constexpr std::uint64_t kFirstRoots[8] = {
    0x6a09e667f3bcc908, 0xbb67ae8584caa73b, 0x3c6ef372fe94f82b, 0xa54ff53a5f1d36f1,
    0x510e527fade682d1, 0x9b05688c2b3e6c1f, 0x1f83d9abfb41bd6b, 0x5be0cd19137e2179};
constexpr std::uint64_t kNextRoots[8] = {0xcbbb9d5dc1059ed8, 0x629a292a367cd507, 0x9159015a3070dd17,
                                         0x152fecd8f70e5939, 0x67332667ffc00b31, 0x8eb44a8768581511,
                                         0xdb0c2e0d64f98fa7, 0x47b5481dbefa4fa4};

}  // namespace

Digest<16> md5(Bytes bytes) {
  std::array<std::uint32_t, 4> state = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
  for_each_block<64, false>(bytes, [&](const std::uint8_t* block) { add_md5_block(block, state); });
  Digest<16> digest;
  for (int i = 0; i < 4; ++i) store_le32(digest.data() + 4 * i, state[i]);
  return digest;
}

Digest<32> sha256(Bytes bytes) {
  return sha<Sha256, 32>(bytes, kFirstRoots);
}
Digest<48> sha384(Bytes bytes) {
  return sha<Sha512, 48>(bytes, kNextRoots);
}
Digest<64> sha512(Bytes bytes) {
  return sha<Sha512, 64>(bytes, kFirstRoots);
}

}  // namespace tq::crypt
