// Walking the tree of pages, and what pages have from the nodes above them.
#include "formats/pdf/page/pages.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "core/numbers.h"

namespace tq::pdf::page {
namespace {

using content::Rectangle;
using objects::File;
using objects::Items;
using objects::Kind;
using objects::Object;
using objects::Reference;
using objects::Value;

constexpr int kDeepest = 64;

// Object numbers, each of which is added once.
class NumberSet {
 public:
  bool has(std::int32_t number) const {
    const std::size_t at = static_cast<std::size_t>(number) / 8;
    return at < bits_.size() && (bits_.data()[at] >> (number % 8) & 1) != 0;
  }
  Status add(std::int32_t number, bool& is_new) {
    const std::size_t at = static_cast<std::size_t>(number) / 8;
    if (at >= bits_.size()) {
      const std::size_t before = bits_.size(), room = std::max<std::size_t>(2 * at, 128);
      TQ_TRY(before == 0 ? bits_.allocate(room) : bits_.resize(room));
      std::memset(bits_.data() + before, 0, room - before);
    }
    const auto bit = static_cast<unsigned>(1 << (number % 8));
    is_new = (bits_.data()[at] & bit) == 0;
    bits_.data()[at] = byte(bits_.data()[at] | bit);
    return kOk;
  }

 private:
  GlobalBlock bits_;
};

// The way from the root to a page.
class Tree {
 public:
  explicit Tree(File& file) : file_(file) {}

  Status start();
  // The next page; `found` is false behind the last one.
  Status next(bool& found);
  // Of the page that has been found. Its value is null when it is not there.
  Status load_page() { return known_page_.number == 0 ? kOk : fetch(known_page_, levels_[depth_]); }
  // The same for any page, by the counts of nodes; `found` is false where they cannot be believed.
  Status go_to(std::int32_t number, bool& found);

  Object& page() { return levels_[depth_].node; }
  // The nearest one on the way up.
  Status inherited(std::string_view key, Value& value, Object& room, const Object*& owner);

 private:
  struct Level {
    Object node, room;  // of the list of kids
    Value kids;
    bool kids_are_apart = false;
    Items items{{}};

    const Object& owner_of_kids() const { return kids_are_apart ? room : node; }
    bool is_node() const { return kids.is(Kind::array); }
    bool is_page() const {
      return node.value().is(Kind::dictionary) && !is_node() &&
             !node.value()["Type"].is_name("Pages");
    }
  };
  // Whether there can be an object of this number: sets of numbers are as large as the highest one.
  bool is_listed(std::int32_t number) const { return number > 0 && number < file_.objects(); }
  Status load(const Value& kid, const Object& owner, Level& level);
  Status fetch(Reference reference, Level& level);
  Status open(Level& level);
  Status load_item(const Level& above, std::int64_t index, Level& level);
  Status count_of(const Level& level, std::int64_t& count);
  Status step_down(std::int64_t& number, bool& found);

  File& file_;
  std::array<Level, kDeepest + 1> levels_;
  int depth_ = 0;  // nodes above the page
  bool root_is_page_ = false;
  // Nodes count once, for they may be their own kids. Pages count as often as they are listed, and are
  // not read again for that.
  NumberSet visited_, pages_;
  Reference known_page_{};
};

// A kid is named, or stands in the list itself.
Status Tree::load(const Value& kid, const Object& owner, Level& level) {
  if (!kid.is(Kind::dictionary)) return fetch(kid.reference(), level);
  level.kids = {};
  TQ_TRY(level.node.copy(kid, owner));
  return open(level);
}

Status Tree::fetch(Reference reference, Level& level) {
  level.kids = {};
  TQ_TRY(file_.fetch(reference, level.node));
  return open(level);
}

Status Tree::open(Level& level) {
  level.kids = level.node.value()["Kids"];
  level.kids_are_apart = level.kids.is(Kind::reference);
  TQ_TRY(file_.resolve(level.kids, level.room));
  level.items = level.kids.items();
  return kOk;
}

Status Tree::start() {
  Object room;
  Value root = file_.trailer()["Root"];
  TQ_TRY(file_.resolve(root, room));
  visited_ = {};
  pages_ = {};
  known_page_ = {};
  depth_ = 0;
  const Value pages = root["Pages"];
  const std::int32_t number = pages.reference().number;
  bool is_new = false;
  if (is_listed(number)) TQ_TRY(visited_.add(number, is_new));
  TQ_TRY(load(pages, room, levels_[0]));
  root_is_page_ = levels_[0].is_page();
  depth_ = levels_[0].is_node() ? 1 : 0;
  return kOk;
}

Status Tree::next(bool& found) {
  found = root_is_page_;
  root_is_page_ = false;
  known_page_ = {};
  while (depth_ > 0 && !found) {
    Level& above = levels_[depth_ - 1];
    if (!above.items.next()) {
      --depth_;
      continue;
    }
    const Value kid = above.items.value();
    Level& level = levels_[depth_];
    const std::int32_t number = kid.reference().number;
    bool is_new = true;
    if (kid.is(Kind::dictionary)) {
      TQ_TRY(load(kid, above.owner_of_kids(), level));
    } else if (!is_listed(number)) {
      // A kid, but nowhere to be found.
      if (kid.is(Kind::reference)) {
        TQ_TRY(fetch({}, level));
        found = true;
      }
      continue;
    } else if (pages_.has(number)) {
      known_page_ = kid.reference();
      found = true;
      continue;
    } else {
      TQ_TRY(visited_.add(number, is_new));
      if (!is_new) continue;
      TQ_TRY(fetch(kid.reference(), level));
      if (level.is_page()) TQ_TRY(pages_.add(number, is_new));
    }
    if (level.is_node()) {
      depth_ += depth_ < kDeepest ? 1 : 0;
    } else {
      found = level.is_page() || level.node.value().is(Kind::null);
    }
  }
  return kOk;
}

Status Tree::load_item(const Level& above, std::int64_t index, Level& level) {
  Items items = above.kids.items();
  while (items.next() && index > 0) --index;
  return load(items.value(), above.owner_of_kids(), level);
}

// Pages of a node, as it says itself; negative: it does not.
Status Tree::count_of(const Level& level, std::int64_t& count) {
  Object room;
  Value value = level.node.value()["Count"];
  TQ_TRY(file_.resolve(value, room));
  count = level.is_node() ? value.integer(-1) : 1;
  return kOk;
}

Status Tree::go_to(std::int32_t number, bool& found) {
  found = false;
  TQ_TRY(start());
  std::int64_t left = number;
  bool goes_on = depth_ == 1;
  while (goes_on && depth_ < kDeepest) {
    TQ_TRY(step_down(left, goes_on));
    if (goes_on && levels_[depth_].is_page()) {
      found = left == 0;
      return kOk;
    }
    ++depth_;
  }
  return kOk;
}

// To the kid that the page is in, `number` then counts from there.
Status Tree::step_down(std::int64_t& number, bool& found) {
  found = false;
  const Level& above = levels_[depth_ - 1];
  Level& level = levels_[depth_];
  std::int64_t count = 0, kids = 0;
  TQ_TRY(count_of(above, count));
  for (Items items = above.kids.items(); items.next();) ++kids;
  if (number >= count) return kOk;
  if (count == kids) {  // a page each, most likely
    TQ_TRY(load_item(above, 0, level));
    const bool first_is_page = level.is_page();
    TQ_TRY(load_item(above, number, level));
    found = first_is_page && level.is_page();
    if (found) {
      number = 0;
      return kOk;
    }
  }
  constexpr std::int64_t kMostBytes = 1 << 25;  // of kids, which may be the same over and over
  std::int64_t before = 0, index = 0, kid_before = 0, kid_index = -1, bytes = 0;
  for (Items items = above.kids.items(); items.next(); ++index) {
    TQ_TRY(load(items.value(), above.owner_of_kids(), level));
    bytes += std::ssize(level.node.value().text()) + std::ssize(level.kids.text());
    if (bytes > kMostBytes) return kOk;
    std::int64_t pages = 0;
    TQ_TRY(count_of(level, pages));
    if (pages < 0 || (pages == 1 && !level.is_node() && !level.is_page())) return kOk;
    if (kid_index < 0 && number < before + pages) {
      kid_index = index;
      kid_before = before;
    }
    before += pages;
  }
  if (before != count || kid_index < 0) return kOk;
  number -= kid_before;
  found = true;
  return load_item(above, kid_index, level);
}

Status Tree::inherited(std::string_view key, Value& value, Object& room, const Object*& owner) {
  for (int i = depth_; i >= 0; --i) {
    owner = &levels_[i].node;
    value = owner->value()[key];
    const bool is_elsewhere = value.is(Kind::reference);
    TQ_TRY(file_.resolve(value, room));
    if (is_elsewhere) owner = &room;
    if (!value.is(Kind::null)) break;
  }
  return kOk;
}

bool is_empty(const Rectangle& box) {
  return !(box.left < box.right && box.bottom < box.top);
}

Status read_box(File& file, const Value& array, Rectangle& box) {
  std::array<double, 4> sides{};
  std::size_t count = 0;
  for (Items items = array.items(); count < sides.size() && items.next(); ++count) {
    Object room;
    Value side = items.value();
    TQ_TRY(file.resolve(side, room));
    sides[count] = side.number();
  }
  box = {std::min(sides[0], sides[2]), std::min(sides[1], sides[3]), std::max(sides[0], sides[2]),
         std::max(sides[1], sides[3])};
  return kOk;
}

Status find_box(File& file, Tree& tree, Rectangle& box) {
  Object room;
  Value value;
  const Object* owner = nullptr;
  Rectangle crop;
  TQ_TRY(tree.inherited("MediaBox", value, room, owner));
  TQ_TRY(read_box(file, value, box));
  if (is_empty(box)) box = {0, 0, 612, 792};
  TQ_TRY(tree.inherited("CropBox", value, room, owner));
  TQ_TRY(read_box(file, value, crop));
  const Rectangle shown = {std::max(box.left, crop.left), std::max(box.bottom, crop.bottom),
                           std::min(box.right, crop.right), std::min(box.top, crop.top)};
  if (!is_empty(crop) && !is_empty(shown)) box = shown;
  return kOk;
}

Status describe(File& file, Tree& tree, Page& page) {
  Object room;
  Value value;
  const Object* owner = nullptr;
  TQ_TRY(find_box(file, tree, page.box));
  TQ_TRY(tree.inherited("Rotate", value, room, owner));
  const auto turn = static_cast<int>(value.integer() % 360);
  page.rotate = turn % 90 == 0 ? (turn + 360) % 360 : 0;
  TQ_TRY(tree.inherited("Resources", value, room, owner));
  TQ_TRY(page.resources.copy(value, *owner));
  value = tree.page().value()["UserUnit"];
  TQ_TRY(file.resolve(value, room));
  page.user_unit = value.number(1) > 0 ? value.number(1) : 1;
  page.object = std::move(tree.page());
  return kOk;
}

}  // namespace

Status count_pages(File& file, std::int32_t& count) {
  for (bool again = true; again;) {
    Tree tree(file);
    TQ_TRY(tree.start());
    bool found = false;
    for (count = -1; count < 0 || found; ++count) TQ_TRY(tree.next(found));
    again = count == 0 && !file.is_repaired() && file.repair().ok();
  }
  return kOk;
}

Status find_page(File& file, std::int32_t number, Page& page) {
  if (number < 0) return StatusCode::page_past_end;
  {
    Tree tree(file);
    bool found = false;
    TQ_TRY(tree.go_to(number, found));
    if (found) return describe(file, tree, page);
  }
  for (;;) {
    Tree tree(file);
    TQ_TRY(tree.start());
    bool found = false;
    std::int32_t count = 0;
    do {
      TQ_TRY(tree.next(found));
    } while (found && count++ < number);
    if (found) {
      TQ_TRY(tree.load_page());
      return tree.page().value().is(Kind::null) ? StatusCode::no_such_page
                                                : describe(file, tree, page);
    }
    if (count > 0) return StatusCode::page_past_end;
    if (file.is_repaired() || file.repair().failed()) return StatusCode::no_such_page;
  }
}

}  // namespace tq::pdf::page
