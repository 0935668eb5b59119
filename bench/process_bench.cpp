// Whole operations beside those of other libraries, on a photo-like image of 12 megapixels and an
// A4 page of 300 dots per inch. Compare with
//   tarnquill_bench --benchmark_filter=process --benchmark_repetitions=5
//                   --benchmark_enable_random_interleaving=true
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>

#include "bench/pictures.h"
#include "include/tarnquill.h"

#if TQ_BENCH_LEPTONICA
#include <leptonica/allheaders.h>
#endif
#if TQ_BENCH_FREEIMAGE
#include <FreeImage.h>
#endif

namespace {

using namespace tq::bench;

void report(benchmark::State& state, const Picture& picture) {
  state.counters["ns/px"] =
      benchmark::Counter(picture.pixels() / 1e9, benchmark::Counter::kIsIterationInvariantRate |
                                                     benchmark::Counter::kInvert);
}

template <class Operation>
void run(benchmark::State& state, Picture& picture, Operation operation) {
  for (auto _ : state) {
    const std::int32_t image = IMG_create_handle_keep(picture.dib.data());
    if (operation(image) < 0) state.SkipWithError("refused");
    IMG_delete_bitmap(image);
  }
  report(state, picture);
}

template <class Operation>
void add(const std::string& name, int bits, Operation operation) {
  const auto with = [&](const char* what, Picture& (*picture)(int)) {
    benchmark::RegisterBenchmark(
        ("process/" + name + "/" + what + "/ours").c_str(),
        [=](benchmark::State& state) { run(state, picture(bits), operation); })
        ->Unit(benchmark::kMillisecond);
  };
  with("photo", photo);
  with("page", page);
}

// Of 1 bit, plain and in run lists.
template <class Operation>
void add_mono(const std::string& name, Operation operation) {
  static Picture mono_page = make_mono_page();
  for (const bool in_runs : {false, true}) {
    benchmark::RegisterBenchmark(
        ("process/" + name + (in_runs ? "/runs" : "/bits") + "/ours").c_str(),
        [=](benchmark::State& state) {
          for (auto _ : state) {
            state.PauseTiming();
            const std::int32_t image = IMG_create_handle_keep(mono_page.dib.data());
            if (in_runs) IMG_dib_to_runs(image);
            state.ResumeTiming();
            if (operation(image) < 0) state.SkipWithError("refused");
            state.PauseTiming();
            IMG_delete_bitmap(image);
            state.ResumeTiming();
          }
          report(state, mono_page);
        })
        ->Unit(benchmark::kMillisecond);
  }
}

template <class Operation>
void add_peer(const std::string& name, const char* peer, int bits, Operation operation) {
  const auto with = [&](const char* what, Picture& (*picture)(int)) {
    benchmark::RegisterBenchmark(("process/" + name + "/" + what + "/" + peer).c_str(),
                                 [=](benchmark::State& state) {
                                   operation(state, picture(bits));
                                   report(state, picture(bits));
                                 })
        ->Unit(benchmark::kMillisecond);
  };
  with("photo", photo);
  with("page", page);
}

#if TQ_BENCH_LEPTONICA
// `operation` makes a new image.
template <class Operation>
void add_leptonica(const std::string& name, int bits, Operation operation) {
  add_peer(name, "leptonica", bits, [=](benchmark::State& state, Picture& picture) {
    Pix* source = pixCreate(picture.width, picture.height, bits == 24 ? 32 : 8);
    for (int y = 0; y < picture.height; ++y) {
      const std::uint8_t* row = picture.row(y);
      l_uint32* line = pixGetData(source) + static_cast<std::ptrdiff_t>(y) * pixGetWpl(source);
      for (int x = 0; x < picture.width; ++x) {
        if (bits == 24) {
          composeRGBPixel(row[3 * x + 2], row[3 * x + 1], row[3 * x], line + x);
        } else {
          SET_DATA_BYTE(line, x, row[x]);
        }
      }
    }
    for (auto _ : state) {
      Pix* made = operation(source);
      if (made == nullptr) state.SkipWithError("refused");
      pixDestroy(&made);
    }
    pixDestroy(&source);
  });
}
#endif

#if TQ_BENCH_FREEIMAGE
template <class Operation>
void add_freeimage(const std::string& name, int bits, Operation operation) {
  add_peer(name, "freeimage", bits, [=](benchmark::State& state, Picture& picture) {
    FIBITMAP* source = FreeImage_Allocate(picture.width, picture.height, bits);
    for (int y = 0; y < picture.height; ++y) {
      std::memcpy(FreeImage_GetScanLine(source, picture.height - 1 - y), picture.row(y),
                  static_cast<std::size_t>(picture.width * bits / 8));
    }
    for (int i = 0; bits == 8 && i < 256; ++i) {
      const auto v = static_cast<BYTE>(i);
      FreeImage_GetPalette(source)[i] = {v, v, v, 0};
    }
    for (auto _ : state) {
      FIBITMAP* made = operation(source);
      if (made == nullptr) state.SkipWithError("refused");
      FreeImage_Unload(made);
    }
    FreeImage_Unload(source);
  });
}
#endif

const bool kRegistered = [] {
  add("gray/24", 24, IMG_color_gray);
  add("thresh/24", 24, [](std::int32_t i) { return IMG_thresh_mono(i, 128); });
  add("thresh/8", 8, [](std::int32_t i) { return IMG_thresh_mono(i, 128); });
  add("thresh_auto/8", 8, [](std::int32_t i) { return IMG_thresh_mono(i, -1); });
  add("bayer_mono/8", 8, IMG_bayer_mono);
  add("bayer_mono/24", 24, IMG_bayer_mono);
  add("halftone_mono/8", 8, IMG_halftone_mono);
  add("diffusion_mono/8", 8, IMG_diffusion_mono);
  add("diffusion_mono/24", 24, IMG_diffusion_mono);
  add("mediancut/24", 24, IMG_mediancut_color);
  add("octree/24", 24, [](std::int32_t i) { return IMG_octree_color(i, 8, nullptr, 256); });
  add("popularity/24", 24, IMG_popularity_color);
  add("bayer_color/24", 24, IMG_bayer_color);
  add("diffusion_color/24", 24, IMG_diffusion_color);
  add("promote_24/8", 8, IMG_promote_24);
  add("promote_32/8", 8, IMG_promote_32);
  add("promote_32/24", 24, IMG_promote_32);
  const auto turn = [](std::int32_t angle, std::int32_t mode) {
    return [=](std::int32_t i) { return IMG_rotate_bitmap(i, angle, -1, mode); };
  };
  const auto resize = [](std::int32_t width, std::int32_t height, std::int32_t method) {
    return [=](std::int32_t i) { return IMG_resize_bitmap(i, width, height, method); };
  };
  add("flip/24", 24, IMG_flip_bitmap);
  add("mirror/24", 24, IMG_mirror_bitmap);
  add("turn_90/24", 24, turn(9000, 0));
  add("turn_180/24", 24, turn(18000, 0));
  add("turn_1.3/24", 24, turn(130, 0));
  add("turn_1.3/8", 8, turn(130, 0));
  add("invert/24", 24, IMG_invert_bitmap);
  add("area_half/24", 24, resize(2000, 1500, 1));
  add("area_eighth/24", 24, resize(500, 375, 1));
  add("area_800x600/24", 24, resize(800, 600, 1));
  add("area_777x583/24", 24, resize(777, 583, 1));
  add("lanczos_half/24", 24, resize(2000, 1500, 4));
  add("lanczos_777x583/24", 24, resize(777, 583, 4));
  add("cubic_enlarged/24", 24, resize(6000, 4500, 3));
  add("tone/24", 24, [](std::int32_t i) { return IMG_tone_bitmap(i, 10, 20, 130); });
  add("auto_levels/24", 24, [](std::int32_t i) { return IMG_auto_levels(i, -1); });
  add("equalize/24", 24, IMG_equalize_bitmap);
  const auto filter = [](std::int32_t kind, std::int32_t radius, std::int32_t amount) {
    return [=](std::int32_t i) { return IMG_filter_bitmap(i, kind, radius, amount); };
  };
  for (const int bits : {24, 8}) {
    const std::string depth = "/" + std::to_string(bits);
    add("gauss" + depth, bits, filter(1, 200, 0));
    add("unsharp" + depth, bits, filter(5, 200, 100));
    add("median_3x3" + depth, bits, filter(2, 1, 0));
  }
  add("quantize/24", 24, [](std::int32_t i) { return IMG_quantize_bitmap(i, 8, 256, 0); });
  add("box/24", 24, filter(0, 3, 0));
  add("median_7x7/24", 24, filter(2, 3, 0));
  add("darkest/24", 24, filter(3, 3, 0));
  add("edges/24", 24, filter(6, 1, 0));
  add_mono("flip/1", [](std::int32_t i) { return IMG_flip_bitmap(i); });
  add_mono("mirror/1", [](std::int32_t i) { return IMG_mirror_bitmap(i); });
  add_mono("invert/1", [](std::int32_t i) { return IMG_invert_bitmap(i); });
  add_mono("turn_90/1", turn(9000, 0));
  add_mono("turn_180/1", turn(18000, 0));
  add_mono("turn_1.3/1", turn(130, 0));
  add_mono("turn_1.3_nearest/1", turn(130, 2));
  add_mono("quarter_grey/1", resize(620, 877, 1));
  add_mono("0.3_grey/1", resize(744, 1052, 1));
#if TQ_BENCH_LEPTONICA
  setMsgSeverity(L_SEVERITY_NONE);
  add_leptonica("gray/24", 24, [](Pix* p) { return pixConvertRGBToLuminance(p); });
  add_leptonica("thresh/8", 8, [](Pix* p) { return pixThresholdToBinary(p, 128); });
  add_leptonica("thresh/24", 24, [](Pix* p) { return pixConvertTo1(p, 128); });
  add_leptonica("diffusion_mono/8", 8, [](Pix* p) { return pixDitherToBinary(p); });
  add_leptonica("octree/24", 24, [](Pix* p) { return pixOctreeColorQuant(p, 240, 1); });
  add_leptonica("popularity/24", 24, [](Pix* p) { return pixOctreeQuantByPopulation(p, 4, 0); });
  const auto sixteen = [](Pix* p) { return pixMedianCutQuantGeneral(p, 1, 4, 16, 0, 1, 0); };
  add_leptonica("bayer_color/24", 24, sixteen);
  add_leptonica("diffusion_color/24", 24, sixteen);
#endif
#if TQ_BENCH_FREEIMAGE
  add_freeimage("gray/24", 24, [](FIBITMAP* b) { return FreeImage_ConvertToGreyscale(b); });
  add_freeimage("bayer_mono/8", 8, [](FIBITMAP* b) { return FreeImage_Dither(b, FID_BAYER8x8); });
  add_freeimage("bayer_mono/24", 24, [](FIBITMAP* b) { return FreeImage_Dither(b, FID_BAYER8x8); });
  add_freeimage("halftone_mono/8", 8,
                [](FIBITMAP* b) { return FreeImage_Dither(b, FID_CLUSTER8x8); });
  add_freeimage("promote_24/8", 8, [](FIBITMAP* b) { return FreeImage_ConvertTo24Bits(b); });
  add_freeimage("promote_32/8", 8, [](FIBITMAP* b) { return FreeImage_ConvertTo32Bits(b); });
  add_freeimage("promote_32/24", 24, [](FIBITMAP* b) { return FreeImage_ConvertTo32Bits(b); });
#endif
  return true;
}();

}  // namespace
