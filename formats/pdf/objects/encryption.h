// Documents that are enciphered, but open for everybody: the user password is empty. ISO 32000-1 and
// 32000-2, 7.6.
#pragma once

#include <array>

#include "coding/crypt/ciphers.h"
#include "formats/pdf/objects/file.h"

namespace tq::pdf::objects {

class Encryption {
 public:
  Encryption();
  Encryption(const Encryption&) = delete;
  Encryption& operator=(const Encryption&) = delete;

  // For File::set_unlocker: takes care of a document that turns out to be enciphered. unsupported: it
  // asks for a password, or is enciphered in a way that nobody here knows.
  Status unlock(File& file);

 private:
  using Key = std::array<std::uint8_t, 32>;

  Status read_methods(File& file, const Value& dictionary);
  Status read_method(File& file, const Value& dictionary, std::string_view user,
                     crypt::Cipher& cipher);
  bool find_key(const Value& dictionary, const Value& id);
  bool find_new_key(const Value& dictionary);
  std::span<const std::uint8_t> key_of(const Object& object, crypt::Cipher cipher, Key& room) const;

  bool has_key(const Object& stream) const;
  Status begin_stream(void* state, const Object& stream, PieceSource coded) const;
  std::ptrdiff_t decipher(const Object& owner, std::span<std::uint8_t> bytes) const;

  Decipherer decipherer_;
  crypt::Cipher streams_ = crypt::Cipher::none, strings_ = crypt::Cipher::none;
  std::int64_t version_ = 0, revision_ = 0;
  Key key_{};
  std::size_t key_bytes_ = 0;
};

}  // namespace tq::pdf::objects
