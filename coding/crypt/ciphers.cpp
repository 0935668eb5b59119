// AES goes by one table for a byte's share of a column, turned for the other three rows.
#include "coding/crypt/ciphers.h"

#include <algorithm>
#include <bit>
#include <utility>

#include "core/numbers.h"
#include "io/endian.h"

namespace tq::crypt {
namespace {

// In the field of FIPS 197, 4.2.
constexpr std::uint8_t doubled(int value) {
  return byte(value << 1 ^ ((value & 0x80) != 0 ? 0x11B : 0));
}
constexpr std::uint8_t times(int value, int factor) {
  int product = 0;
  for (; factor != 0; factor >>= 1, value = doubled(value))
    product ^= (factor & 1) != 0 ? value : 0;
  return byte(product);
}

struct AesTables {
  std::array<std::uint8_t, 256> box{}, inverse_box{};
  // A column from the byte in its first row: SubBytes and MixColumns, and both undone.
  std::array<std::uint32_t, 256> mix{}, inverse_mix{};
};

constexpr std::uint32_t column(int a, int b, int c, int d) {
  return std::uint32_t{byte(a)} << 24 | std::uint32_t{byte(b)} << 16 | std::uint32_t{byte(c)} << 8 |
         byte(d);
}

constexpr AesTables make_tables() {
  AesTables t;
  // 3 makes all values but 0, and 0xF6 their inverses.
  for (int i = 0, power = 1, inverse = 1; i < 256; ++i) {
    const int value = i == 255 ? 0 : power, reciprocal = i == 255 ? 0 : inverse;
    int bits = reciprocal;
    for (int turn = 1; turn <= 4; ++turn) bits ^= reciprocal << turn | reciprocal >> (8 - turn);
    t.box[value] = byte(bits ^ 0x63);
    t.inverse_box[t.box[value]] = byte(value);
    power = times(power, 3);
    inverse = times(inverse, 0xF6);
  }
  for (int i = 0; i < 256; ++i) {
    const int s = t.box[i], u = t.inverse_box[i];
    t.mix[i] = column(times(s, 2), s, s, times(s, 3));
    t.inverse_mix[i] = column(times(u, 14), times(u, 9), times(u, 13), times(u, 11));
  }
  return t;
}
constexpr AesTables kAes = make_tables();

constexpr int byte_of(std::uint32_t word, int row) {
  return byte(word >> (24 - 8 * row));
}
constexpr std::uint32_t substituted(std::uint32_t word) {
  return column(kAes.box[byte_of(word, 0)], kAes.box[byte_of(word, 1)], kAes.box[byte_of(word, 2)],
                kAes.box[byte_of(word, 3)]);
}
// InvMixColumns alone.
constexpr std::uint32_t unmixed(std::uint32_t word) {
  std::uint32_t mixed = 0;
  for (int row = 0; row < 4; ++row) {
    mixed ^= std::rotr(kAes.inverse_mix[kAes.box[byte_of(word, row)]], 8 * row);
  }
  return mixed;
}

using State = std::array<std::uint32_t, 4>;  // columns, the first row on top

// One way or the other: rows are shifted to the left or to the right.
template <int kStep>
void transform(Aes::Block& block, std::span<const State> keys,
               const std::array<std::uint32_t, 256>& mix,
               const std::array<std::uint8_t, 256>& box) {
  State state;
  for (int i = 0; i < 4; ++i) state[i] = load_be32(block.data() + 4 * i) ^ keys[0][i];
  for (std::size_t round = 1; round + 1 < keys.size(); ++round) {
    State next = keys[round];
    for (int i = 0; i < 4; ++i) {
      for (int row = 0; row < 4; ++row) {
        next[i] ^= std::rotr(mix[byte_of(state[(i + kStep * row) & 3], row)], 8 * row);
      }
    }
    state = next;
  }
  for (int i = 0; i < 4; ++i) {
    std::uint32_t last = 0;
    for (int row = 0; row < 4; ++row) {
      last = last << 8 | box[byte_of(state[(i + kStep * row) & 3], row)];
    }
    store_be32(block.data() + 4 * i, last ^ keys.back()[i]);
  }
}

// Bytes that are none; a block that is wrong has none of them.
constexpr std::ptrdiff_t padding(int last) {
  return last <= Aes::kBlock ? last : 0;
}

}  // namespace

void Rc4::start(Bytes key) {
  for (int i = 0; i < 256; ++i) state_[i] = byte(i);
  i_ = j_ = 0;
  int j = 0;
  for (int i = 0; i < 256 && !key.empty(); ++i) {
    j = byte(j + state_[i] + key[i % key.size()]);
    std::swap(state_[i], state_[j]);
  }
}

void Rc4::apply(Bytes from, std::span<std::uint8_t> to) {
  for (std::size_t at = 0; at < from.size(); ++at) {
    j_ = byte(j_ + state_[++i_]);
    std::swap(state_[i_], state_[j_]);
    to[at] = byte(from[at] ^ state_[byte(state_[i_] + state_[j_])]);
  }
}

// FIPS 197, 5.2, and 5.3.5 for the other way round.
void Aes::start(Way way, Bytes key, const Block& vector) {
  way_ = way;
  chain_ = vector;
  const int words = key.size() >= 32 ? 8 : 4;
  rounds_ = words + 6;
  std::array<std::uint32_t, 60> expanded{};
  for (int i = 0; i < words; ++i) expanded[i] = load_be32(key.data() + 4 * i);
  std::uint8_t constant = 1;
  for (int i = words; i < 4 * (rounds_ + 1); ++i) {
    std::uint32_t word = expanded[i - 1];
    if (i % words == 0) {
      word = substituted(std::rotl(word, 8)) ^ std::uint32_t{constant} << 24;
      constant = doubled(constant);
    } else if (words == 8 && i % words == 4) {
      word = substituted(word);
    }
    expanded[i] = expanded[i - words] ^ word;
  }
  for (int round = 0; round <= rounds_; ++round) {
    const bool decrypts = way == Way::decrypt, inner = round > 0 && round < rounds_;
    for (int i = 0; i < 4; ++i) {
      const std::uint32_t word = expanded[4 * (decrypts ? rounds_ - round : round) + i];
      keys_[round][i] = decrypts && inner ? unmixed(word) : word;
    }
  }
}

void Aes::apply(Bytes from, std::span<std::uint8_t> to) {
  const std::span<const State> keys = std::span(keys_).first(rounds_ + 1);
  for (std::size_t at = 0; at + kBlock <= from.size(); at += kBlock) {
    Block block;
    std::copy_n(from.begin() + at, kBlock, block.begin());
    if (way_ == Way::encrypt) {
      for (int i = 0; i < kBlock; ++i) block[i] ^= chain_[i];
      transform<1>(block, keys, kAes.mix, kAes.box);
      chain_ = block;
    } else {
      const Block coded = block;
      transform<-1>(block, keys, kAes.inverse_mix, kAes.inverse_box);
      for (int i = 0; i < kBlock; ++i) block[i] ^= chain_[i];
      chain_ = coded;
    }
    std::copy_n(block.begin(), kBlock, to.begin() + at);
  }
}

Status StreamDecryptor::open(Cipher cipher, Bytes key) {
  cipher_ = cipher;
  key_bytes_ = static_cast<int>(std::min<std::size_t>(key.size(), kMostKey));
  std::copy_n(key.begin(), key_bytes_, key_.begin());
  return cipher == Cipher::none ? kOk : room_.allocate(Aes::kBlock + kPiece);
}

void StreamDecryptor::start(PieceSource data) {
  data_ = data;
  piece_ = {};
  held_ = 0;
  has_vector_ = ended_ = false;
  const Bytes key = std::span(key_).first(key_bytes_);
  if (cipher_ == Cipher::rc4) rc4_.start(key);
  if (cipher_ == Cipher::aes) aes_.start(Aes::Way::decrypt, key, {});
}

std::span<const std::uint8_t> StreamDecryptor::next_piece() {
  if (cipher_ == Cipher::none) return data_.next();
  if (cipher_ == Cipher::aes) return next_aes_piece();
  if (piece_.empty()) piece_ = data_.next();
  const Bytes now = piece_.first(std::min<std::size_t>(piece_.size(), kPiece));
  piece_ = piece_.subspan(now.size());
  rc4_.apply(now, room_.bytes());
  return room_.bytes().first(now.size());
}

// How many bytes there were; fewer at the end.
std::ptrdiff_t StreamDecryptor::read(std::uint8_t* to, std::ptrdiff_t wanted) {
  std::ptrdiff_t filled = 0;
  while (filled < wanted) {
    if (piece_.empty()) piece_ = data_.next();
    if (piece_.empty()) break;
    const std::ptrdiff_t here = std::min(std::ssize(piece_), wanted - filled);
    std::copy_n(piece_.begin(), here, to + filled);
    piece_ = piece_.subspan(static_cast<std::size_t>(here));
    filled += here;
  }
  return filled;
}

// The last block stays back until it is known whether it is the last, and then goes in front of the
// next piece.
std::span<const std::uint8_t> StreamDecryptor::next_aes_piece() {
  constexpr std::ptrdiff_t kBlock = Aes::kBlock;
  if (ended_) return {};
  if (!has_vector_) {
    Aes::Block vector;
    ended_ = read(vector.data(), kBlock) < kBlock;
    if (ended_) return {};
    aes_.set_vector(vector);
    has_vector_ = true;
  }
  std::uint8_t* const room = room_.data();
  const std::ptrdiff_t first = held_ > 0 ? 0 : kBlock;
  if (held_ > 0) std::copy_n(room + held_, kBlock, room);
  const std::ptrdiff_t there = read(room + kBlock, kPiece), whole = there / kBlock * kBlock;
  const auto blocks = room_.bytes().subspan(kBlock, static_cast<std::size_t>(whole));
  aes_.apply(blocks, blocks);
  held_ = whole;  // the last block's place
  ended_ = there < kPiece;
  std::ptrdiff_t end = held_;
  if (ended_ && first < held_ + kBlock) end = held_ + kBlock - padding(room[held_ + kBlock - 1]);
  return room_.bytes().subspan(static_cast<std::size_t>(first),
                               static_cast<std::size_t>(std::max(end, first) - first));
}

std::ptrdiff_t decrypt_string(Cipher cipher, Bytes key, std::span<std::uint8_t> bytes) {
  constexpr std::ptrdiff_t kBlock = Aes::kBlock;
  if (cipher == Cipher::rc4) {
    Rc4 rc4;
    rc4.start(key);
    rc4.apply(bytes, bytes);
  }
  if (cipher != Cipher::aes) return std::ssize(bytes);
  const std::ptrdiff_t whole = (std::ssize(bytes) - kBlock) / kBlock * kBlock;
  if (whole <= 0) return 0;
  Aes::Block vector;
  std::copy_n(bytes.begin(), kBlock, vector.begin());
  Aes aes;
  aes.start(Aes::Way::decrypt, key, vector);
  aes.apply(bytes.subspan(kBlock, static_cast<std::size_t>(whole)), bytes);
  return whole - padding(bytes[whole - 1]);
}

}  // namespace tq::crypt
