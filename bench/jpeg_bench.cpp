// JPEG beside TurboJPEG, if that is there: the same picture, the same files, sink and supplier that
// do next to nothing. "Ours" and "Peer" lines alternate, so that both see the same machine.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "formats/jpeg/jpeg.h"
#include "platform/cpu.h"

#ifdef TQ_HAVE_TURBOJPEG
#include <turbojpeg.h>

namespace {

using Bytes = std::vector<std::uint8_t>;
using namespace tq;

// Smooth shapes, edges and some noise, about as hard to code as a photo.
const Bytes& picture(int width, int height) {
  static Bytes bgr;  // the last one, which is asked for again and again
  const std::size_t bytes = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3;
  if (bgr.size() == bytes) return bgr;
  bgr.assign(bytes, 0);
  std::mt19937 random(1);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const double wave = std::sin(x * 0.011) * std::cos(y * 0.007) * 60 +
                          std::sin(x * 0.13 + std::sin(y * 0.05) * 3) * 25 +
                          (((x / 37) ^ (y / 53)) % 5) * 9;
      const double noise = static_cast<double>(random() % 1000) / 1000 * 14 - 7;
      std::uint8_t* p = &bgr[3 * (y * width + x)];
      for (int c = 0; c < 3; ++c) {
        const double level =
            120 + wave * (1 - 0.25 * c) + noise + 20 * std::sin(x * 0.003 * (c + 1));
        p[c] = static_cast<std::uint8_t>(std::clamp(level, 0.0, 255.0));
      }
    }
  }
  return bgr;
}

Bytes peer_encode(const Bytes& bgr, int width, int height, int sampling, int quality, int flags) {
  tjhandle handle = tjInitCompress();
  unsigned char* out = nullptr;
  unsigned long size = 0;
  tjCompress2(handle, bgr.data(), width, 0, height, TJPF_BGR, &out, &size, sampling, quality,
              flags);
  Bytes file(out, out + size);
  tjFree(out);
  tjDestroy(handle);
  return file;
}

struct Case {
  const char* name;
  int width, height, sampling, quality, flags;
};
const Case kCases[] = {
    {"12M_444_q75", 4000, 3000, TJSAMP_444, 75, 0},
    {"12M_422_q75", 4000, 3000, TJSAMP_422, 75, 0},
    {"12M_420_q75", 4000, 3000, TJSAMP_420, 75, 0},
    {"12M_grey_q75", 4000, 3000, TJSAMP_GRAY, 75, 0},
    {"12M_444_q90", 4000, 3000, TJSAMP_444, 90, 0},
    {"12M_422_q90", 4000, 3000, TJSAMP_422, 90, 0},
    {"12M_420_q90", 4000, 3000, TJSAMP_420, 90, 0},
    {"12M_grey_q90", 4000, 3000, TJSAMP_GRAY, 90, 0},
    {"12M_420_progressive_q75", 4000, 3000, TJSAMP_420, 75, TJFLAG_PROGRESSIVE},
    {"thumb_420_q75", 160, 120, TJSAMP_420, 75, 0},
};

// What both sides are told: how it is by itself, and as the options make it.
struct Way {
  const char* name;
  std::vector<std::int32_t> options;
  int peer_flags;
  bool optimised = false;
};
const Way kReading[] = {{"", {}, TJFLAG_FASTUPSAMPLE}, {"/usual", {IMG_OPTION_READING}, 0}};
const Way kWriting[] = {
    {"", {}, 0},
    {"/exact", {IMG_OPTION_JPEG_WRITING}, TJFLAG_ACCURATEDCT},
    {"/optimised", {IMG_OPTION_JPEG_WRITING, IMG_OPTION_JPEG_OPTIMISE}, TJFLAG_ACCURATEDCT, true},
    {"/progressive",
     {IMG_OPTION_JPEG_WRITING, IMG_OPTION_JPEG_PROGRESSIVE},
     TJFLAG_ACCURATEDCT | TJFLAG_PROGRESSIVE}};

Options options_of(const Way& way) {
  Options options;
  for (const std::int32_t option : way.options) options.set(option, 1);
  return options;
}

std::int32_t IMG_CB_C take_header(void*, void*) {
  return 1;
}
std::int32_t IMG_CB_C take_row(void* row, void* context, std::int32_t y, std::int32_t bytes) {
  // Stored as both libraries' callers would.
  std::memcpy(static_cast<std::uint8_t*>(context) + static_cast<std::ptrdiff_t>(y) * bytes, row,
              static_cast<std::size_t>(bytes));
  return 0;
}

void decode_ours(benchmark::State& state, const Case& c, const Way& way) {
  Bytes file =
      peer_encode(picture(c.width, c.height), c.width, c.height, c.sampling, c.quality, c.flags);
  Bytes out(static_cast<std::size_t>(c.width) * static_cast<std::size_t>(c.height) * 3);
  for (auto _ : state) {
    open_memory_stream(file.data(), file.size());
    const Status status = jpeg::decode_jpeg({.stream = kMemoryStream,
                                             .sink = {take_header, take_row, out.data()},
                                             .options = options_of(way)});
    if (status.failed()) state.SkipWithError("not decoded");
  }
  state.SetLabel(std::to_string(file.size()) + " bytes");
}

void decode_peer(benchmark::State& state, const Case& c, const Way& way) {
  const Bytes file =
      peer_encode(picture(c.width, c.height), c.width, c.height, c.sampling, c.quality, c.flags);
  Bytes out(static_cast<std::size_t>(c.width) * static_cast<std::size_t>(c.height) * 3);
  const int format = c.sampling == TJSAMP_GRAY ? TJPF_GRAY : TJPF_BGR;
  for (auto _ : state) {
    tjhandle handle = tjInitDecompress();
    tjDecompress2(handle, file.data(), file.size(), out.data(), c.width, 0, c.height, format,
                  way.peer_flags);
    tjDestroy(handle);
  }
}

struct Rows {
  const std::uint8_t* pixels;
  static std::int32_t IMG_CB_C supply(void* context, void* dest, std::int32_t y,
                                      std::int32_t bytes) {
    std::memcpy(dest, static_cast<Rows*>(context)->pixels + static_cast<std::ptrdiff_t>(y) * bytes,
                static_cast<std::size_t>(bytes));
    return 0;
  }
};

// What both encoders get: blue, green, red, or the green alone.
Bytes pixels_of(const Case& c) {
  Bytes pixels = picture(c.width, c.height);
  if (c.sampling != TJSAMP_GRAY) return pixels;
  for (std::size_t i = 0; i < pixels.size() / 3; ++i) pixels[i] = pixels[3 * i + 1];
  pixels.resize(pixels.size() / 3);
  return pixels;
}

void encode_ours(benchmark::State& state, const Case& c, const Way& way) {
  const Bytes pixels = pixels_of(c);
  Bytes out(2 * pixels.size());
  Rows rows{pixels.data()};
  HeaderBlock image = dib_header(c.width, c.height, c.sampling == TJSAMP_GRAY ? 8 : 24);
  for (std::size_t i = 0; i < image.palette.size(); ++i) {
    const auto level = static_cast<std::uint8_t>(i);
    image.palette[i] = {level, level, level, 0};
  }
  for (auto _ : state) {
    open_memory_stream(out.data(), out.size());
    jpeg::set_jpeg_quality(c.quality);
    jpeg::set_jpeg_sampling(c.sampling == TJSAMP_444 ? 1 : 2, c.sampling == TJSAMP_420 ? 2 : 1);
    const Status status = jpeg::encode_jpeg({.stream = kMemoryStream,
                                             .image = &image,
                                             .rows = {Rows::supply, &rows},
                                             .options = options_of(way)});
    if (status.failed()) state.SkipWithError("not encoded");
  }
  state.SetLabel(std::to_string(memory_position()) + " bytes");
}

void encode_peer(benchmark::State& state, const Case& c, const Way& way) {
  const Bytes pixels = pixels_of(c);
  tjhandle handle = tjInitCompress();
  unsigned char* out = nullptr;
  unsigned long size = 0;
  const int format = c.sampling == TJSAMP_GRAY ? TJPF_GRAY : TJPF_BGR;
  if (way.optimised) setenv("TJ_OPTIMIZE", "1", 1);
  for (auto _ : state) {
    tjCompress2(handle, pixels.data(), c.width, 0, c.height, format, &out, &size, c.sampling,
                c.quality, way.peer_flags);
  }
  unsetenv("TJ_OPTIMIZE");
  state.SetLabel(std::to_string(size) + " bytes");
  tjFree(out);
  tjDestroy(handle);
}

template <class Function>
void register_run(const std::string& name, const Case& c, const Way& way, Function run) {
  benchmark::RegisterBenchmark(name.c_str(), [&c, &way, run](auto& state) {
    run(state, c, way);
  })->Unit(benchmark::kMicrosecond);
}

const bool kRegistered = [] {
  for (const Case& c : kCases) {
    for (const Way& way : kReading) {
      const std::string name = std::string("jpeg/decode/") + c.name + way.name;
      register_run(name + "/ours", c, way, decode_ours);
      register_run(name + "/peer", c, way, decode_peer);
    }
  }
  for (const Case& c : kCases) {
    if (c.flags == TJFLAG_PROGRESSIVE) continue;
    for (const Way& way : kWriting) {
      const std::string name = std::string("jpeg/encode/") + c.name + way.name;
      register_run(name + "/ours", c, way, encode_ours);
      register_run(name + "/peer", c, way, encode_peer);
    }
  }
  return true;
}();

}  // namespace
#endif
