// Objects of a document whose tables are damaged: one pass over the file finds them.
#include <algorithm>

#include "formats/pdf/objects/file.h"
#include "platform/text.h"

namespace tq::pdf::objects {

using Place = ObjectTable::Place;

struct File::Found {
  struct Stream {
    std::int32_t number, at;
  };
  GlobalBlock streams;  // of objects
  std::int32_t stream_count = 0;
  std::int32_t catalog = 0, page_tree = 0;  // object numbers
  int failed_jumps = 0;

  Stream* stream_list() const { return reinterpret_cast<Stream*>(streams.data()); }
  Status add_stream(std::int32_t number, std::int32_t at) {
    const std::size_t needed = sizeof(Stream) * (static_cast<std::size_t>(stream_count) + 1);
    if (needed > streams.size()) {
      const std::size_t room = std::max<std::size_t>(2 * needed, 1024);
      TQ_TRY(streams.size() == 0 ? streams.allocate(room) : streams.resize(room));
    }
    stream_list()[stream_count++] = {number, at};
    return kOk;
  }
};

namespace {

constexpr std::int64_t kLookAhead = 2048;  // at an object, bytes
constexpr int kMostJumps = 16;             // that missed

constexpr bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

// The number of which `end` is behind the last digit; moves to its first one. Negative: there is none.
std::int64_t number_before(std::string_view text, std::size_t& end) {
  std::int64_t value = 0, digit = 1;
  std::size_t i = end;
  for (; i > 0 && is_digit(text[i - 1]) && end - i < 10; --i, digit *= 10) {
    value += digit * (text[i - 1] - '0');
  }
  if (i == end) return -1;
  end = i;
  return value;
}

bool white_before(std::string_view text, std::size_t& end) {
  const std::size_t before = end;
  while (end > 0 && is_white(text[end - 1])) --end;
  return end != before;
}

// The object that "obj" at `i` belongs to, and where it begins; number 0: none.
Reference object_before(std::string_view text, std::size_t i, std::size_t& start) {
  start = i;
  white_before(text, start);
  const std::int64_t generation = number_before(text, start);
  if (generation < 0 || !white_before(text, start)) return {};
  const std::int64_t number = number_before(text, start);
  if (number <= 0 || number > INT32_MAX || generation > 65535) return {};
  const std::string_view before = part(text, 0, start);
  const bool begins = before.empty() || is_white(before.back()) || is_delimiter(before.back()) ||
                      before.ends_with("endobj");
  if (!begins) return {};
  return {static_cast<std::int32_t>(number), static_cast<std::int32_t>(generation)};
}

}  // namespace

Status File::repair() {
  if (repaired_) return StatusCode::bad_image;
  repaired_ = true;
  may_repair_ = true;
  table_.clear(window_.size());
  trailer_.clear();
  base_ = 0;
  kept_stream_ = 0;
  Found found;
  TQ_TRY(scan_objects(found));
  TQ_TRY(unlock());
  TQ_TRY(unpack_object_streams(found));
  return choose_root(found);
}

Status File::scan_objects(Found& found) {
  constexpr std::int64_t kBehind = 64;  // what of an object's numbers may be in the text before
  std::int64_t at = header_;
  while (at < window_.size()) {
    const std::int64_t from = std::max(at - kBehind, header_);
    const std::string_view text = window_.text(from, Window::kBytes);
    if (window_.failed()) return StatusCode::read_failed;
    const bool is_last = from + std::ssize(text) >= window_.size();
    const auto end = text.size() - (is_last ? 0 : std::min<std::size_t>(8, text.size()));
    auto i = static_cast<std::size_t>(at - from);
    std::int64_t behind = -1;
    for (; i < end && behind < 0; ++i) {
      if (text[i] == 'o' && part(text, i, 3) == "obj") {
        std::size_t start = i;
        const Reference reference = object_before(text, i, start);
        if (reference.number == 0) continue;
        behind = from + static_cast<std::int64_t>(i) + 3;
        TQ_TRY(note_object(from + static_cast<std::int64_t>(start), reference, found, behind));
      } else if (text[i] == 't' && part(text, i, 7) == "trailer") {
        behind = from + static_cast<std::int64_t>(i) + 7;
        const std::string_view ahead = window_.text(behind, kLookAhead);
        const Value trailer = Scanner(ahead).next();
        if (!trailer["Root"].is(Kind::null)) TQ_TRY(trailer_.copy(trailer, {}));
      }
    }
    at = behind >= 0 ? behind : from + static_cast<std::int64_t>(i);
  }
  return kOk;
}

// `behind`: where to go on, which is the end of a stream if it is known.
Status File::note_object(std::int64_t at, Reference reference, Found& found, std::int64_t& behind) {
  const auto offset = static_cast<std::int32_t>(at);
  TQ_TRY(table_.set(reference.number, {Place::in_file, offset, reference.generation}));
  Scanner scanner(window_.text(behind, kLookAhead));
  const Value value = scanner.next();
  if (!value.is(Kind::dictionary)) return kOk;
  const Value type = value["Type"];
  if (type.is_name("Catalog")) found.catalog = reference.number;
  if (type.is_name("Pages") && value["Parent"].is(Kind::null)) found.page_tree = reference.number;
  if (type.is_name("ObjStm")) TQ_TRY(found.add_stream(reference.number, offset));
  if (type.is_name("XRef") && !value["Root"].is(Kind::null)) TQ_TRY(trailer_.copy(value, {}));
  const std::int64_t length = value["Length"].integer(-1);
  if (!scanner.next().is_keyword("stream") || length < 0) return kOk;
  // What lies in a stream may look like objects: a document in a document.
  const std::int64_t data = data_start(behind + static_cast<std::int64_t>(scanner.position()));
  if (found.failed_jumps >= kMostJumps || data + length > window_.size()) return kOk;
  if (ends_at(data + length)) {
    behind = data + length;
  } else {
    ++found.failed_jumps;
  }
  return kOk;
}

// What stands later in the file counts.
Status File::unpack_object_streams(Found& found) {
  for (std::int32_t i = 0; i < found.stream_count; ++i) {
    const Found::Stream stream = found.stream_list()[i];
    const ObjectTable::Entry own = table_[stream.number];
    if (own.place != Place::in_file || own.at != stream.at) continue;
    TQ_TRY(open_object_stream(stream.number));
    for (std::int32_t index = 0; index < member_count_; ++index) {
      const std::int32_t number = members()[index].number;
      const ObjectTable::Entry other = table_[number];
      if (other.place == Place::in_file && other.at > stream.at) continue;
      TQ_TRY(table_.set(number, {Place::in_stream, stream.number, index}));
      if (!trailer_.value().is(Kind::null)) continue;
      Object object;
      TQ_TRY(load_from_stream(stream.number, number, index, object));
      if (object.value()["Type"].is_name("Catalog")) found.catalog = number;
    }
  }
  return kOk;
}

Status File::choose_root(const Found& found) {
  Status status = kOk;
  if (!trailer_.value().is(Kind::null)) {
    if (has_root(status)) return kOk;
    TQ_TRY(status);
  }
  if (found.catalog == 0 && found.page_tree == 0) return StatusCode::bad_image;
  char text[64];
  const int count = found.catalog != 0
                        ? platform::print_text(text, "<</Root %d 0 R>>", found.catalog)
                        : platform::print_text(text, "<</Root<</Pages %d 0 R>>>>", found.page_tree);
  return trailer_.copy({Kind::dictionary, {text, static_cast<std::size_t>(count)}}, {});
}

}  // namespace tq::pdf::objects
