// Cross-reference tables and streams, from the newest section to the oldest.
#include <algorithm>
#include <array>

#include "formats/pdf/image/filters.h"
#include "formats/pdf/objects/file.h"

namespace tq::pdf::objects {

using Place = ObjectTable::Place;

// What leads on from a section.
struct File::Section {
  std::int64_t previous = -1;  // offset in the document; negative: none
  std::int64_t hybrid = -1;    // of the stream that says more than this table
  bool is_stream = false;
};

// Tokens of a table, as long as there are some.
class File::Cursor {
 public:
  Cursor(Window& window, std::int64_t at) : window_(window), at_(at) {}

  int peek() {
    if (i_ == piece_.size()) {
      at_ += std::ssize(piece_);
      piece_ = window_.at(at_, 4096);
      i_ = 0;
      if (piece_.empty()) return -1;
    }
    return piece_[i_];
  }
  std::int64_t position() const { return at_ + static_cast<std::int64_t>(i_); }
  void skip_white() {
    while (peek() >= 0 && is_white(static_cast<char>(peek()))) ++i_;
  }
  bool skip_word(std::string_view word) {
    skip_white();
    for (const char c : word) {
      if (peek() != byte(c)) return false;
      ++i_;
    }
    return true;
  }
  // Negative when there is no number; stops growing beyond any offset.
  std::int64_t number() {
    skip_white();
    std::int64_t value = -1;
    for (; peek() >= '0' && peek() <= '9'; ++i_) {
      value = std::min<std::int64_t>(10 * std::max<std::int64_t>(value, 0) + (peek() - '0'),
                                     std::int64_t{1} << 40);
    }
    return value;
  }

 private:
  Window& window_;
  std::int64_t at_;
  std::span<const std::uint8_t> piece_;
  std::size_t i_ = 0;
};

namespace {

constexpr std::int32_t within_file(std::int64_t offset) {
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(offset, -1, INT32_MAX));
}

}  // namespace

Status File::open(StreamHandle stream, std::int64_t start) {
  may_repair_ = repaired_ = false;
  TQ_TRY(window_.open(stream));
  TQ_TRY(find_header(start));
  Status status = StatusCode::bad_image;
  // Offsets count from the header, or in files that something was put in front of from there.
  for (const std::int64_t base : {header_, std::int64_t{0}}) {
    status = read_tables(base);
    if (status.ok()) status = unlock();
    if (status.ok() && has_root(status)) {
      may_repair_ = true;
      return kOk;
    }
    if (status.failed() && status != StatusCode::bad_image) return status;
    if (header_ == 0) break;
  }
  return repair();
}

Status File::find_header(std::int64_t start) {
  constexpr std::int64_t kWithin = 1024;
  constexpr std::string_view kHeader = "%PDF-";
  const std::size_t found = window_.text(start, kWithin).find(kHeader);
  if (window_.failed()) return StatusCode::read_failed;
  if (found == std::string_view::npos) return StatusCode::bad_image;
  header_ = start + static_cast<std::int64_t>(found);
  return kOk;
}

// As the end of the file says; negative: it does not.
std::int64_t File::find_newest_section() {
  constexpr std::string_view kWord = "startxref";
  const std::int64_t from = std::max(window_.size() - Window::kBytes, header_);
  const std::string_view tail = window_.text(from, Window::kBytes);
  const std::size_t found = tail.rfind(kWord);
  if (found == std::string_view::npos) return -1;
  return Scanner(part(tail, found + kWord.size())).next().integer(-1);
}

// The newest section's word on an object is the last.
Status File::read_tables(std::int64_t base) {
  table_.clear(window_.size());
  trailer_.clear();
  kept_stream_ = 0;
  base_ = base;
  const std::int64_t newest = find_newest_section();
  newest_section_ = newest;
  std::int64_t at = newest, mark = -1;
  std::int64_t steps = 0, most = 1;  // Brent: a chain that comes back to a mark is a ring
  while (at >= 0) {
    Section section;
    TQ_TRY(read_section(base + at, section));
    if (at == newest) newest_is_stream_ = section.is_stream;
    if (section.hybrid >= 0) {
      Section more;
      TQ_TRY(read_section(base + section.hybrid, more));
    }
    if (section.previous == mark || section.previous == at) break;
    if (++steps == most) {
      mark = at;
      steps = 0;
      most *= 2;
    }
    at = section.previous;
  }
  return trailer_.value()["Root"].is(Kind::null) ? StatusCode::bad_image : StatusCode::ok;
}

Status File::read_section(std::int64_t at, Section& section) {
  Cursor cursor(window_, at);
  const bool is_table = cursor.skip_word("xref");
  if (window_.failed()) return StatusCode::read_failed;
  return is_table ? read_table(cursor.position(), section) : read_table_stream(at, section);
}

Status File::read_table(std::int64_t at, Section& section) {
  Cursor cursor(window_, at);
  for (;;) {
    cursor.skip_white();
    if (cursor.peek() == 't') break;
    std::int64_t first = cursor.number();
    const std::int64_t count = cursor.number();
    if (first < 0 || count < 0) return StatusCode::bad_image;
    for (std::int64_t i = 0; i < count; ++i) {
      const std::int64_t offset = cursor.number(), generation = cursor.number();
      cursor.skip_white();
      const int type = cursor.peek();
      // Fewer entries than were announced.
      if (type == 't' && offset < 0) break;
      if (!cursor.skip_word(type == 'n' ? "n" : "f") || offset < 0 || generation < 0) {
        return window_.failed() ? StatusCode::read_failed : StatusCode::bad_image;
      }
      // Some writers count from 1 and begin with the entry of object 0.
      if (i == 0 && first == 1 && type == 'f' && generation == 65535) first = 0;
      const bool is_there = type == 'n' && offset > 0 && offset < INT32_MAX;
      TQ_TRY(table_.add(within_file(first + i), {is_there ? Place::in_file : Place::nowhere,
                                                 within_file(offset), within_file(generation)}));
    }
  }
  if (!cursor.skip_word("trailer")) return StatusCode::bad_image;
  Object trailer;
  TQ_TRY(read_dictionary(cursor.position(), trailer));
  section.hybrid = trailer.value()["XRefStm"].integer(-1);
  return take_trailer(trailer, section);
}

Status File::take_trailer(const Object& trailer, Section& section) {
  if (!trailer.value().is(Kind::dictionary)) return StatusCode::bad_image;
  section.previous = trailer.value()["Prev"].integer(-1);
  const bool has_one = trailer_.value().is(Kind::dictionary);
  const bool is_better =
      trailer_.value()["Root"].is(Kind::null) && !trailer.value()["Root"].is(Kind::null);
  return !has_one || is_better ? trailer_.copy(trailer.value(), trailer) : kOk;
}

namespace {

// Decoded bytes one by one; zeros behind the end.
class DecodedBytes {
 public:
  explicit DecodedBytes(image::Filters& filters) : filters_(filters) {}
  bool at_end() {
    if (piece_.empty()) piece_ = filters_.next_piece();
    return piece_.empty();
  }
  std::int64_t field(int bytes) {
    std::uint64_t value = 0;
    for (int i = 0; i < bytes && !at_end(); ++i) {
      value = value << 8 | piece_.front();
      piece_ = piece_.subspan(1);
    }
    return static_cast<std::int64_t>(std::min<std::uint64_t>(value, INT64_MAX));
  }

 private:
  image::Filters& filters_;
  std::span<const std::uint8_t> piece_;
};

}  // namespace

Status File::read_table_stream(std::int64_t at, Section& section) {
  Object object;
  bool found = false;
  TQ_TRY(load(at, 0, true, object, found));
  const Value dictionary = object.value();
  if (!object.is_stream() || !dictionary["Type"].is_name("XRef")) return StatusCode::bad_image;
  section.is_stream = true;
  std::array<int, 3> widths{};
  std::size_t fields = 0;
  for (Items items = dictionary["W"].items(); fields < widths.size() && items.next(); ++fields) {
    const std::int64_t width = items.value().integer(-1);
    if (width < 0 || width > 8) return StatusCode::bad_image;
    widths[fields] = static_cast<int>(width);
  }
  if (fields < widths.size() || widths[1] == 0) return StatusCode::bad_image;

  image::Filters filters;
  const Status opened = filters.open(*this, object);
  if (opened == StatusCode::unsupported) return StatusCode::bad_image;
  TQ_TRY(opened);
  DecodedBytes bytes(filters);
  const auto read_entries = [&](std::int64_t first, std::int64_t count) -> Status {
    for (std::int64_t i = 0; i < count && !bytes.at_end(); ++i) {
      const std::int64_t type = widths[0] == 0 ? 1 : bytes.field(widths[0]);
      const std::int64_t place = bytes.field(widths[1]), detail = bytes.field(widths[2]);
      const bool is_there = (type == 1 || type == 2) && place > 0 && place < INT32_MAX;
      const Place kind = !is_there ? Place::nowhere : type == 1 ? Place::in_file : Place::in_stream;
      TQ_TRY(table_.add(within_file(first + i), {kind, within_file(place), within_file(detail)}));
    }
    return kOk;
  };
  const Value index = dictionary["Index"];
  if (index.is(Kind::array)) {
    for (Items items = index.items(); items.next();) {
      const std::int64_t first = items.value().integer(-1);
      if (!items.next() || first < 0) break;
      TQ_TRY(read_entries(first, items.value().integer()));
    }
  } else {
    TQ_TRY(read_entries(0, dictionary["Size"].integer()));
  }
  TQ_TRY(filters.status());
  return take_trailer(object, section);
}

// Whether there is a catalog; failures other than that are in `status`.
bool File::has_root(Status& status) {
  Object room;
  Value root = trailer_.value()["Root"];
  status = resolve(root, room);
  return status.ok() && !root["Pages"].is(Kind::null);
}

}  // namespace tq::pdf::objects
