#include "tests/support/tiff_file.h"

#include <algorithm>
#include <map>

#include "coding/bits.h"
#include "core/numbers.h"

namespace tq::test {
namespace {

constexpr int kFraction = 5;

int bytes_of_type(int type) {
  constexpr int kBytes[] = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4, 0, 0, 8, 8, 8};
  return type < 19 ? kBytes[type] : 4;  // unknown ones are written as something
}

void put(Bytes& out, const TiffOrder& order, std::uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) {
    out.push_back(byte(value >> 8 * (order.big_endian ? bytes - 1 - i : i)));
  }
}

// Samples of one row of a chunk, from the top bit down; whole bytes in the file's order.
Bytes pack_samples(const std::vector<std::uint32_t>& samples, int bits, const TiffOrder& order) {
  Bytes row;
  if (bits % 8 == 0) {
    for (const std::uint32_t sample : samples) put(row, order, sample, bits / 8);
    return row;
  }
  int used = 0;
  for (const std::uint32_t sample : samples) {
    for (int bit = bits - 1; bit >= 0; --bit, ++used) {
      if (used % 8 == 0) row.push_back(0);
      row.back() |= byte((sample >> bit & 1) << (7 - used % 8));
    }
  }
  return row;
}

Bytes coded(const TiffPicture& picture, const std::vector<Bytes>& rows, int width) {
  if (picture.encode) return picture.encode(rows, width);
  Bytes all;
  for (const Bytes& row : rows) {
    const Bytes bytes = picture.coding == 32773 ? pack_bits(row) : row;
    all.insert(all.end(), bytes.begin(), bytes.end());
  }
  if (picture.coding == 5) return tiff_lzw(all, picture.old_lzw);
  return picture.coding == 8 || picture.coding == 32946 ? zlib_stored(all) : all;
}

}  // namespace

Bytes tiff_file(const TiffOrder& order, const std::vector<TiffPage>& pages) {
  const int word_bytes = order.big ? 8 : 4;
  Bytes file = order.big_endian ? Bytes{'M', 'M'} : Bytes{'I', 'I'};
  put(file, order, order.big ? 43 : 42, 2);
  if (order.big) put(file, order, 8, 2), put(file, order, 0, 2);  // bytes of an offset
  std::size_t link = file.size();
  put(file, order, 0, word_bytes);
  for (const TiffPage& page : pages) {
    std::vector<TiffField> fields = page.fields;
    file.insert(file.end(), page.before.begin(), page.before.end());
    std::vector<std::uint64_t> offsets, counts;
    for (const Bytes& chunk : page.chunks) {
      file.resize(file.size() + file.size() % 2);
      offsets.push_back(chunk.empty() ? 0 : file.size());
      counts.push_back(chunk.size());
      file.insert(file.end(), chunk.begin(), chunk.end());
    }
    if (page.offsets != 0) fields.push_back({page.offsets, page.offset_type, offsets});
    if (page.counts != 0) fields.push_back({page.counts, page.offset_type, counts});
    Bytes entries;
    for (const TiffField& field : fields) {
      const int bytes = bytes_of_type(field.type) / (field.type == kFraction ? 2 : 1);
      Bytes values;
      for (const std::uint64_t value : field.values) put(values, order, value, bytes);
      put(entries, order, field.tag, 2);
      put(entries, order, field.type, 2);
      put(entries, order, field.values.size() / (field.type == kFraction ? 2 : 1), word_bytes);
      file.resize(file.size() + file.size() % 2);
      if (std::ssize(values) > word_bytes) {
        put(entries, order, file.size(), word_bytes);
        file.insert(file.end(), values.begin(), values.end());
      } else {
        values.resize(word_bytes);
        entries.insert(entries.end(), values.begin(), values.end());
      }
    }
    file.resize(file.size() + file.size() % 2);
    Bytes here;
    put(here, order, file.size(), word_bytes);
    std::copy(here.begin(), here.end(), file.begin() + std::ptrdiff_t(link));
    put(file, order, fields.size(), order.big ? 8 : 2);
    file.insert(file.end(), entries.begin(), entries.end());
    link = file.size();
    put(file, order, 0, word_bytes);
  }
  return file;
}

TiffPage tiff_page(const TiffPicture& picture, const TiffOrder& order) {
  const bool tiled = picture.tile_width > 0;
  const int width = tiled ? picture.tile_width : picture.width;
  const int rows = tiled                        ? picture.tile_height
                   : picture.rows_per_strip > 0 ? picture.rows_per_strip
                                                : picture.height;
  const int planes = picture.apart ? picture.samples : 1;
  const int of_plane = picture.apart ? 1 : picture.samples;
  TiffPage page;
  for (int plane = 0; plane < planes; ++plane) {
    for (int top = 0; top < picture.height; top += rows) {
      for (int left = 0; left < picture.width; left += width) {
        std::vector<Bytes> chunk;
        for (int y = top; y < top + rows && (tiled || y < picture.height); ++y) {
          std::vector<std::uint32_t> samples;
          for (int x = left; x < left + width; ++x) {
            const int at =
                std::min(y, picture.height - 1) * picture.width + std::min(x, picture.width - 1);
            for (int i = 0; i < of_plane; ++i) {
              samples.push_back(picture.values.at(at * picture.samples + plane + i));
            }
          }
          for (auto i = std::ssize(samples) - 1; picture.differences && i >= of_plane; --i) {
            samples[i] -= samples[i - of_plane];
          }
          chunk.push_back(pack_samples(samples, picture.bits, order));
        }
        Bytes bytes = coded(picture, chunk, width);
        if (picture.low_bit_first) coding::reverse_bits(bytes);
        page.chunks.push_back(bytes);
      }
    }
  }
  const auto number = [](int value) { return static_cast<std::uint64_t>(value); };
  page.fields = {{256, 4, {number(picture.width)}},
                 {257, 3, {number(picture.height)}},
                 {258, 3, std::vector(picture.samples, number(picture.bits))},
                 {259, 3, {number(picture.coding)}},
                 {262, 3, {number(picture.photometric)}},
                 {277, 3, {number(picture.samples)}}};
  const auto add = [&](int tag, int value) { page.fields.push_back({tag, 3, {number(value)}}); };
  if (picture.low_bit_first) add(266, 2);
  if (!tiled) add(278, rows);
  if (picture.apart) add(284, 2);
  if (picture.differences) add(317, 2);
  if (tiled) {
    add(322, width);
    add(323, rows);
    page.offsets = 324;
    page.counts = 325;
  }
  page.fields.insert(page.fields.end(), picture.more.begin(), picture.more.end());
  return page;
}

Bytes pack_bits(const Bytes& bytes) {
  Bytes out;
  for (std::size_t at = 0; at < bytes.size();) {
    std::size_t run = 1;
    while (at + run < bytes.size() && run < 128 && bytes[at + run] == bytes[at]) ++run;
    out.push_back(run > 1 ? byte(257 - run) : 0);
    out.push_back(bytes[at]);
    if (at % 3 == 0) out.push_back(128);  // nothing
    at += run;
  }
  return out;
}

Bytes tiff_lzw(const Bytes& bytes, bool old) {
  constexpr int kClear = 256, kEnd = 257, kMostCodes = 4094;
  std::map<std::pair<int, int>, int> table;  // a string's code and a byte more
  Bytes out;
  int width = 9, next = kEnd + 1, used = 0, string = -1;
  const auto put_code = [&](int code) {
    for (int i = 0; i < width; ++i, ++used) {
      if (used % 8 == 0) out.push_back(0);
      const int bit = code >> (old ? i : width - 1 - i) & 1;
      out.back() |= byte(bit << (old ? used % 8 : 7 - used % 8));
    }
  };
  const auto grow = [&] {
    if (++next == (1 << width) + (old ? 1 : 0) && width < 12) ++width;
  };
  put_code(kClear);
  for (const std::uint8_t value : bytes) {
    const auto known = table.find({string, value});
    if (string < 0 || known != table.end()) {
      string = string < 0 ? value : known->second;
      continue;
    }
    put_code(string);
    table[{string, value}] = next;
    grow();
    if (next == kMostCodes) {
      put_code(kClear);
      table.clear();
      next = kEnd + 1;
      width = 9;
    }
    string = value;
  }
  if (string >= 0) put_code(string);
  grow();
  put_code(kEnd);
  return out;
}

Bytes zlib_stored(const Bytes& bytes) {
  Bytes out = {0x78, 0x01};
  constexpr std::size_t kMost = 0xFFFF;
  for (std::size_t at = 0; at < bytes.size(); at += kMost) {
    const std::size_t size = std::min(bytes.size() - at, kMost);
    out.push_back(at + size == bytes.size() ? 1 : 0);
    for (const std::size_t value : {size, size >> 8, ~size, ~size >> 8}) out.push_back(byte(value));
    out.insert(out.end(), bytes.begin() + std::ptrdiff_t(at),
               bytes.begin() + std::ptrdiff_t(at + size));
  }
  out.insert(out.end(), {1, 2, 3, 4});
  return out;
}

}  // namespace tq::test
