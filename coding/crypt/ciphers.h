// RC4, and AES (FIPS 197) in chains of blocks (NIST SP 800-38A, 6.2): what is in memory, and what
// comes in pieces.
#pragma once

#include <array>

#include "coding/bits.h"
#include "core/memory.h"

namespace tq::crypt {

using Bytes = std::span<const std::uint8_t>;

// Both ways. A key has 1 to 256 bytes.
class Rc4 {
 public:
  void start(Bytes key);
  void apply(Bytes from, std::span<std::uint8_t> to);  // of equal length, or one place

 private:
  std::array<std::uint8_t, 256> state_;
  std::uint8_t i_ = 0, j_ = 0;
};

class Aes {
 public:
  static constexpr int kBlock = 16;
  using Block = std::array<std::uint8_t, kBlock>;

  enum class Way : std::uint8_t { encrypt, decrypt };

  // A key has 16 or 32 bytes.
  void start(Way way, Bytes key, const Block& vector);
  void set_vector(const Block& vector) { chain_ = vector; }
  // Whole blocks, of equal length, or one place; goes on where the last call ended.
  void apply(Bytes from, std::span<std::uint8_t> to);

 private:
  void encrypt_block(Block& block) const;
  void decrypt_block(Block& block) const;

  Way way_ = Way::encrypt;
  int rounds_ = 0;
  std::array<std::array<std::uint32_t, 4>, 15> keys_;  // of the rounds
  Block chain_{};
};

enum class Cipher : std::uint8_t { none, rc4, aes };

// The bytes of an enciphered stream. With AES the first block is the vector, and the last byte says
// how many to leave out (ISO 32000-1, 7.6.2); what is no whole block is left out as well.
class StreamDecryptor {
 public:
  Status open(Cipher cipher, Bytes key);  // out_of_memory
  void start(PieceSource data);
  std::span<const std::uint8_t> next_piece();

 private:
  static constexpr int kPiece = 16 * 1024;
  static constexpr int kMostKey = 32;

  std::ptrdiff_t read(std::uint8_t* to, std::ptrdiff_t wanted);
  std::span<const std::uint8_t> next_aes_piece();

  Cipher cipher_ = Cipher::none;
  std::array<std::uint8_t, kMostKey> key_{};
  int key_bytes_ = 0;
  Rc4 rc4_;
  Aes aes_;
  PieceSource data_;
  Bytes piece_{};            // what is left of it
  GlobalBlock room_;         // of a block and a piece
  std::ptrdiff_t held_ = 0;  // where the block is that was not handed out; 0: none is
  bool has_vector_ = false, ended_ = false;
};

// What a string becomes, in place: how many bytes of it are left.
std::ptrdiff_t decrypt_string(Cipher cipher, Bytes key, std::span<std::uint8_t> bytes);

}  // namespace tq::crypt
