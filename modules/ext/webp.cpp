// WebP by libwebp: a picture as it arrives, or the frames of an animation as they are shown.
#include <webp/decode.h>
#include <webp/demux.h>

#include <algorithm>

#include "modules/ext/decoders.h"

namespace tq::ext {
namespace {

struct Animation {
  explicit Animation(Bytes file) {
    WebPAnimDecoderOptions options;
    if (WebPAnimDecoderOptionsInit(&options) == 0) return;
    options.color_mode = MODE_RGBA;
    const WebPData data{file.data(), file.size()};
    decoder = WebPAnimDecoderNew(&data, &options);
  }
  ~Animation() { WebPAnimDecoderDelete(decoder); }
  Animation(const Animation&) = delete;
  Animation& operator=(const Animation&) = delete;

  WebPAnimDecoder* decoder = nullptr;
};

Status decode_frame(Bytes file, std::int32_t page, const WebPBitstreamFeatures& about,
                    const formats::RowSink& sink) {
  ColourRows rows;
  TQ_TRY(rows.begin(about.width, about.height, sink));
  const Animation animation(file);
  if (animation.decoder == nullptr) return StatusCode::bad_image;
  std::uint8_t* frame = nullptr;
  int time = 0;
  for (std::int32_t i = 0; i <= page; ++i) {
    if (WebPAnimDecoderGetNext(animation.decoder, &frame, &time) == 0) return StatusCode::bad_image;
  }
  const std::size_t stride = std::size_t{4} * about.width;
  for (std::int32_t y = 0; y < about.height; ++y) {
    TQ_TRY(rows.put({frame + y * stride, stride}, true));
  }
  return kOk;
}

}  // namespace

bool is_webp(Bytes head) {
  const auto has = [&](std::string_view text, std::size_t at) {
    return std::equal(text.begin(), text.end(), head.begin() + at,
                      [](char a, std::uint8_t b) { return byte(a) == b; });
  };
  return head.size() >= 16 && has("RIFF", 0) && has("WEBPVP8", 8);
}

Status count_webp(Bytes file) {
  WebPBitstreamFeatures about;
  if (WebPGetFeatures(file.data(), file.size(), &about) != VP8_STATUS_OK) {
    return StatusCode::bad_image;
  }
  if (about.has_animation == 0) return Status::from_raw(1);
  const WebPData data{file.data(), file.size()};
  WebPDemuxer* const demuxer = WebPDemux(&data);
  if (demuxer == nullptr) return StatusCode::bad_image;
  const auto frames = WebPDemuxGetI(demuxer, WEBP_FF_FRAME_COUNT);
  WebPDemuxDelete(demuxer);
  return Status::from_raw(static_cast<std::int32_t>(frames));
}

Status decode_webp(Bytes file, std::int32_t page, const formats::RowSink& sink) {
  WebPDecoderConfig config;
  if (WebPInitDecoderConfig(&config) == 0) return StatusCode::unsupported;
  const VP8StatusCode seen = WebPGetFeatures(file.data(), file.size(), &config.input);
  if (seen == VP8_STATUS_NOT_ENOUGH_DATA) return StatusCode::read_failed;
  if (seen != VP8_STATUS_OK) return StatusCode::bad_image;
  if (page > 0) {
    const Status pages = count_webp(file);
    TQ_TRY(pages);
    if (page >= pages.raw()) return StatusCode::page_past_end;
  }
  if (config.input.has_animation != 0) return decode_frame(file, page, config.input, sink);
  ColourRows rows;
  TQ_TRY(rows.begin(config.input.width, config.input.height, sink));
  const bool has_alpha = config.input.has_alpha != 0;
  config.output.colorspace = has_alpha ? MODE_RGBA : MODE_RGB;
  // Rows of a file that is cut off are there, all the same.
  WebPIDecoder* const decoder = WebPIDecode(nullptr, 0, &config);
  if (decoder == nullptr) return StatusCode::out_of_memory;
  const VP8StatusCode decoded = WebPIUpdate(decoder, file.data(), file.size());
  int there = 0, stride = 0;
  const std::uint8_t* const pixels = WebPIDecGetRGB(decoder, &there, nullptr, nullptr, &stride);
  Status put = kOk;
  for (int y = 0; pixels != nullptr && y < there && put.ok(); ++y) {
    put = rows.put({pixels + std::ptrdiff_t{y} * stride, static_cast<std::size_t>(stride)},
                   has_alpha);
  }
  const bool is_damaged = decoded != VP8_STATUS_OK && decoded != VP8_STATUS_SUSPENDED;
  if (is_damaged) sink.damaged(StatusCode::bad_image);
  WebPIDelete(decoder);
  WebPFreeDecBuffer(&config.output);
  if (put.ok() && there == 0 && decoded == VP8_STATUS_OUT_OF_MEMORY) {
    return StatusCode::out_of_memory;
  }
  return put;
}

}  // namespace tq::ext
