// Codecs that live in separately loaded modules: LZW (GIF, TIFF LZW), PDF, ABIC, more formats.
#pragma once

#include "formats/codec.h"
#include "include/tarnquill_plugin.h"

namespace tq::plugin {

// no_lzw_module when the module, or this codec in it, is missing.
Status decode_gif(const formats::DecodeRequest& request);
inline constexpr std::int32_t kGifInterlaced = 1;  // a variant
Status encode_gif(const formats::EncodeRequest& request);
Status decode_tiff_lzw(const formats::DecodeRequest& request);
Status encode_tiff_lzw(const formats::EncodeRequest& request);

// Calls `decode` with the request and the module's coder for strings of codes as TIFF has them. Its
// entry for TIFF files hands it over; one that reads them by itself answers as it does for others.
using DecoderWithCoder = Status (*)(const formats::DecodeRequest& request,
                                    const img_strip_coder& coder);
Status decode_with_lzw(const formats::DecodeRequest& request, DecoderWithCoder decode);

// wrong_depth and unsupported for what no GIF file can hold, whatever its module answers: more than
// 8 bits, sides above 65535.
Status can_encode_gif(const formats::EncodeRequest& request);

// Whether the encoders above can be called; the same status if not.
Status gif_encoder_available();
Status gif_interlaced_encoder_available();
Status tiff_lzw_encoder_available();

// `available` is false, and no_pdf_module the result, when the module cannot be loaded; the module
// itself may answer no_pdf_module, too.
Status decode_pdf_by_module(const formats::DecodeRequest& request, bool& available);

// 1 without the module, and with one that cannot count.
Status count_pdf_pages(StreamHandle stream);

// By the PDF module; unsupported without it, and with one that cannot do this.
Status find_stored_picture(const formats::DecodeRequest& request, formats::StoredPicture& stored);

Status decode_abic(
    const formats::DecodeRequest& request);  // out_of_memory when the module is missing

// Of the module of more formats: the code of a file that begins so, or 0; 0 without it, and for memory that
// does not say where it ends.
std::int32_t probe_extended(const formats::Probe& probe);
Status decode_extended(const formats::DecodeRequest& request);
Status count_extended_pages(StreamHandle stream);
Status extended_available();

// A picture of another file, by the same module: unsupported without it, and unless the options want more
// formats.
Status decode_coded(const img_coded_picture& picture, const Options& options);

// Unloads all modules: now, or when the last call of one of them has returned.
void unload_plugins();

// Frames are not counted, with or without the module; callers rely on the status.
Status count_gif_pages(StreamHandle stream);

}  // namespace tq::plugin
