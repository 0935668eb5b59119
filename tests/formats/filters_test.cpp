// Filters over pieces of any size, against models that go byte by byte and texts that the standards
// and other programs have.
#include "coding/filters.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "core/numbers.h"
#include "tests/support/image_builder.h"

namespace tq::coding {
namespace {

using test::Bytes;

struct Pieces {
  Bytes bytes;
  std::size_t size, at = 0;
  std::span<const std::uint8_t> next_piece() {
    const std::size_t from = at;
    at = std::min(at + size, bytes.size());
    return {bytes.data() + from, at - from};
  }
};

Bytes bytes_of(std::string_view text) {
  return {text.begin(), text.end()};
}

Bytes decoded(std::span<const FilterStep> steps, const Bytes& data, std::size_t piece) {
  FilterChain chain;
  EXPECT_EQ(chain.open(steps), kOk);
  Bytes out;
  for (int again = 0; again < 2; ++again) {
    Pieces pieces{data, piece};
    EXPECT_EQ(chain.start(PieceSource::of(pieces)), kOk);
    out.clear();
    for (auto part = chain.next_piece(); !part.empty(); part = chain.next_piece()) {
      out.insert(out.end(), part.begin(), part.end());
    }
    EXPECT_TRUE(chain.next_piece().empty());
  }
  return out;
}
Bytes decoded(FilterKind kind, const Bytes& data, std::size_t piece) {
  const FilterStep step{kind};
  return decoded({&step, 1}, data, piece);
}

TEST(Filters, TextsOfBytes) {
  const struct {
    FilterKind kind;
    std::string_view coded, plain;
  } cases[] = {
      {FilterKind::ascii_hex, "54 6F\n6e>71", "Ton"},
      {FilterKind::ascii_hex, "547>", "Tp"},
      {FilterKind::ascii_hex, "54 6", "T`"},
      {FilterKind::ascii_hex, "54x55", "T"},
      {FilterKind::ascii85, "9jqo^BlbD-BleB1DJ+*+F(f,q~>9jqo^", "Man is distinguished"},
      {FilterKind::ascii85, "<~9j qo^\r\nB`~x", "Man i"},
      {FilterKind::ascii85, "<+U,m~>", "Test"},  // begins like a mark, and is none
      {FilterKind::ascii85, "zz!!~", std::string_view("\0\0\0\0\0\0\0\0\0", 9)},
      {FilterKind::ascii85, "s8W-!s8N", "\xFF\xFF\xFF\xFF\xFF\xFF"},
      {FilterKind::ascii85, "9jqo^{9jqo^", "Man "},
      {FilterKind::run_length,
       "\x02"
       "abc\xFEx\x80\x01yz",
       "abcxxx"},
  };
  for (const auto& c : cases) {
    for (const std::size_t piece : {1, 3, 100}) {
      EXPECT_EQ(decoded(c.kind, bytes_of(c.coded), piece), bytes_of(c.plain)) << c.coded;
    }
  }
}

// Strings as text: slow, and nothing to get wrong.
Bytes lzw_model(const Bytes& plain, bool early) {
  Bytes coded;
  std::uint32_t word = 0;
  int bits_there = 0;
  const auto put = [&](int code, int bits) {
    word = word << bits | static_cast<std::uint32_t>(code);
    for (bits_there += bits; bits_there >= 8; bits_there -= 8) {
      coded.push_back(byte(word >> (bits_there - 8)));
    }
  };
  std::map<std::string, int> codes;
  int next = 0, bits = 9;
  const auto restart = [&] {
    codes.clear();
    for (int i = 0; i < 256; ++i) codes[std::string(1, static_cast<char>(i))] = i;
    next = 258;
    put(256, bits);
    bits = 9;
  };
  restart();
  std::string string;
  const auto grow = [&] {
    if (next + (early ? 1 : 0) > 1 << bits && bits < 12) ++bits;
  };
  for (const std::uint8_t c : plain) {
    const std::string longer = string + static_cast<char>(c);
    if (codes.contains(longer)) {
      string = longer;
      continue;
    }
    put(codes[string], bits);
    codes[longer] = next++;
    grow();
    if (next == 4094) restart();
    string = std::string(1, static_cast<char>(c));
  }
  put(codes[string], bits);
  ++next;
  grow();
  put(257, bits);
  put(0, 7);
  return coded;
}

TEST(Filters, LzwCodesGrowEarlyOrLate) {
  test::Random random(5);
  for (const int noise : {3, 50, 100}) {
    Bytes plain(50000);
    std::uint8_t value = 0;
    for (auto& one : plain)
      one = value = random.chance(noise) ? byte(random.between(0, 255)) : value;
    for (const bool early : {true, false}) {
      const Bytes coded = lzw_model(plain, early);
      EXPECT_EQ(decoded(early ? FilterKind::lzw : FilterKind::lzw_late, coded, 1000), plain)
          << noise << (early ? " early" : " late");
    }
  }
}

// What the two standards say, sample by sample and byte by byte.
Bytes predicted_model(const PredictorForm& form, const Bytes& plain, test::Random& random) {
  const auto row = static_cast<std::size_t>((form.columns * form.samples * form.bits + 7) / 8);
  const auto pixel = static_cast<std::size_t>((form.samples * form.bits + 7) / 8);
  Bytes coded;
  for (std::size_t first = 0; first < plain.size(); first += row) {
    const std::size_t count = std::min(row, plain.size() - first);
    const auto at = [&](std::size_t x, std::size_t left, bool above) {
      if (x < left || (above && first == 0)) return 0;
      return int{plain[first + x - left - (above ? row : 0)]};
    };
    if (form.predictor == 2) {
      const auto sample = [&](std::size_t i) {
        int value = 0;
        for (int b = 0; b < form.bits; ++b) {
          const std::size_t bit = i * form.bits + b;
          value = value << 1 | (plain[first + bit / 8] >> (7 - bit % 8) & 1);
        }
        return value;
      };
      Bytes differences(count);
      for (std::size_t i = 0; i < count * 8 / form.bits; ++i) {
        const std::size_t samples = form.samples;
        const int difference = sample(i) - (i < samples ? 0 : sample(i - samples));
        for (int b = 0; b < form.bits; ++b) {
          const std::size_t bit = i * form.bits + b;
          const int value = difference >> (form.bits - 1 - b) & 1;
          differences[bit / 8] |= byte(value << (7 - bit % 8));
        }
      }
      coded.insert(coded.end(), differences.begin(), differences.end());
      continue;
    }
    const int filter = random.between(0, 4);
    coded.push_back(byte(filter));
    for (std::size_t x = 0; x < count; ++x) {
      const int a = at(x, pixel, false), b = at(x, 0, true), c = at(x, pixel, true);
      const int p = a + b - c, pa = std::abs(p - a), pb = std::abs(p - b), pc = std::abs(p - c);
      const int paeth = pa <= pb && pa <= pc ? a : pb <= pc ? b : c;
      const int predictions[] = {0, a, b, (a + b) / 2, paeth};
      coded.push_back(byte(plain[first + x] - predictions[filter]));
    }
  }
  return coded;
}

TEST(Filters, PredictorsOfEveryForm) {
  test::Random random(7);
  for (const int predictor : {2, 10, 15}) {
    for (const int bits : {1, 2, 4, 8, 16}) {
      for (const int samples : {1, 2, 3, 4, 5, 32}) {
        for (const int columns : {1, 7, 333}) {
          SCOPED_TRACE(testing::Message()
                       << predictor << ' ' << bits << ' ' << samples << ' ' << columns);
          const PredictorForm form{predictor, samples, bits, columns};
          const int row = (columns * samples * bits + 7) / 8;
          // The last row may be short; more rows than a piece holds, where they are small.
          const int rows = columns == 7 && samples == 3 ? 40000 / row + 3 : 5;
          Bytes plain(static_cast<std::size_t>(rows * row - (predictor == 2 ? 0 : row / 2)));
          for (auto& one : plain)
            one = byte(random.chance(70) ? random.between(0, 3) : random.between(0, 255));
          const FilterStep step{FilterKind::ascii_hex, form};
          Bytes hex;
          for (const std::uint8_t b : predicted_model(form, plain, random)) {
            for (const int digit : {b >> 4, b & 15}) hex.push_back(byte("0123456789abcdef"[digit]));
          }
          EXPECT_EQ(decoded({&step, 1}, hex, 777), plain);
        }
      }
    }
  }
  Predictor refused;
  for (const PredictorForm& form : {PredictorForm{3}, PredictorForm{2, 0}, PredictorForm{2, 33},
                                    PredictorForm{2, 1, 3}, PredictorForm{12, 1, 8, 0}}) {
    EXPECT_EQ(refused.open(form), StatusCode::unsupported);
  }
  EXPECT_EQ(refused.open({15, 4, 16, 1 << 26}), StatusCode::out_of_memory);
}

// zlib's header and blocks that are not compressed.
Bytes stored_deflate(const Bytes& plain) {
  Bytes out = {0x78, 0x01};
  for (std::size_t at = 0; at < plain.size(); at += 1000) {
    const std::size_t count = std::min<std::size_t>(plain.size() - at, 1000);
    out.insert(out.end(), {byte(at + count == plain.size() ? 1 : 0), byte(count), byte(count >> 8),
                           byte(~count), byte(~count >> 8)});
    out.insert(out.end(), plain.begin() + at, plain.begin() + at + count);
  }
  return out;
}

TEST(Filters, ChainsEndAtTheirWeakestPart) {
  Bytes plain(5000);
  for (std::size_t i = 0; i < plain.size(); ++i) plain[i] = byte(i * i / 9);
  deflate::Decoder probe;
  if (probe.start({}) == StatusCode::unsupported) GTEST_SKIP() << "built without zlib";
  const Bytes coded = stored_deflate(lzw_model(plain, true));
  std::string text;
  for (const std::uint8_t b : coded) {
    for (const int digit : {b >> 4, b & 15}) text += "0123456789ABCDEF"[digit];
  }
  const FilterStep steps[] = {{FilterKind::ascii_hex}, {FilterKind::flate}, {FilterKind::lzw}};
  EXPECT_EQ(decoded(steps, bytes_of(text + ">"), 10), plain);
  const Bytes half = decoded(steps, bytes_of(text.substr(0, text.size() / 2)), 10);
  EXPECT_GT(half.size(), plain.size() / 4);
  ASSERT_LT(half.size(), plain.size());
  EXPECT_TRUE(std::equal(half.begin(), half.end(), plain.begin()));
  FilterChain chain;
  EXPECT_EQ(chain.open(std::array<FilterStep, 9>{}), StatusCode::unsupported);
}

}  // namespace
}  // namespace tq::coding
