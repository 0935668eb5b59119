// A buffer that holds a statement, over decoded pieces.
#include "formats/pdf/content/statements.h"

#include <algorithm>
#include <cstring>

namespace tq::pdf::content {
namespace {

using objects::Kind;
using objects::Object;
using objects::part;
using objects::Scanner;
using objects::Value;

constexpr std::size_t kFirstRoom = 64 * 1024;
constexpr std::size_t kMostRoom = 32 << 20;         // for inline images
constexpr std::int64_t kMostContents = 256 << 20;   // decoded
constexpr std::size_t kLongestStatement = 1 << 20;  // of operands that nobody asks for

// Whether a text, behind EI, goes on like contents and not like data.
bool looks_like_contents(std::string_view text) {
  return std::ranges::all_of(part(text, 0, 10), [](char c) {
    return (c >= ' ' && c <= '~') || (c != '\0' && objects::is_white(c));
  });
}

// Behind the last of white space.
std::size_t skip_white(std::string_view text, std::size_t i) {
  while (i < text.size() && objects::is_white(text[i])) ++i;
  return i;
}

}  // namespace

Status Statements::open(objects::File& file, const Value& contents, const Object& owner) {
  file_ = &file;
  Value list = contents;
  Object room;
  TQ_TRY(file.resolve(list, room));
  has_list_ = list.is(Kind::array);
  if (has_list_) {
    TQ_TRY(list_.copy(list, contents.is(Kind::reference) ? room : owner));
    items_ = list_.value().items();
  } else {
    stream_ = std::move(room);
  }
  return open_next();
}

Status Statements::open(objects::File& file, Object&& stream) {
  file_ = &file;
  stream_ = std::move(stream);
  return open_next();
}

// The next stream; what cannot be decoded is passed over.
Status Statements::open_next() {
  filters_.reset();
  while (!filters_.has_value()) {
    if (has_list_) {
      ended_ = !items_.next();
      if (ended_) return kOk;
      TQ_TRY(file_->fetch(items_.value().reference(), stream_));
    }
    if (stream_.is_stream()) {
      const Status opened = filters_.emplace().open(*file_, stream_);
      if (opened.ok()) return kOk;
      filters_.reset();
      if (opened != StatusCode::unsupported) return opened;
    }
    if (!has_list_) {
      ended_ = true;
      return kOk;
    }
  }
  return kOk;
}

Status Statements::more(std::span<const std::uint8_t>& piece) {
  static constexpr std::uint8_t kLineFeed[] = {'\n'};
  piece = {};
  if (ended_ || !filters_.has_value()) {
    ended_ = true;
    return kOk;
  }
  piece = filters_->next_piece();
  taken_ += std::ssize(piece);
  if (taken_ > kMostContents) {
    ended_ = true;
    piece = {};
    return kOk;
  }
  if (!piece.empty()) return kOk;
  TQ_TRY(filters_->status());
  if (!has_list_) {
    ended_ = true;
    return kOk;
  }
  piece = kLineFeed;
  return open_next();
}

std::string_view Statements::text() const {
  return {reinterpret_cast<const char*>(buffer_.data()), held_};
}

// More text, behind what there is of the statement.
Status Statements::fill() {
  if (start_ > 0) std::memmove(buffer_.data(), buffer_.data() + start_, held_ - start_);
  held_ -= start_;
  start_ = 0;
  // Twice as much each time, as all of it is looked at again.
  const std::size_t wanted = held_ + std::max(held_, kFirstRoom / 2);
  while (!ended_ && held_ < wanted) {
    std::span<const std::uint8_t> piece;
    TQ_TRY(more(piece));
    const std::size_t needed = held_ + piece.size();
    if (needed > kMostRoom) {
      ended_ = true;
      break;
    }
    if (needed > buffer_.size()) {
      const std::size_t room = std::max(2 * needed, kFirstRoom);
      TQ_TRY(buffer_.size() == 0 ? buffer_.allocate(room) : buffer_.resize(room));
    }
    if (!piece.empty()) std::memcpy(buffer_.data() + held_, piece.data(), piece.size());
    held_ = needed;
  }
  return kOk;
}

const Value& Statements::last(int back) const {
  static constexpr Value kNone{};
  if (back < 0 || back >= count_) return kNone;
  return operands_[(next_ - 1 - back + kMostOperands) % kMostOperands];
}

Status Statements::next(bool& found) {
  found = false;
  for (;;) {
    Scanner scanner(text(), false);
    scanner.move_to(start_);
    count_ = next_ = 0;
    for (;;) {
      const Value value = scanner.next();
      if (scanner.touched_end() && !ended_) break;
      if (value.is(Kind::end)) return kOk;
      if (value.is(Kind::keyword)) {
        name_ = value.text();
        start_ = scanner.position();
        found = true;
        return kOk;
      }
      operands_[next_] = value;
      next_ = (next_ + 1) % kMostOperands;
      count_ = std::min(count_ + 1, kMostOperands);
      if (scanner.position() - start_ > kLongestStatement) {
        start_ = scanner.position();
        count_ = 0;
      }
    }
    TQ_TRY(fill());
  }
}

Status Statements::inline_dictionary(std::string_view& entries, bool& found) {
  for (;;) {
    Scanner scanner(text(), false);
    scanner.move_to(start_);
    Value value;
    do {
      value = scanner.next();
      found = value.is_keyword("ID");
    } while (!found && !scanner.touched_end());
    if (!scanner.touched_end() || ended_) {
      if (!found) return kOk;
      const std::size_t end = scanner.position();
      entries = part(text(), start_, end - 2 - start_);
      start_ = std::min(end + 1, held_);
      return kOk;
    }
    TQ_TRY(fill());
  }
}

Status Statements::inline_data(std::int64_t bytes, std::span<const std::uint8_t>& data,
                               bool& found) {
  const auto take = [&](std::size_t count, std::size_t behind) {
    data = buffer_.bytes().subspan(start_, count);
    start_ = behind;
    found = true;
    return kOk;
  };
  constexpr std::size_t kBehind = 16;  // bytes, that are looked at
  if (bytes >= 0 && bytes <= std::int64_t{kMostRoom}) {
    const auto count = static_cast<std::size_t>(bytes);
    while (!ended_ && held_ - start_ < count + kBehind) TQ_TRY(fill());
    const std::size_t end = skip_white(text(), std::min(start_ + count, held_));
    if (held_ - start_ >= count && part(text(), end, 2) == "EI") return take(count, end + 2);
  }
  // Between white space, and contents behind it.
  for (std::size_t from = 0;;) {
    const std::size_t at = text().find("EI", start_ + from);
    const bool is_near_end = at == std::string_view::npos || at + kBehind > held_;
    if (is_near_end && !ended_) {
      // What has been looked at stays where it is, from the start of the statement.
      from = std::max(std::min(at, held_) - start_, std::size_t{2}) - 2;
      TQ_TRY(fill());
      continue;
    }
    found = at != std::string_view::npos;
    if (!found) return kOk;
    const std::string_view behind = part(text(), at + 2);
    const bool is_alone = (at == start_ || objects::is_white(text()[at - 1])) &&
                          (behind.empty() || objects::is_white(behind[0]));
    if (is_alone && looks_like_contents(behind)) {
      return take(at - start_ - (at > start_ ? 1 : 0), at + 2);
    }
    from = at + 1 - start_;
  }
}

}  // namespace tq::pdf::content
