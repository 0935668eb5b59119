// Where a document ends, what it is, and how its tree grows.
#include "formats/pdf/writing/place.h"

#include <algorithm>

#include "formats/pdf/document.h"
#include "formats/pdf/objects/file.h"

namespace tq::pdf::writing {
namespace {

using objects::Kind;
using objects::Object;
using objects::Scanner;
using objects::Value;

constexpr std::int32_t kVersion = 14;             // of new documents: 1.4
constexpr std::int32_t kHighestNumber = 8388607;  // ISO 32000-1, Annex C

std::string_view text_of(std::span<const std::uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

Text read_at(StreamHandle stream, std::int32_t at, std::span<std::uint8_t> room) {
  return go_to(stream, at) == at ? read_text(stream, room) : Text();
}

bool is_white(char c) {
  return objects::is_white(c);
}

// The last words "startxref N %%EOF" of a text; `end` is behind them.
bool find_end_mark(Text text, std::int32_t& section, std::size_t& end) {
  constexpr std::string_view kKey = "startxref", kMark = "%%EOF";
  for (std::size_t before = std::string_view::npos;;) {
    const std::size_t start = text.text().rfind(kKey, before);
    if (start == std::string_view::npos) return false;
    text.move_to(start + kKey.size());
    while (is_white(text.current()) && !text.at_end()) text.skip(1);
    section = text.number();
    while (is_white(text.current()) && !text.at_end()) text.skip(1);
    if (section > 0 && text.rest().starts_with(kMark)) {
      text.skip(kMark.size());
      if (text.current() == '\r') text.skip(1);
      if (text.current() == '\n') text.skip(1);
      end = text.position();
      return true;
    }
    if (start == 0) return false;
    before = start - 1;
  }
}

// Of what an addition that was cut off has left no part has an end mark.
bool find_end(StreamHandle stream, std::int32_t size, bool over_debris, std::int32_t& section,
              std::int32_t& end) {
  constexpr std::int32_t kTail = 1024, kOverlap = 64;
  std::array<std::uint8_t, 4 * kTail> window;
  for (std::int32_t behind = size; behind > kOverlap;) {
    const std::int32_t room = over_debris ? std::int32_t{window.size()} : kTail;
    const std::int32_t start = std::max(behind - room, 0);
    const Text text = read_at(stream, start, std::span(window).first(behind - start));
    if (std::ssize(text.text()) < behind - start) return false;
    std::size_t mark_end = 0;
    if (find_end_mark(text, section, mark_end)) {
      end = over_debris ? static_cast<std::int32_t>(start + mark_end) : size;
      return section < end;
    }
    if (!over_debris || start == 0) return false;
    behind = start + kOverlap;
  }
  return false;
}

Status copy(const Value& value, GlobalBlock& text, Value& copied) {
  TQ_TRY(text.allocate(value.text().size()));
  std::copy(value.text().begin(), value.text().end(), text.data());
  copied = Value(value.kind(), text_of(text.bytes()));
  return kOk;
}

Status copy_object(objects::File& file, Reference reference, Copied& copied) {
  Object object;
  TQ_TRY(file.fetch(reference, object));
  if (!object.value().is(Kind::dictionary) || object.is_stream()) return StatusCode::bad_image;
  copied.reference = reference;
  return copy(object.value(), copied.text, copied.value);
}

// "1.4" as 14; 0 for what is none.
std::int32_t version_of(std::string_view text) {
  const auto digit = [&](std::size_t at) { return text.size() > at ? text[at] - '0' : -1; };
  const int major = digit(0), minor = digit(2);
  const bool valid = major >= 1 && major <= 9 && minor >= 0 && minor <= 9 && text[1] == '.';
  return valid ? 10 * major + minor : 0;
}

std::int32_t catalog_version(const Value& catalog) {
  std::array<std::uint8_t, 3> name;
  const bool is_whole = catalog["Version"].bytes(name) == std::ssize(name);
  return is_whole ? version_of(text_of(name)) : 0;
}

// Dictionaries of this kind are written here.
Value read_node(StreamHandle stream, const Entry& entry, std::span<std::uint8_t> room) {
  Scanner scanner(read_at(stream, entry.offset, room).text());
  const bool is_it = scanner.next().small_integer() == entry.number;
  scanner.next();
  return scanner.next().is_keyword("obj") && is_it ? scanner.next() : Value();
}

}  // namespace

void Place::take_node(int level, const Value& value) {
  Node& node = nodes[level];
  node = {.reference = {chain.nodes[level], 0}, .count = value["Count"].small_integer()};
  for (objects::Items kids = value["Kids"].items(); kids.next();) {
    if (node.is_full()) {  // none that was written here
      node.kids = 0;
      return;
    }
    node.add(kids.value().reference());
  }
}

// By the tail of what was written here: few and short reads, whatever the length of the document.
Status Place::find_own(StreamHandle stream, std::int32_t newest_section) {
  EntryList entries;
  TQ_TRY(newest_.read(stream, newest_section, &entries));
  chain = newest_.chain();
  streams = newest_.is_stream();
  trailer = newest_.trailer();
  std::array<std::uint8_t, 2048> room;
  for (int level = 0; level < chain.levels; ++level) {
    const Entry* const entry = entries.find(chain.nodes[level]);
    if (entry == nullptr) return StatusCode::bad_image;
    take_node(level, read_node(stream, *entry, room));
    const Node& node = nodes[level];
    const bool linked =
        level == 0 || nodes[level - 1].kid[nodes[level - 1].kids - 1] == node.reference;
    if (!linked || node.kids < 1 || node.count < 1 || node.count == INT32_MAX) {
      return StatusCode::bad_image;
    }
  }
  if (chain.pages == INT32_MAX || !trailer["Encrypt"].is(Kind::null)) return StatusCode::bad_image;
  page = chain.pages + 1;
  next_ = trailer["Size"].small_integer();
  catalog.reference = trailer["Root"].reference();
  return take_over(stream, newest_section, page, taken_over, previous);
}

// Documents of other programs, and of this one that were changed by others: their tree becomes the
// first part of a new one.
Status Place::adopt(StreamHandle stream, std::int32_t newest_section) {
  objects::File file;
  TQ_TRY(file.open(stream));
  const bool is_whole = !file.is_repaired() && file.base() == 0;
  const bool is_newest = file.newest_section() == newest_section;
  if (!is_whole || !is_newest || !file.trailer()["Encrypt"].is(Kind::null)) {
    return StatusCode::bad_image;
  }
  TQ_TRY(copy(file.trailer(), trailer_text_, trailer));
  // What was written here and cannot be read this time is not another program's.
  if (chain_of(trailer).self == newest_section) return StatusCode::read_failed;
  TQ_TRY(copy_object(file, trailer["Root"].reference(), catalog));
  TQ_TRY(copy_object(file, catalog.value["Pages"].reference(), other_tree));
  const std::int32_t count = other_tree.value["Count"].small_integer(-1);
  if (count < 0 || count == INT32_MAX || other_tree.value["Kids"].kind() == Kind::null) {
    return StatusCode::bad_image;
  }
  std::array<std::uint8_t, 8> start;
  const Text header = read_at(stream, 0, start);
  previous = newest_section;
  taken_over.clear();
  chain = {.base = previous,
           .version = std::max(version_of(header.part(5, 8)), catalog_version(catalog.value)),
           .levels = 2};
  next_ = std::max(trailer["Size"].small_integer(), file.objects());
  if (next_ < 1 || next_ > kHighestNumber) return StatusCode::bad_image;
  nodes[0] = {.reference = new_object(), .count = count};
  nodes[0].add(other_tree.reference);
  nodes[1] = {.reference = new_object()};
  nodes[0].add(nodes[1].reference);
  streams = file.newest_is_stream();
  page = 1;
  return kOk;
}

Status Place::find(StreamHandle stream, bool over_debris) {
  const std::int32_t size = stream_size(stream);
  // A stream that cannot seek takes a new document; one that can may hold something.
  if (size < 0 && position(stream) >= 0) return StatusCode::write_failed;
  if (size < kTailBytes) {
    chain = {.version = kVersion, .levels = 1};
    (void)new_object();  // the first is the document's information
    catalog.reference = new_object();
    nodes[0].reference = new_object();
    return kOk;
  }
  std::array<std::uint8_t, 5> start;
  if (read_at(stream, 0, start).text() != "%PDF-") return StatusCode::bad_image;
  std::int32_t section = 0;
  if (!find_end(stream, size, over_debris, section, end)) return StatusCode::bad_image;
  const Status own = find_own(stream, section);
  return own.ok() || own == StatusCode::out_of_memory ? own : adopt(stream, section);
}

Status Place::change_catalog(StreamHandle stream) {
  catalog_changes = true;
  if (chain.base == 0 || !catalog.value.is(Kind::null)) return kOk;
  objects::File file;
  TQ_TRY(file.open(stream));
  return copy_object(file, catalog.reference, catalog);
}

Status Place::add_page(StreamHandle stream, std::int32_t version) {
  if (next_ < 1 || next_ > kHighestNumber) return StatusCode::write_failed;
  int full = 0;  // how many nodes are, from the leaf
  while (full < chain.levels && nodes[chain.levels - 1 - full].is_full()) ++full;
  const bool grows = full == chain.levels;
  if (grows) {
    if (chain.levels + 1 == kMostLevels) return StatusCode::write_failed;
    ++chain.levels;
    full_top = nodes[0];
    nodes[0] = {.reference = new_object(), .count = full_top.count};
    nodes[0].add(full_top.reference);
  }
  if (grows || page == 1 || version > chain.version) TQ_TRY(change_catalog(stream));
  chain.version = std::max(chain.version, version);
  for (int level = chain.levels - full; level < chain.levels; ++level) {
    nodes[level] = {.reference = new_object()};
    nodes[level - 1].add(nodes[level].reference);
  }
  page_reference = new_object();
  nodes[chain.levels - 1].add(page_reference);
  for (int level = 0; level < chain.levels; ++level) {
    ++nodes[level].count;
    chain.nodes[level] = nodes[level].reference.number;
  }
  chain.pages = page;
  return kOk;
}

}  // namespace tq::pdf::writing
