// Raster formats of one file each: a header, maybe a colour table, and rows.
#pragma once

#include "formats/codec.h"

namespace tq::simple {

// CALS raster of type 1: Group 4, 1 bit.
Status decode_cals(const formats::DecodeRequest& request);
Status encode_cals(const formats::EncodeRequest& request);
// wrong_depth for other than 1 bit, unsupported for sides that six digits do not hold.
Status can_encode_cals(const formats::EncodeRequest& request);
// 1 to 8, as the orientation tag of TIFF; 1 where the file does not say.
Status find_cals_orientation(StreamHandle stream, const Options& options);

// Windows clipboard files: of their formats a bitmap, else a metafile.
Status decode_clipboard(const formats::DecodeRequest& request);
Status encode_clipboard(const formats::EncodeRequest& request);
// wrong_depth for 16 bits and for cyan, magenta, yellow, black.
Status can_encode_clipboard(const formats::EncodeRequest& request);

// CUT, without its colours: grey of 8 bits.
Status decode_cut(const formats::DecodeRequest& request);

// C4 drawings: 1 bit, in tiles. Writing makes whole bytes of rows.
Status decode_jed(const formats::DecodeRequest& request);
Status encode_jed(const formats::EncodeRequest& request);
// wrong_depth unless there is 1 bit; unsupported for more than 65535 tiles or rows.
Status can_encode_jed(const formats::EncodeRequest& request);

// GEM images of one plane, MacPaint, MSP of both versions: 1 bit.
Status decode_gem(const formats::DecodeRequest& request);
Status decode_macpaint(const formats::DecodeRequest& request);
Status decode_msp(const formats::DecodeRequest& request);

// Photo CD: the picture of each size is a page, the largest first. Not turned as the file says that a
// viewer does.
Status decode_photo_cd(const formats::DecodeRequest& request);
Status count_photo_cd_pages(StreamHandle stream);
Status find_photo_cd_orientation(StreamHandle stream, const Options& options);

// Sun raster. Pictures of two colours keep 1 bit when these are black and white.
Status decode_sun(const formats::DecodeRequest& request);
Status encode_sun(const formats::EncodeRequest& request);

// wrong_depth for 16 bits and for cyan, magenta, yellow, black; unsupported for more bytes of pixels
// than their field can hold.
Status can_encode_sun(const formats::EncodeRequest& request);

// Windows icons. Page 0 is the largest picture, of equal ones the deepest. What hides something is laid
// on white in 24 bits; else a picture keeps its depth.
Status decode_icon(const formats::DecodeRequest& request);
Status count_icon_pages(StreamHandle stream);
Status encode_icon(const formats::EncodeRequest& request);

// wrong_depth for 16 bits and for cyan, magenta, yellow, black; unsupported for sides above 256.
Status can_encode_icon(const formats::EncodeRequest& request);

// The merged picture of Photoshop documents. Writing asks for each row once for every channel.
Status decode_photoshop(const formats::DecodeRequest& request);
Status encode_photoshop(const formats::EncodeRequest& request);

// wrong_depth for 16 bits; unsupported for sides above 30000.
Status can_encode_photoshop(const formats::EncodeRequest& request);
// IFF: ILBM and PBM, of 1 to 8, 24 and 32 planes, half-brite and hold-and-modify.
Status decode_iff(const formats::DecodeRequest& request);
Status encode_iff(const formats::EncodeRequest& request);
// wrong_depth as above; unsupported for sides above 65535.
Status can_encode_iff(const formats::EncodeRequest& request);

// Targa, of all types but mapped ones of 16 bits. What its alpha hides is laid on white.
Status decode_targa(const formats::DecodeRequest& request);
Status encode_targa(const formats::EncodeRequest& request);
// wrong_depth as above; unsupported for sides above 65535.
Status can_encode_targa(const formats::EncodeRequest& request);

// Plain text as pages of 1 bit, in Windows-1252.
Status decode_text(const formats::DecodeRequest& request);
Status count_text_pages(StreamHandle stream);

// Encapsulated PostScript: the preview, in TIFF or a metafile, that a file may have. What is written is a program that
// draws the picture, for a page of its own with kPage.
inline constexpr std::int32_t kPage = 1;  // a variant
Status decode_eps(const formats::DecodeRequest& request);
Status encode_postscript(const formats::EncodeRequest& request);
Status can_encode_postscript(const formats::EncodeRequest& request);  // wrong_depth for 16 bits

// Netpbm's P1 to P6; 16-bit samples become the nearest of 8. Writing makes P4, P5 of what is grey, P6.
Status decode_pnm(const formats::DecodeRequest& request);
Status count_pnm_pages(StreamHandle stream);
Status encode_pnm(const formats::EncodeRequest& request);
// wrong_depth for 16 bits and for cyan, magenta, yellow, black.
Status can_encode_pnm(const formats::EncodeRequest& request);

// Raster graphics for printers.
Status encode_pcl(const formats::EncodeRequest& request);
// wrong_depth as above; unsupported for sides above 65535.
Status can_encode_pcl(const formats::EncodeRequest& request);

// Continuous tone pictures of one, three or four separations.
Status decode_sct(const formats::DecodeRequest& request);
Status encode_sct(const formats::EncodeRequest& request);
// wrong_depth for 16 bits; unsupported for sides above 65535.
Status can_encode_sct(const formats::EncodeRequest& request);

// X bitmaps, of bytes and of 16-bit words.
Status decode_xbm(const formats::DecodeRequest& request);
Status encode_xbm(const formats::EncodeRequest& request);
// wrong_depth unless there is 1 bit; unsupported for sides above 32767.
Status can_encode_xbm(const formats::EncodeRequest& request);

// X pixmaps. A colour that is none is white, and marked as transparent.
Status decode_xpm(const formats::DecodeRequest& request);
Status encode_xpm(const formats::EncodeRequest& request);
// wrong_depth above 8 bits.
Status can_encode_xpm(const formats::EncodeRequest& request);

// X window dumps, version 7.
Status decode_xwd(const formats::DecodeRequest& request);
Status encode_xwd(const formats::EncodeRequest& request);
Status can_encode_xwd(const formats::EncodeRequest& request);  // wrong_depth as above

}  // namespace tq::simple
