// Objects from their places: text, streams, and object streams.
#include "formats/pdf/objects/file.h"

#include <algorithm>
#include <cstring>

#include "formats/pdf/image/filters.h"
#include "io/stream_window.h"

namespace tq::pdf::objects {
namespace {

constexpr std::int64_t kLongestText = 4 << 20;           // of one object, bytes
constexpr std::int64_t kLongestObjectStream = 16 << 20;  // decoded, bytes
constexpr std::int32_t kMostObjects = 8'388'607;

std::string_view as_text(std::span<const std::uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// The pieces one behind the other, in a block that grows. What is beyond `most` bytes is left out.
Status read_all(image::Filters& filters, std::int64_t most, GlobalBlock& block,
                std::int64_t& bytes) {
  bytes = 0;
  for (auto piece = filters.next_piece(); !piece.empty(); piece = filters.next_piece()) {
    const std::int64_t needed = bytes + std::ssize(piece);
    if (needed > most) break;
    if (needed > std::ssize(block.bytes())) {
      const std::int64_t room = std::max<std::int64_t>(2 * needed, 4096);
      TQ_TRY(block.size() == 0 ? block.allocate(room) : block.resize(room));
    }
    std::memcpy(block.data() + bytes, piece.data(), piece.size());
    bytes = needed;
  }
  return filters.status();
}

}  // namespace

// --- Object ---

void Object::clear() {
  value_ = {};
  reference_ = {};
  data_ = -1;
  data_bytes_ = 0;
  from_object_stream_ = false;
}

Status Object::keep(const Value& value) {
  const std::string_view text = value.text();
  if (text.size() > text_.size()) TQ_TRY(text_.allocate(text.size()));
  if (!text.empty()) std::memcpy(text_.data(), text.data(), text.size());
  value_ = Value(value.kind(), {reinterpret_cast<const char*>(text_.data()), text.size()});
  return kOk;
}

Status Object::copy(const Value& value, const Object& owner) {
  clear();
  reference_ = owner.reference_;
  from_object_stream_ = owner.from_object_stream_;
  return keep(value);
}

// --- Window ---

Status Window::open(StreamHandle stream) {
  stream_ = stream;
  start_ = held_ = 0;
  failed_ = false;
  size_ = find_end(stream);
  if (size_ == INT32_MAX) return StatusCode::read_failed;  // nobody knows where the end is
  return buffer_.allocate(kBytes);
}

std::span<const std::uint8_t> Window::at(std::int64_t position, std::int64_t bytes) {
  if (position < 0 || position >= size_) return {};
  bytes = std::clamp<std::int64_t>(std::min(bytes, size_ - position), 0, kBytes);
  if (position < start_ || position + bytes > start_ + held_) {
    const bool goes_on = position >= start_ && position <= start_ + held_ + kSmall;
    const std::int64_t most = goes_on ? kBytes : std::max(bytes, kSmall);
    const auto wanted = static_cast<std::size_t>(std::min(most, size_ - position));
    held_ = 0;
    start_ = position;
    if (seek_to(stream_, position).ok()) held_ = read_fully(stream_, buffer_.bytes().first(wanted));
    if (held_ < bytes) failed_ = true;
  }
  const std::int64_t there = std::min(bytes, start_ + held_ - position);
  return buffer_.bytes().subspan(static_cast<std::size_t>(position - start_),
                                 static_cast<std::size_t>(there));
}

std::string_view Window::text(std::int64_t position, std::int64_t bytes) {
  return as_text(at(position, bytes));
}

// --- Table of objects ---

void ObjectTable::clear(std::int64_t bytes) {
  // A few bytes of an object stream can be an object, but not ever so few.
  most_ = static_cast<std::int32_t>(std::clamp<std::int64_t>(4 * bytes, 1 << 20, kMostObjects));
  if (count_ != 0) std::memset(block_.data(), 0, sizeof(Packed) * count_);
  count_ = 0;
}

ObjectTable::Entry ObjectTable::operator[](std::int32_t number) const {
  if (number < 0 || number >= count_) return {};
  const Packed& packed = entries()[number];
  return {Place{byte(packed.rest & 3)}, packed.at, static_cast<std::int32_t>(packed.rest >> 2)};
}

Status ObjectTable::set(std::int32_t number, const Entry& entry) {
  if (number < 0 || number >= most_) return kOk;
  if (number >= room_) {
    const std::int64_t room = std::clamp<std::int64_t>(2 * std::int64_t{number}, 256, most_);
    const std::size_t before = block_.size(),
                      after = sizeof(Packed) * static_cast<std::size_t>(room);
    TQ_TRY(before == 0 ? block_.allocate(after) : block_.resize(after));
    std::memset(block_.data() + before, 0, after - before);
    room_ = static_cast<std::int32_t>(room);
  }
  count_ = std::max(count_, number + 1);
  const auto detail = static_cast<std::uint32_t>(std::clamp(entry.detail, 0, (1 << 30) - 1));
  entries()[number] = {entry.at, detail << 2 | static_cast<std::uint8_t>(entry.place)};
  return kOk;
}

Status ObjectTable::add(std::int32_t number, const Entry& entry) {
  return (*this)[number].place == Place::unknown ? set(number, entry) : kOk;
}

// --- Objects in the file ---

namespace {

// Parses a text at a place in the file, again with more of it as long as it was too short; then `keep`
// copies what it found.
template <class Parse, class Keep>
Status parse_text(Window& window, std::int64_t at, Parse parse, Keep keep) {
  constexpr std::int64_t kFirst = 2048;
  GlobalBlock block;
  for (std::int64_t bytes = kFirst;; bytes *= 8) {
    const std::int64_t wanted = std::min({bytes, kLongestText, window.size() - at});
    std::string_view text;
    if (wanted <= Window::kBytes) {
      text = window.text(at, wanted);
    } else {
      TQ_TRY(block.allocate(wanted));
      std::int64_t done = 0;
      while (done < wanted) {
        const auto piece = window.at(at + done, std::min(wanted - done, Window::kBytes));
        if (piece.empty()) break;
        std::memcpy(block.data() + done, piece.data(), piece.size());
        done += std::ssize(piece);
      }
      text = as_text(block.bytes().first(static_cast<std::size_t>(done)));
    }
    if (window.failed()) return StatusCode::read_failed;
    Scanner scanner(text);
    const bool is_it = parse(scanner);
    const bool may_go_on = scanner.touched_end() && wanted == bytes;
    if (!may_go_on) return is_it ? keep() : kOk;
  }
}

}  // namespace

Status File::read_dictionary(std::int64_t at, Object& object) {
  object.clear();
  Value value;
  const auto parse = [&](Scanner& scanner) {
    value = scanner.next();
    return value.is(Kind::dictionary);
  };
  return parse_text(window_, at, parse, [&] { return object.keep(value); });
}

// `number` 0: any object. Not found: what is there is another one, or none.
Status File::load(std::int64_t at, std::int32_t number, bool with_data, Object& object,
                  bool& found) {
  object.clear();
  found = false;
  if (at < 0 || at >= window_.size()) return kOk;
  Value value;
  std::int64_t data = -1;
  const auto parse = [&](Scanner& scanner) {
    const Value first = scanner.next(), generation = scanner.next();
    if (!first.is(Kind::integer) || !generation.is(Kind::integer)) return false;
    object.reference_ = {first.small_integer(), generation.small_integer()};
    if (number != 0 && object.reference_.number != number) return false;
    if (!scanner.next().is_keyword("obj")) return false;
    value = scanner.next();
    data = -1;
    if (value.is(Kind::keyword) || value.is(Kind::end)) value = {};  // endobj
    if (!value.is(Kind::dictionary)) return true;
    if (scanner.next().is_keyword("stream")) {
      data = at + static_cast<std::int64_t>(scanner.position());
    }
    return true;
  };
  const auto keep = [&] {
    found = true;
    return object.keep(value);
  };
  TQ_TRY(parse_text(window_, at, parse, keep));
  if (!found) {
    object.clear();
    return kOk;
  }
  return data >= 0 && with_data ? find_data(data, object) : kOk;
}

// Behind the keyword. The data begin on the next line; some files end it by a carriage return alone.
std::int64_t File::data_start(std::int64_t at) {
  const std::string_view text = window_.text(at, 16);
  std::size_t i = 0;
  while (part(text, i).starts_with(' ')) ++i;
  const std::string_view rest = part(text, i);
  if (rest.starts_with("\r\n")) return at + static_cast<std::int64_t>(i) + 2;
  const bool ends_line = rest.starts_with('\n') || rest.starts_with('\r');
  return ends_line ? at + static_cast<std::int64_t>(i) + 1 : at;
}

Status File::find_data(std::int64_t at, Object& object) {
  object.data_ = data_start(at);
  Value length = object.value()["Length"];
  Object room;
  if (length.is(Kind::reference)) {
    // No stream, so that no length is needed for it.
    const Reference reference = length.reference();
    const ObjectTable::Entry entry = table_[reference.number];
    length = {};
    bool found = false;
    if (entry.place == ObjectTable::Place::in_file) {
      TQ_TRY(load(base_ + entry.at, reference.number, false, room, found));
    } else if (entry.place == ObjectTable::Place::in_stream && !opening_) {
      TQ_TRY(load_from_stream(entry.at, reference.number, entry.detail, room));
    }
    length = room.value();
  }
  object.data_bytes_ = length.integer(-1);
  if (object.data_bytes_ >= 0 && ends_at(object.data_ + object.data_bytes_)) return kOk;
  object.data_bytes_ = find_data_end(object.data_) - object.data_;
  return window_.failed() ? StatusCode::read_failed : StatusCode::ok;
}

// Whether a stream's data end here.
bool File::ends_at(std::int64_t at) {
  const std::string_view text = window_.text(at, 32);
  std::size_t i = 0;
  while (i < text.size() && is_white(text[i])) ++i;
  return part(text, i).starts_with("endstream");
}

std::int64_t File::find_data_end(std::int64_t start) {
  constexpr std::string_view kEnd = "endstream", kObjectEnd = "endobj";
  constexpr std::int64_t kOverlap = std::ssize(kEnd) - 1;
  for (std::int64_t at = start; at < window_.size(); at += Window::kBytes - kOverlap) {
    const std::string_view text = window_.text(at, Window::kBytes);
    // The same bytes are not looked through again and again.
    searched_ += std::ssize(text);
    if (searched_ > 4 * window_.size() + kLongestText) break;
    const std::size_t found = std::min(text.find(kEnd), text.find(kObjectEnd));
    if (found != std::string_view::npos) {
      std::int64_t end = at + static_cast<std::int64_t>(found);
      // The end of the line in front is none of it.
      const std::string_view before = window_.text(std::max(end - 2, start), 2);
      if (end - start >= 2 && before == "\r\n") return end - 2;
      const bool ends_line = end > start && (before.ends_with('\n') || before.ends_with('\r'));
      return ends_line ? end - 1 : end;
    }
    if (text.empty()) break;
  }
  return window_.size();
}

// --- Object streams ---

Status File::read_object_stream(std::int32_t number) {
  Object object;
  TQ_TRY(fetch({number, 0}, object));
  if (!object.is_stream() || !object.value()["Type"].is_name("ObjStm")) return kOk;
  image::Filters filters;
  const Status opened = filters.open(*this, object);
  if (opened == StatusCode::unsupported) return kOk;
  TQ_TRY(opened);
  TQ_TRY(read_all(filters, kLongestObjectStream, kept_text_, kept_bytes_));
  return read_members(object.value());
}

Status File::open_object_stream(std::int32_t number) {
  if (kept_stream_ == number) return kOk;
  kept_stream_ = 0;
  member_count_ = 0;
  opening_ = true;  // nothing that is needed for it may be in an object stream
  const Status read = read_object_stream(number);
  opening_ = false;
  TQ_TRY(read);
  kept_stream_ = number;  // also one that is none: it is not looked at again
  return kOk;
}

std::string_view File::kept_text() const {
  return as_text(kept_text_.bytes().first(static_cast<std::size_t>(kept_bytes_)));
}

Status File::read_members(const Value& dictionary) {
  kept_first_ = dictionary["First"].integer();
  if (kept_first_ < 0 || kept_first_ > kept_bytes_) return kOk;
  // "1 0 " is as short as a pair can be.
  const std::int64_t most = std::clamp<std::int64_t>(dictionary["N"].integer(), 0, kept_first_ / 3);
  const auto bytes = sizeof(Member) * static_cast<std::size_t>(most);
  if (bytes > members_.size()) TQ_TRY(members_.allocate(bytes));
  Scanner scanner(part(kept_text(), 0, static_cast<std::size_t>(kept_first_)), false);
  for (; member_count_ < most; ++member_count_) {
    const Value number = scanner.next(), offset = scanner.next();
    if (!number.is(Kind::integer) || !offset.is(Kind::integer)) break;
    members()[member_count_] = {number.small_integer(), offset.small_integer()};
  }
  return kOk;
}

Status File::load_from_stream(std::int32_t stream, std::int32_t number, std::int32_t index,
                              Object& object) {
  TQ_TRY(open_object_stream(stream));
  object.clear();
  if (index < 0 || index >= member_count_ || members()[index].number != number) return kOk;
  const std::int64_t at = kept_first_ + members()[index].offset;
  if (at < kept_first_ || at >= kept_bytes_) return kOk;
  const Value value = Scanner(part(kept_text(), static_cast<std::size_t>(at))).next();
  if (value.is(Kind::keyword) || value.is(Kind::end)) return kOk;
  if (std::ssize(value.text()) > kLongestText) return kOk;
  object.reference_ = {number, 0};
  object.from_object_stream_ = true;
  return object.keep(value);
}

// --- References ---

Status File::fetch(Reference reference, Object& object) {
  object.clear();
  if (reference.number <= 0) return kOk;
  for (;;) {
    const bool was_repaired = repaired_;
    const ObjectTable::Entry entry = table_[reference.number];
    if (entry.place == ObjectTable::Place::in_file) {
      bool found = false;
      TQ_TRY(load(base_ + entry.at, reference.number, true, object, found));
      if (found || !may_repair_) return kOk;
      if (!repaired_) {
        const Status repaired = repair();
        if (repaired.failed() && repaired != StatusCode::bad_image) return repaired;
      }
    } else if (entry.place == ObjectTable::Place::in_stream && !opening_) {
      TQ_TRY(load_from_stream(entry.at, reference.number, entry.detail, object));
    }
    // Once more where all objects have been looked for.
    if (repaired_ == was_repaired) return kOk;
  }
}

Status File::resolve(Value& value, Object& room) {
  // A reference to a reference is in no document, but for those that are made for that.
  for (int steps = 0; value.is(Kind::reference); ++steps) {
    if (steps == 8) {
      value = {};
      break;
    }
    TQ_TRY(fetch(value.reference(), room));
    value = room.value();
  }
  return kOk;
}

// --- Coded bytes ---

Status File::read_string(const Object& owner, const Value& string, std::span<std::uint8_t> room,
                         std::ptrdiff_t& bytes) const {
  bytes = std::min(string.bytes(room), std::ssize(room));
  const bool is_enciphered = decipherer_ != nullptr && !owner.from_object_stream();
  if (is_enciphered)
    bytes = decipherer_->decipher(decipherer_->context, owner,
                                  room.first(static_cast<std::size_t>(bytes)));
  return kOk;
}

StreamSource::~StreamSource() {
  close();
}

void StreamSource::close() {
  if (decipherer_ != nullptr) decipherer_->end_stream(state_.data());
  decipherer_ = nullptr;
}

Status StreamSource::open(File& file, const Object& stream) {
  close();
  stream_ = file.window().stream();
  at_ = stream.data();
  left_ = std::clamp<std::int64_t>(stream.data_bytes(), 0, file.window().size() - at_);
  failed_ = false;
  if (buffer_.size() == 0) TQ_TRY(buffer_.allocate(kPieceBytes));
  const Decipherer* const decipherer = file.decipherer();
  if (decipherer == nullptr || !decipherer->has_key(decipherer->context, stream)) return kOk;
  TQ_TRY(state_.allocate(decipherer->stream_bytes));
  coded_.source = this;
  const PieceSource coded = PieceSource::of(coded_);
  TQ_TRY(decipherer->begin_stream(decipherer->context, state_.data(), stream, coded));
  decipherer_ = decipherer;
  return kOk;
}

std::span<const std::uint8_t> StreamSource::next_piece() {
  return decipherer_ != nullptr ? decipherer_->next_piece(state_.data()) : read_piece();
}

std::span<const std::uint8_t> StreamSource::read_piece() {
  const std::int64_t wanted = std::min(left_, kPieceBytes);
  if (wanted == 0 || failed_) return {};
  const auto room = buffer_.bytes().first(static_cast<std::size_t>(wanted));
  const std::int32_t got = seek_to(stream_, at_).ok() ? read_fully(stream_, room) : 0;
  failed_ = got < wanted;
  at_ += got;
  left_ -= got;
  return room.first(static_cast<std::size_t>(got));
}

}  // namespace tq::pdf::objects
