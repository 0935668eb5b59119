// Content streams as statements: operands and an operator.
#pragma once

#include <array>
#include <optional>

#include "formats/pdf/image/filters.h"
#include "formats/pdf/objects/file.h"

namespace tq::pdf::content {

class Statements {
 public:
  // Of several streams, joined by line feeds; or of one. out_of_memory, read_failed.
  Status open(objects::File& file, const objects::Value& contents, const objects::Object& owner);
  Status open(objects::File& file, objects::Object&& stream);

  // What it finds is valid until the next call.
  Status next(bool& found);
  std::string_view name() const { return name_; }
  int count() const { return count_; }
  // From the last one back; null where there are not so many.
  const objects::Value& last(int back = 0) const;
  // From the first one that counts.
  double number(int i, int of) const { return last(of - 1 - i).number(); }

  // Behind BI: keys and values, up to ID. Then the data: `bytes` of them if that is known (not negative),
  // else up to EI. Both are valid until the next call.
  Status inline_dictionary(std::string_view& entries, bool& found);
  Status inline_data(std::int64_t bytes, std::span<const std::uint8_t>& data, bool& found);

 private:
  static constexpr int kMostOperands = 40;

  std::string_view text() const;
  Status fill();
  Status open_next();
  Status more(std::span<const std::uint8_t>& piece);

  objects::File* file_ = nullptr;
  objects::Object list_, stream_;
  objects::Items items_{{}};
  std::optional<image::Filters> filters_;
  bool has_list_ = false, ended_ = false;
  std::int64_t taken_ = 0;  // bytes, of all streams

  GlobalBlock buffer_;
  std::size_t start_ = 0, held_ = 0;  // of the statement, of the text
  std::string_view name_;
  std::array<objects::Value, kMostOperands> operands_;
  int count_ = 0, next_ = 0;
};

}  // namespace tq::pdf::content
