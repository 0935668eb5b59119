// Keys: of the document, and of each object.
#include "formats/pdf/objects/encryption.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "coding/crypt/digests.h"
#include "core/numbers.h"

namespace tq::pdf::objects {
namespace {

using crypt::Aes;
using crypt::Cipher;
using crypt::Rc4;
using crypt::StreamDecryptor;
using Bytes = std::span<const std::uint8_t>;

// What stands for the rest of a password, here for all of it.
constexpr std::array<std::uint8_t, 32> kPadding = {
    0x28, 0xBF, 0x4E, 0x5E, 0x4E, 0x75, 0x8A, 0x41, 0x64, 0x00, 0x4E, 0x56, 0xFF, 0xFA, 0x01, 0x08,
    0x2E, 0x2E, 0x00, 0xB6, 0xD0, 0x68, 0x3E, 0x80, 0x2F, 0x0C, 0xA9, 0xFE, 0x64, 0x53, 0x69, 0x7A};

constexpr int kMostKeyBytes = 16;  // before AES-256

// Bytes one behind the other.
template <std::size_t kMost>
class Message {
 public:
  Message& add(Bytes bytes) {
    const std::size_t count = std::min(bytes.size(), kMost - size_);
    std::copy_n(bytes.data(), count, bytes_.data() + size_);
    size_ += count;
    return *this;
  }
  Message& add_number(std::uint64_t value, int bytes) {  // the low ones first
    for (int i = 0; i < bytes; ++i) {
      const std::uint8_t one[] = {byte(value >> (8 * i))};
      add(one);
    }
    return *this;
  }
  Bytes bytes() const { return std::span(bytes_).first(size_); }

 private:
  std::array<std::uint8_t, kMost> bytes_{};
  std::size_t size_ = 0;
};

template <std::size_t kBytes>
bool read_exactly(const Value& string, std::array<std::uint8_t, kBytes>& bytes) {
  return string.bytes(bytes) >= std::ssize(bytes);
}

// SHA-256 of the salt, hardened by revision 6: ISO 32000-2, algorithm 2.B.
std::array<std::uint8_t, 32> hash(Bytes salt, bool hardened) {
  std::array<std::uint8_t, 32> first = crypt::sha256(salt);
  if (!hardened) return first;
  constexpr std::size_t kCopies = 64;
  std::array<std::uint8_t, 64> k{};
  std::array<std::uint8_t, kCopies * 64> text;
  std::copy(first.begin(), first.end(), k.begin());
  std::size_t size = first.size();
  for (int round = 0, last = 0; round < 64 || last > round - 32; ++round) {
    for (std::size_t i = 0; i < kCopies; ++i) std::memcpy(text.data() + i * size, k.data(), size);
    const auto used = std::span(text).first(kCopies * size);
    Aes::Block vector;
    std::copy_n(k.begin() + Aes::kBlock, Aes::kBlock, vector.begin());
    Aes aes;
    aes.start(Aes::Way::encrypt, std::span(k).first(Aes::kBlock), vector);
    aes.apply(used, used);
    int sum = 0;  // of digits of base 256, which is 1 modulo 3
    for (int i = 0; i < Aes::kBlock; ++i) sum += text[i];
    const auto take = [&](const auto& digest) {
      std::copy(digest.begin(), digest.end(), k.begin());
      size = digest.size();
    };
    last = used.back();
    if (sum % 3 == 0) take(crypt::sha256(used));
    if (sum % 3 == 1) take(crypt::sha384(used));
    if (sum % 3 == 2) take(crypt::sha512(used));
  }
  std::copy_n(k.begin(), first.size(), first.begin());
  return first;
}

}  // namespace

Encryption::Encryption() {
  decipherer_ = {
      .context = this,
      .has_key =
          [](void* self, const Object& stream) {
            return static_cast<Encryption*>(self)->has_key(stream);
          },
      .stream_bytes = sizeof(StreamDecryptor),
      .begin_stream =
          [](void* self, void* state, const Object& stream, PieceSource coded) {
            return static_cast<Encryption*>(self)->begin_stream(state, stream, coded);
          },
      .next_piece = [](void* state) { return static_cast<StreamDecryptor*>(state)->next_piece(); },
      .end_stream = [](void* state) { static_cast<StreamDecryptor*>(state)->~StreamDecryptor(); },
      .decipher =
          [](void* self, const Object& owner, std::span<std::uint8_t> bytes) {
            return static_cast<Encryption*>(self)->decipher(owner, bytes);
          }};
}

Status Encryption::unlock(File& file) {
  file.set_decipherer(nullptr);
  Object room, id_room;
  Value dictionary = file.trailer()["Encrypt"], id = file.trailer()["ID"];
  TQ_TRY(file.resolve(dictionary, room));
  if (dictionary.is(Kind::null)) return kOk;
  TQ_TRY(file.resolve(id, id_room));
  if (!dictionary["Filter"].is_name("Standard")) return StatusCode::unsupported;
  version_ = dictionary["V"].integer();
  revision_ = dictionary["R"].integer();
  TQ_TRY(read_methods(file, dictionary));
  Items ids = id.items();
  const bool found = revision_ >= 5 ? find_new_key(dictionary)
                                    : find_key(dictionary, ids.next() ? ids.value() : Value());
  if (!found) return StatusCode::unsupported;
  file.set_decipherer(&decipherer_);
  return kOk;
}

Status Encryption::read_methods(File& file, const Value& dictionary) {
  const bool is_known = ((version_ == 1 || version_ == 2) && (revision_ == 2 || revision_ == 3)) ||
                        (version_ == 4 && revision_ == 4) ||
                        (version_ == 5 && (revision_ == 5 || revision_ == 6));
  if (!is_known) return StatusCode::unsupported;
  if (version_ >= 4) {
    key_bytes_ = version_ == 4 ? kMostKeyBytes : key_.size();
    TQ_TRY(read_method(file, dictionary, "StmF", streams_));
    return read_method(file, dictionary, "StrF", strings_);
  }
  const std::int64_t bits = version_ == 1 ? 40 : dictionary["Length"].integer(40);
  if (bits < 40 || bits > 8 * kMostKeyBytes) return StatusCode::unsupported;
  key_bytes_ = static_cast<std::size_t>(bits / 8);
  streams_ = strings_ = Cipher::rc4;
  return kOk;
}

Status Encryption::read_method(File& file, const Value& dictionary, std::string_view user,
                               Cipher& cipher) {
  cipher = Cipher::none;
  const Value name = dictionary[user];
  if (name.is(Kind::null) || name.is_name("Identity")) return kOk;
  Object room, other;
  Value filter = dictionary["CF"];
  TQ_TRY(file.resolve(filter, room));
  filter = filter[name];
  TQ_TRY(file.resolve(filter, other));
  const Value method = filter["CFM"];
  if (method.is_name("None")) return kOk;
  const bool is_old = version_ == 4;
  if (is_old && method.is_name("V2")) {
    cipher = Cipher::rc4;
  } else if (method.is_name(is_old ? "AESV2" : "AESV3")) {
    cipher = Cipher::aes;
  }
  return cipher == Cipher::none ? StatusCode::unsupported : StatusCode::ok;
}

// Whether the empty password is the right one; the key is known then.
bool Encryption::find_key(const Value& dictionary, const Value& id) {
  std::array<std::uint8_t, 32> owner, user;
  std::array<std::uint8_t, 128> id_room;
  if (!read_exactly(dictionary["O"], owner) || !read_exactly(dictionary["U"], user)) return false;
  const auto id_bytes = std::min(id.bytes(id_room), std::ssize(id_room));
  const Bytes first_id = std::span(id_room).first(static_cast<std::size_t>(id_bytes));
  const auto permissions = static_cast<std::uint64_t>(dictionary["P"].integer());
  Message<256> message;
  message.add(kPadding).add(owner).add_number(permissions, 4).add(first_id);
  if (revision_ == 4 && !dictionary["EncryptMetadata"].boolean(true)) {
    message.add_number(0xFFFFFFFF, 4);
  }
  auto digest = crypt::md5(message.bytes());
  const auto key = std::span(digest).first(key_bytes_);
  for (int i = 0; i < 50 && revision_ >= 3; ++i) digest = crypt::md5(key);
  std::ranges::copy(key, key_.begin());

  Rc4 rc4;
  if (revision_ == 2) {
    std::array<std::uint8_t, 32> expected;
    rc4.start(key);
    rc4.apply(kPadding, expected);
    return expected == user;
  }
  Message<256> check;
  auto expected = crypt::md5(check.add(kPadding).add(first_id).bytes());
  for (int i = 0; i < 20; ++i) {
    std::array<std::uint8_t, kMostKeyBytes> changed;
    for (std::size_t k = 0; k < key_bytes_; ++k) changed[k] = byte(key[k] ^ i);
    rc4.start(std::span(changed).first(key_bytes_));
    rc4.apply(expected, expected);
  }
  return std::equal(expected.begin(), expected.end(), user.begin());
}

bool Encryption::find_new_key(const Value& dictionary) {
  std::array<std::uint8_t, 48> user;
  if (!read_exactly(dictionary["U"], user) || !read_exactly(dictionary["UE"], key_)) return false;
  const auto validation_salt = std::span(user).subspan(32, 8);
  const auto key_salt = std::span(user).subspan(40, 8);
  const bool hardened = revision_ == 6;
  const auto expected = hash(validation_salt, hardened);
  if (!std::equal(expected.begin(), expected.end(), user.begin())) return false;
  Aes aes;
  aes.start(Aes::Way::decrypt, hash(key_salt, hardened), {});
  aes.apply(key_, key_);
  return true;
}

std::span<const std::uint8_t> Encryption::key_of(const Object& object, Cipher cipher,
                                                 Key& room) const {
  if (version_ == 5) return key_;
  constexpr std::uint8_t kSalt[] = {'s', 'A', 'l', 'T'};
  const auto [number, generation] = object.reference();
  Message<32> message;
  message.add(std::span(key_).first(key_bytes_));
  message.add_number(static_cast<std::uint64_t>(number), 3);
  message.add_number(static_cast<std::uint64_t>(generation), 2);
  if (cipher == Cipher::aes) message.add(kSalt);
  const auto digest = crypt::md5(message.bytes());
  std::copy(digest.begin(), digest.end(), room.begin());
  return std::span(room).first(std::min<std::size_t>(key_bytes_ + 5, kMostKeyBytes));
}

bool Encryption::has_key(const Object& stream) const {
  const Value dictionary = stream.value(), filter = dictionary["Filter"];
  // What has a cipher of its own, which is none.
  bool is_apart = filter.is_name("Crypt");
  for (Items items = filter.items(); items.next();) is_apart |= items.value().is_name("Crypt");
  return streams_ != Cipher::none && !is_apart && !dictionary["Type"].is_name("XRef");
}

Status Encryption::begin_stream(void* state, const Object& stream, PieceSource coded) const {
  auto* const decryptor = new (state) StreamDecryptor;
  Key room;
  const Status opened = decryptor->open(streams_, key_of(stream, streams_, room));
  if (opened.failed()) {
    decryptor->~StreamDecryptor();
    return opened;
  }
  decryptor->start(coded);
  return kOk;
}

std::ptrdiff_t Encryption::decipher(const Object& owner, std::span<std::uint8_t> bytes) const {
  if (strings_ == Cipher::none) return std::ssize(bytes);
  Key room;
  return crypt::decrypt_string(strings_, key_of(owner, strings_, room), bytes);
}

}  // namespace tq::pdf::objects
