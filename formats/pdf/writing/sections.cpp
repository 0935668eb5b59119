// Sections in both of their forms.
#include "formats/pdf/writing/sections.h"

#include <algorithm>

#include "core/numbers.h"
#include "formats/pdf/document.h"
#include "io/chunk_reader.h"
#include "io/endian.h"

namespace tq::pdf::writing {
namespace {

using objects::Kind;
using objects::Scanner;
using objects::Value;

constexpr std::size_t kLongestTrailer = 16384;
constexpr std::size_t kTableEntry = 20, kStreamEntry = 7;  // bytes
constexpr char kChainKey[] = "TrqlPages";

std::string_view text_of(std::span<const std::uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

bool takes(ChunkReader& input, std::string_view text) {
  if (text_of(input.peek(text.size())) != text) return false;
  input.skip(text.size());
  return true;
}

Status read_table_entries(ChunkReader& input, EntryList* entries) {
  while (!takes(input, "trailer\n")) {
    const std::string_view line = text_of(input.peek(2 * kTableEntry));
    Scanner scanner(line, false);
    const std::int32_t first = scanner.next().small_integer(-1);
    const std::int32_t count = scanner.next().small_integer(-1);
    const std::size_t end = scanner.position();
    if (first < 0 || count < 1 || first > INT32_MAX - count || end >= line.size()) {
      return StatusCode::bad_image;
    }
    input.skip(end + 1);
    for (std::int32_t i = 0; i < count; ++i) {
      const Text entry(input.peek(kTableEntry));
      if (entry[10] != ' ' || (entry[17] != 'n' && entry[17] != 'f')) return StatusCode::bad_image;
      Text offset = entry, generation = entry;
      generation.move_to(11);
      if (entries != nullptr && entry[17] == 'n') {
        TQ_TRY(entries->add({first + i, offset.number(), generation.number()}));
      }
      input.skip(kTableEntry);
    }
  }
  return kOk;
}

Status read_stream_entries(ChunkReader& input, const Value& index, EntryList& entries) {
  for (objects::Items items = index.items(); items.next();) {
    const std::int32_t first = items.value().small_integer(-1);
    if (!items.next()) return StatusCode::bad_image;
    const std::int32_t count = items.value().small_integer(-1);
    if (first < 0 || count < 0 || first > INT32_MAX - count) return StatusCode::bad_image;
    for (std::int32_t i = 0; i < count; ++i) {
      const std::span<const std::uint8_t> entry = input.peek(kStreamEntry);
      if (entry.size() < kStreamEntry || entry[0] > 1) return StatusCode::bad_image;
      const std::uint32_t offset = load_be32(&entry[1]);
      if (entry[0] == 1 && offset <= INT32_MAX) {
        TQ_TRY(entries.add({first + i, static_cast<std::int32_t>(offset), load_be16(&entry[5])}));
      }
      input.skip(kStreamEntry);
    }
  }
  return kOk;
}

}  // namespace

Chain chain_of(const Value& trailer) {
  Chain chain;
  std::int32_t* const fields[] = {&chain.pages, &chain.self, &chain.base, &chain.version};
  objects::Items items = trailer[kChainKey].items();
  for (std::int32_t* const field : fields) {
    *field = items.next() ? items.value().small_integer(-1) : -1;
  }
  while (items.next() && chain.levels < kMostLevels) {
    chain.nodes[chain.levels++] = items.value().small_integer();
  }
  return chain;
}

Status EntryList::add(const Entry& entry) {
  constexpr std::uint64_t kFirst = 64;
  const std::uint64_t needed = (static_cast<std::uint64_t>(count_) + 1) * sizeof(Entry);
  if (block_.size() == 0) TQ_TRY(block_.allocate(kFirst * sizeof(Entry)));
  if (needed > block_.size()) TQ_TRY(block_.resize(2 * std::uint64_t{block_.size()}));
  ++count_;
  entries().back() = entry;
  return kOk;
}

const Entry* EntryList::find(std::int32_t number) const {
  const auto found = std::find_if(entries().begin(), entries().end(),
                                  [=](const Entry& entry) { return entry.number == number; });
  return found == entries().end() ? nullptr : &*found;
}

void EntryList::sort() {
  const std::span<Entry> all = entries();
  // An object that is written again comes later in the file, so the order needs no stable sort.
  std::sort(all.begin(), all.end(), [](const Entry& a, const Entry& b) {
    return a.number != b.number ? a.number < b.number : a.offset > b.offset;
  });
  const auto same = [](const Entry& a, const Entry& b) { return a.number == b.number; };
  count_ = std::unique(all.begin(), all.end(), same) - all.begin();
}

Status Section::keep_trailer(const Value& dictionary) {
  if (!dictionary.is(Kind::dictionary)) return StatusCode::bad_image;
  TQ_TRY(text_.allocate(dictionary.text().size()));
  std::copy(dictionary.text().begin(), dictionary.text().end(), text_.data());
  trailer_ = Value(Kind::dictionary, text_of(text_.bytes()));
  return kOk;
}

Status Section::read(StreamHandle stream, std::int32_t at, EntryList* entries) {
  if (go_to(stream, at) != at) return StatusCode::bad_image;
  ChunkReader input;
  TQ_TRY(input.open(stream, kLongestTrailer));
  is_stream_ = !takes(input, "xref\n");
  if (!is_stream_) TQ_TRY(read_table_entries(input, entries));
  Scanner scanner(text_of(input.peek(kLongestTrailer)));
  if (is_stream_) {
    const bool number = scanner.next().is(Kind::integer) && scanner.next().is(Kind::integer);
    if (!number || !scanner.next().is_keyword("obj")) return StatusCode::bad_image;
  }
  TQ_TRY(keep_trailer(scanner.next()));
  if (is_stream_) {
    if (trailer_["W"].text() != "[1 4 2]" || !scanner.next().is_keyword("stream")) {
      return StatusCode::bad_image;
    }
    input.skip(scanner.position() + 1);
    if (entries != nullptr) TQ_TRY(read_stream_entries(input, trailer_["Index"], *entries));
  }
  chain_ = chain_of(trailer_);
  const bool known = chain_.pages > 0 && chain_.self == at && chain_.base >= 0 &&
                     chain_.levels > 0 && chain_.levels < kMostLevels;
  return known ? StatusCode::ok : StatusCode::bad_image;
}

Status take_over(StreamHandle stream, std::int32_t newest, std::int32_t page, EntryList& entries,
                 std::int32_t& previous) {
  const std::int32_t last = page - (page & -page);
  previous = newest;
  for (std::int32_t at_page = page - 1; at_page > last;) {
    Section section;
    TQ_TRY(section.read(stream, previous, &entries));
    if (section.chain().pages != at_page) return StatusCode::bad_image;
    at_page -= section.chain().low();
    previous = section.trailer()["Prev"].small_integer();
    if ((at_page == 0 && previous != section.chain().base) || previous < 0) {
      return StatusCode::bad_image;
    }
  }
  return kOk;
}

namespace {

// Calls `visit(first, entries)` for those whose numbers follow one another.
template <class Visit>
void for_each_range(std::span<const Entry> entries, Visit&& visit) {
  while (!entries.empty()) {
    std::size_t count = 1;
    while (count < entries.size() && entries[count].number == entries[count - 1].number + 1) {
      ++count;
    }
    visit(entries.first(count));
    entries = entries.subspan(count);
  }
}

void put_trailer_entries(StreamWriter& out, const SectionToWrite& section) {
  out.print("/Size %d/Root %d %d R", section.size, section.catalog.number,
            section.catalog.generation);
  for (const char* const key : {"Info", "ID"}) {
    const Value kept = section.old_trailer[key];
    if (kept.is(Kind::null)) continue;
    out.print("/%s ", key);
    out.put(kept.text());
  }
  if (section.previous > 0) out.print("/Prev %d", section.previous);
  const Chain& chain = section.chain;
  out.print("/%s[%d %d %d %d", kChainKey, chain.pages, chain.self, chain.base, chain.version);
  for (int i = 0; i < chain.levels; ++i) out.print(" %d", chain.nodes[i]);
  out.put("]");
}

void put_table(StreamWriter& out, const SectionToWrite& section, std::span<const Entry> entries) {
  out.put("xref\n");
  // A section without another one before it is the table of the document, with the head of the list
  // of free objects.
  bool with_head = section.previous == 0;
  for_each_range(entries, [&](std::span<const Entry> range) {
    const bool begins = with_head && range[0].number == 1;
    out.print("%d %d\n", range[0].number - begins, static_cast<int>(range.size()) + begins);
    if (begins) out.put("0000000000 65535 f \n");
    with_head = false;
    for (const Entry& entry : range) out.print("%010d %05d n \n", entry.offset, entry.generation);
  });
  out.put("trailer\n<<");
  put_trailer_entries(out, section);
  out.put(">>\n");
}

void put_stream(StreamWriter& out, const SectionToWrite& section, std::span<const Entry> entries) {
  out.print("%d 0 obj\n<</Type/XRef/W[1 4 2]/Index[", section.stream_number);
  for_each_range(entries, [&](std::span<const Entry> range) {
    out.print(" %d %d", range[0].number, static_cast<int>(range.size()));
  });
  out.print("]/Length %d", static_cast<int>(kStreamEntry * entries.size()));
  put_trailer_entries(out, section);
  out.put(">>\nstream\n");
  for (const Entry& entry : entries) {
    out.put8(1);
    out.put_be32(entry.offset);
    out.put_be16(entry.generation);
  }
  out.put("\nendstream\nendobj\n");
}

}  // namespace

void put_section(StreamWriter& out, const SectionToWrite& section, std::span<const Entry> entries) {
  section.stream_number == 0 ? put_table(out, section, entries) : put_stream(out, section, entries);
}

}  // namespace tq::pdf::writing
