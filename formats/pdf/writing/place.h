// The document that a page is added to, and its tree of pages: ISO 32000-1, 7.7.3.
#pragma once

#include <array>
#include <cstdint>

#include "core/memory.h"
#include "formats/pdf/objects/syntax.h"
#include "formats/pdf/writing/sections.h"

namespace tq::pdf::writing {

inline constexpr int kMostKids =
    32;  // of a node: adding a page writes a few short lists, however many
         // there are

struct Node {
  Reference reference;
  std::int32_t count = 0;  // of pages
  int kids = 0;
  std::array<Reference, kMostKids> kid{};

  bool is_full() const { return kids == kMostKids; }
  void add(Reference added) { kid[kids++] = added; }
};

// An object that somebody else may have written, on its way to a new version.
struct Copied {
  Reference reference;
  GlobalBlock text;
  objects::Value value;  // null: it stays as it is
};

class Place {
 public:
  Place() = default;
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;

  // In a stream of less than 200 bytes a new document. `over_debris`: what stands behind the end of a
  // document, without an end of its own, does not count. bad_image for what takes no page.
  Status find(StreamHandle stream, bool over_debris);

  bool is_new() const { return end == 0; }

  // Gives the page a number and a place in the tree, and nodes what they need for it.
  Status add_page(StreamHandle stream, std::int32_t version);

  Reference new_object() { return {next_++, 0}; }
  std::int32_t size() const { return next_; }

  std::int32_t end = 0;       // of the document, in bytes; the page goes behind it
  std::int32_t page = 1;      // its number among those that were added so
  std::int32_t previous = 0;  // the section that the new one is linked to
  EntryList taken_over;       // those before the page that its section has
  bool streams = false;       // sections are streams
  Chain chain;                // as it is with the page

  Reference leaf() const { return nodes[chain.levels - 1].reference; }
  Reference page_reference;
  std::array<Node, kMostLevels> nodes;  // from the top to the leaf that gets the page
  Node full_top;                        // became the first kid of the top
  Copied catalog;  // its value is null where it holds what stands here, and nothing else
  bool catalog_changes = false;
  Copied other_tree;  // likewise null, unless it gets a parent
  objects::Value trailer;

 private:
  Status find_own(StreamHandle stream, std::int32_t newest_section);
  Status adopt(StreamHandle stream, std::int32_t newest_section);
  Status change_catalog(StreamHandle stream);
  void take_node(int level, const objects::Value& value);

  Section newest_;
  GlobalBlock trailer_text_;
  std::int32_t next_ = 1;  // the first object number that is free
};

}  // namespace tq::pdf::writing
