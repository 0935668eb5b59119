// Text of objects. ISO 32000-1, 8.9.5 (images), 7.4 (filters), 7.9 (text, dates), 14.3.3 (information).
#include "formats/pdf/writing/form.h"

#include <algorithm>

#include "core/numbers.h"
#include "formats/pdf/writing/layout.h"

namespace tq::pdf::writing {
namespace {

constexpr std::string_view kDigits = "0123456789ABCDEF";

void put_hex(StreamWriter& out, int value) {
  out.put8(kDigits[value >> 4 & 15]);
  out.put8(kDigits[value & 15]);
}

void put_space(StreamWriter& out, const Form& form) {
  constexpr std::string_view kNames[] = {"/DeviceGray", "/DeviceRGB", "/DeviceCMYK"};
  out.put("/ColorSpace");
  if (form.space != Space::indexed) {
    out.put(kNames[static_cast<int>(form.space)]);
    return;
  }
  out.print("[/Indexed/DeviceRGB %d<", static_cast<int>(form.palette.size()) - 1);
  for (const Rgb& colour : form.palette) {
    put_hex(out, colour.red);
    put_hex(out, colour.green);
    put_hex(out, colour.blue);
  }
  out.put(">]");
}

void put_filter(StreamWriter& out, const Form& form) {
  switch (form.coding) {
    case Coding::group4:
      out.print("/Filter/CCITTFaxDecode/DecodeParms<</K -1/Columns %d/Rows %d", form.width,
                form.height);
      if (form.black_is_1) out.put("/BlackIs1 true");
      if (!form.ends) out.put("/EndOfBlock false");
      out.put(">>");
      break;
    case Coding::jpeg:
      out.put("/Filter/DCTDecode");
      if (form.is_rgb) out.put("/DecodeParms<</ColorTransform 0>>");
      break;
    case Coding::png_rows:
      out.print("/Filter/FlateDecode/DecodeParms<</Predictor 15/Colors %d", form.components());
      out.print("/BitsPerComponent %d/Columns %d>>", form.bits, form.width);
      break;
  }
}

}  // namespace

void put_form(StreamWriter& out, const Form& form) {
  out.print("/Type/XObject/Subtype/Image/Width %d/Height %d", form.width, form.height);
  out.print("/BitsPerComponent %d", form.bits);
  put_space(out, form);
  if (form.inverted) {
    out.put("/Decode[");
    for (int i = 0; i < form.components(); ++i) out.put(i == 0 ? "1 0" : " 1 0");
    out.put("]");
  }
  put_filter(out, form);
}

namespace {

char digit(std::int64_t number) {
  return kDigits[static_cast<std::size_t>(number % 10)];
}

}  // namespace

LengthText::LengthText(std::int64_t length, std::int64_t unit) : start_(room_ + sizeof room_) {
  const bool negative = length < 0;
  length = ((negative ? -length : length) + unit / 2) / unit;
  std::int64_t decimals = length % kPoint, whole = length / kPoint;
  const char* const end = start_;
  for (int i = 0; i < 4; ++i, decimals /= 10) {
    if (start_ != end || decimals % 10 != 0) *--start_ = digit(decimals);
  }
  if (start_ != end) *--start_ = '.';
  do {
    *--start_ = digit(whole);
    whole /= 10;
  } while (whole != 0);
  if (negative) *--start_ = '-';
}

void put_text(StreamWriter& out, std::string_view text) {
  const bool plain =
      std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c < 0x7F; });
  if (plain) {
    out.put8('(');
    for (const char c : text) {
      if (c == '(' || c == ')' || c == '\\') out.put8('\\');
      out.put8(c);
    }
    out.put8(')');
    return;
  }
  const auto put_word = [&](int word) {
    put_hex(out, word >> 8);
    put_hex(out, word & 0xFF);
  };
  out.put("<FEFF");
  while (!text.empty()) {
    const std::int32_t character = take_character(text);
    if (character < 0x10000) {
      put_word(character);
    } else {
      put_word(0xD800 | (character - 0x10000) >> 10);
      put_word(0xDC00 | (character & 0x3FF));
    }
  }
  out.put(">");
}

namespace {

// The days since 1970 as a date of the Gregorian calendar, whose years are taken to begin in March.
struct Date {
  int year, month, day;
};
Date date_of(int days) {
  constexpr int kOf400Years = 146097;
  days += 719468;  // since 1 March of the year 0
  const int era = days / kOf400Years;
  const int day = days % kOf400Years;
  const int year = (day - day / 1460 + day / 36524 - day / 146096) / 365;
  const int day_of_year = day - (365 * year + year / 4 - year / 100);
  const int month = (5 * day_of_year + 2) / 153;  // from March
  return {400 * era + year + (month >= 10 ? 1 : 0), month < 10 ? month + 3 : month - 9,
          day_of_year - (153 * month + 2) / 5 + 1};
}

void put_date(StreamWriter& out, std::int64_t seconds) {
  const Date date = date_of(static_cast<int>(seconds / 86400));
  const int second = static_cast<int>(seconds % 86400);
  out.print("/CreationDate(D:%04d%02d%02d", date.year, date.month, date.day);
  out.print("%02d%02d%02dZ)", second / 3600, second / 60 % 60, second % 60);
}

}  // namespace

void put_information(StreamWriter& out, const Texts* texts) {
  struct Key {
    std::int32_t text;
    std::string_view name;
  };
  constexpr Key kKeys[] = {{IMG_TEXT_TITLE, "/Title"},
                           {IMG_TEXT_AUTHOR, "/Author"},
                           {IMG_TEXT_SUBJECT, "/Subject"},
                           {IMG_TEXT_KEYWORDS, "/Keywords"},
                           {IMG_TEXT_CREATOR, "/Creator"}};
  out.put("<<");
  for (const Key& key : kKeys) {
    const std::string_view text = texts == nullptr ? std::string_view() : texts->get(key.text);
    if (text.empty()) continue;
    out.put(key.name);
    put_text(out, text);
  }
  out.print("/Producer(Tarnquill %d.%d.%d)", TARNQUILL_VERSION_MAJOR, TARNQUILL_VERSION_MINOR,
            TARNQUILL_VERSION_PATCH);
  const std::int64_t date = texts == nullptr ? -1 : texts->date();
  if (date >= 0) put_date(out, date);
  out.put(">>\n");
}

}  // namespace tq::pdf::writing
