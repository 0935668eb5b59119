// Cross-reference sections: of all objects that a page brings or changes, and those of some pages
// before it. ISO 32000-1, 7.5.4 and 7.5.8.
//
// They are chained like a binary counter. The section of page n has the objects of the last low(n)
// pages, low(n) being the lowest bit of n that is set, and is linked to the section of page
// n - low(n): a reader follows log2(n) sections, and a page costs log2(n) / 2 entries for each of its
// objects on average.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "core/memory.h"
#include "formats/pdf/objects/syntax.h"
#include "io/stream_writer.h"

namespace tq::pdf::writing {

using objects::Reference;

struct Entry {
  std::int32_t number = 0, offset = 0, generation = 0;
};

class EntryList {
 public:
  Status add(const Entry& entry);
  std::span<Entry> entries() const {
    return {reinterpret_cast<Entry*>(block_.data()), static_cast<std::size_t>(count_)};
  }
  const Entry* find(std::int32_t number) const;  // the first that was added
  void clear() { count_ = 0; }
  // By number; of several with one number the first that was added.
  void sort();

 private:
  GlobalBlock block_;
  std::ptrdiff_t count_ = 0;
};

inline constexpr int kMostLevels = 8;  // of the tree of pages

// What a section says about those before it, and about the tree.
struct Chain {
  std::int32_t pages = 0;  // that were added so
  std::int32_t self = 0;   // where the section is: elsewhere it is a copy by another program
  std::int32_t base = 0;  // the newest section of what was there before all of them; 0: nothing was
  std::int32_t version = 0;
  int levels = 0;
  std::array<std::int32_t, kMostLevels> nodes{};  // from the top to the last leaf

  std::int32_t low() const { return pages & -pages; }
};

Chain chain_of(const objects::Value& trailer);

// A section that was written here.
class Section {
 public:
  // Adds its entries to a list, unless that is null. bad_image for all others.
  Status read(StreamHandle stream, std::int32_t at, EntryList* entries);

  const Chain& chain() const { return chain_; }
  objects::Value trailer() const { return trailer_; }
  bool is_stream() const { return is_stream_; }

 private:
  Status keep_trailer(const objects::Value& dictionary);

  GlobalBlock text_;
  objects::Value trailer_;
  Chain chain_;
  bool is_stream_ = false;
};

// Adds the entries of the sections that a page takes over from those before it.
Status take_over(StreamHandle stream, std::int32_t newest, std::int32_t page, EntryList& entries,
                 std::int32_t& previous);

struct SectionToWrite {
  Chain chain;
  std::int32_t previous = 0, size = 0;
  Reference catalog;
  objects::Value old_trailer;      // of which information and name are kept
  std::int32_t stream_number = 0;  // 0: a table
};

// Up to the offset that ends the document.
void put_section(StreamWriter& out, const SectionToWrite& section, std::span<const Entry> entries);

}  // namespace tq::pdf::writing
