// The vectors of RFC 1321, FIPS 180-4 and NIST SP 800-38A, those that RC4 is known by, and streams in
// pieces.
#include <gtest/gtest.h>

#include <string>

#include "coding/crypt/ciphers.h"
#include "coding/crypt/digests.h"
#include "core/numbers.h"
#include "tests/support/image_builder.h"

namespace tq::crypt {
namespace {

using Vector = test::Bytes;

std::string hex(Bytes bytes) {
  std::string text;
  for (const std::uint8_t b : bytes) {
    for (const int digit : {b >> 4, b & 15}) text += "0123456789abcdef"[digit];
  }
  return text;
}
Vector bytes_of(std::string_view text) {
  return {text.begin(), text.end()};
}
Vector from_hex(const std::string& text) {
  Vector bytes;
  for (std::size_t i = 0; i < text.size(); i += 2)
    bytes.push_back(byte(std::stoi(text.substr(i, 2), nullptr, 16)));
  return bytes;
}

TEST(Digests, StandardVectors) {
  EXPECT_EQ(hex(md5({})), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(hex(md5(bytes_of("abc"))), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(hex(md5(bytes_of("1234567890123456789012345678901234567890"
                             "1234567890123456789012345678901234567890"))),
            "57edf4a22be3c955ac49da2e2107b67a");
  const Vector two_blocks = bytes_of("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq");
  EXPECT_EQ(hex(sha256(bytes_of("abc"))),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(hex(sha256(two_blocks)),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  EXPECT_EQ(hex(sha384(bytes_of("abc"))),
            "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed"
            "8086072ba1e7cc2358baeca134c825a7");
  EXPECT_EQ(hex(sha512(bytes_of("abc"))),
            "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
            "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f");
  EXPECT_EQ(hex(sha512(bytes_of("abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmn"
                                "hijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu"))),
            "8e959b75dae313da8cf4f72814fc143f8f7779c6eb9f7fa17299aeadb6889018"
            "501d289e4900f7e4331b99dec4b5433ac7d329eeb6dd26545e96e55b874be909");
}

// One digest over those of all lengths around a block's end; the expected ones are of Python's
// hashlib.
TEST(Digests, EveryLength) {
  Vector md5s, sha256s, sha512s;
  Vector text;
  for (int length = 0; length < 300; ++length) {
    for (const std::uint8_t b : md5(text)) md5s.push_back(b);
    for (const std::uint8_t b : sha256(text)) sha256s.push_back(b);
    for (const std::uint8_t b : sha512(text)) sha512s.push_back(b);
    text.push_back(byte(length * 7));
  }
  EXPECT_EQ(hex(md5(md5s)), "b9d5b0ec0d207bb96cccb77036c15f87");
  EXPECT_EQ(hex(md5(sha256s)), "4638ce27f8a490e65870a34915739545");
  EXPECT_EQ(hex(md5(sha512s)), "5aedad9ada121923bb98097d13c4f16d");
}

TEST(Ciphers, StandardVectors) {
  const struct {
    const char *key, *plain, *coded;
  } rc4s[] = {{"Key", "Plaintext", "bbf316e8d940af0ad3"},
              {"Wiki", "pedia", "1021bf0420"},
              {"Secret", "Attack at dawn", "45a01f645fc35b383552544b9bf5"}};
  for (const auto& c : rc4s) {
    Vector bytes = bytes_of(c.plain);
    EXPECT_EQ(decrypt_string(Cipher::rc4, bytes_of(c.key), bytes), std::ssize(bytes));
    EXPECT_EQ(hex(bytes), c.coded);
  }
  // SP 800-38A, F.2.1, F.2.2 and F.2.6.
  const Vector plain = from_hex(
      "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
      "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710");
  const std::string coded128 =
      "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"
      "73bed6b8e3c1743b7116e69e222295163ff1caa1681fac09120eca307586e1a7";
  const std::string coded256 =
      "f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
      "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b";
  const Vector key128 = from_hex("2b7e151628aed2a6abf7158809cf4f3c");
  const Vector key256 =
      from_hex("603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4");
  Aes::Block vector;
  for (int i = 0; i < 16; ++i) vector[i] = byte(i);
  Aes aes;
  Vector out(plain.size());
  aes.start(Aes::Way::encrypt, key128, vector);
  aes.apply(plain, out);
  EXPECT_EQ(hex(out), coded128);
  aes.start(Aes::Way::encrypt, key256, vector);
  aes.apply(plain, out);
  EXPECT_EQ(hex(out), coded256);
  for (const bool large : {false, true}) {
    aes.start(Aes::Way::decrypt, large ? key256 : key128, vector);
    Vector in_place = from_hex(large ? coded256 : coded128);
    aes.apply(std::span(in_place).first(16), in_place);  // and goes on
    aes.apply(std::span(in_place).subspan(16), std::span(in_place).subspan(16));
    EXPECT_EQ(in_place, plain);
  }
}

struct Pieces {
  Vector bytes;
  std::size_t size, at = 0;
  Bytes next_piece() {
    const std::size_t from = at;
    at = std::min(at + size, bytes.size());
    return {bytes.data() + from, at - from};
  }
};

Vector deciphered(Cipher cipher, Bytes key, const Vector& coded, std::size_t piece) {
  StreamDecryptor decryptor;
  EXPECT_EQ(decryptor.open(cipher, key), kOk);
  Pieces pieces{coded, piece};
  decryptor.start(PieceSource::of(pieces));
  Vector out;
  for (Bytes part = decryptor.next_piece(); !part.empty(); part = decryptor.next_piece()) {
    out.insert(out.end(), part.begin(), part.end());
  }
  return out;
}

TEST(Ciphers, StreamsOfEveryLength) {
  const Vector key = from_hex("2b7e151628aed2a6abf7158809cf4f3c");
  constexpr int kPiece = 16 * 1024;
  for (const int length : {0, 1, 15, 16, 17, 31, 32, kPiece - 16, kPiece - 1, kPiece, kPiece + 1,
                           2 * kPiece - 16, 2 * kPiece, 40000}) {
    Vector plain(static_cast<std::size_t>(length));
    for (std::size_t i = 0; i < plain.size(); ++i) plain[i] = byte(i * i / 7);
    Aes::Block vector{};
    vector[3] = 99;
    Vector coded = plain;
    const std::size_t padding = 16 - plain.size() % 16;
    coded.insert(coded.end(), padding, byte(padding));
    Aes aes;
    aes.start(Aes::Way::encrypt, key, vector);
    aes.apply(coded, coded);
    coded.insert(coded.begin(), vector.begin(), vector.end());
    Vector string = coded;
    string.resize(static_cast<std::size_t>(decrypt_string(Cipher::aes, key, string)));
    EXPECT_EQ(string, plain) << length;
    Vector with_rc4 = plain;
    decrypt_string(Cipher::rc4, key, with_rc4);
    for (const std::size_t piece : {std::size_t{7}, std::size_t{50000}}) {
      EXPECT_EQ(deciphered(Cipher::aes, key, coded, piece), plain) << length;
      EXPECT_EQ(deciphered(Cipher::rc4, key, with_rc4, piece), plain) << length;
      EXPECT_EQ(deciphered(Cipher::none, key, coded, piece), coded) << length;
    }
    // What is cut off keeps its whole blocks.
    coded.resize(coded.size() - 5);
    const Vector cut = deciphered(Cipher::aes, key, coded, 100);
    EXPECT_TRUE(cut.size() <= plain.size() && plain.size() < cut.size() + 32) << length;
    EXPECT_TRUE(std::equal(cut.begin(), cut.end() - std::min<std::ptrdiff_t>(std::ssize(cut), 16),
                           plain.begin()));
  }
  EXPECT_TRUE(deciphered(Cipher::aes, key, Vector(9), 3).empty());
  Vector small(16);
  EXPECT_EQ(decrypt_string(Cipher::aes, key, small), 0);
}

}  // namespace
}  // namespace tq::crypt
