// Looks into files: detection tests that read on in the stream, and which variant of its format a
// file is.
#pragma once

#include "formats/codec.h"

namespace tq::dispatch {

// Each starts where the one before left the stream; callers rely on that coupling.
bool probe_xbm(const formats::Probe& probe);
bool probe_pict(const formats::Probe& probe);
bool probe_macpaint(const formats::Probe& probe);
bool probe_sct(const formats::Probe& probe);
bool probe_dicom(const formats::Probe& probe);

// With DETECTION. They look from the start of the file and leave the stream anywhere.
bool is_cursor(const formats::Probe& probe);            // a directory of 1 to 64 pictures
bool probe_icon(const formats::Probe& probe);           // of any sides, all of it in the file
bool probe_bare_bitmap(const formats::Probe& probe);    // all headers but that of 40 bytes
bool probe_plain_pcx(const formats::Probe& probe);      // not coded, or of odd versions
bool probe_commented_xbm(const formats::Probe& probe);  // behind comments
bool probe_little_xwd(const formats::Probe& probe);     // its header has the low bytes first
bool probe_bare_pict(const formats::Probe& probe);      // without the 512 bytes
bool probe_late_pdf(const formats::Probe& probe);       // within the first 1024 bytes
bool probe_bare_dicom(const formats::Probe& probe);     // begins with its first data element
bool probe_marked_dicom(const formats::Probe& probe);   // a mark behind 128 bytes
bool has_tiff_version(const formats::Probe& probe);     // 42, or 43 in BigTIFF
bool has_fax_prefix(const formats::Probe& probe);       // a "p" that begins a coded page
bool has_flashpix_class(const formats::Probe& probe);   // of the storage's root entry

// From the stream's current position, as FileType::variant has them.
Status find_bmp_variant(StreamHandle stream);  // whether biCompression is not 0
Status find_gif_variant(StreamHandle stream);  // interlaced; bad_image if the file ends first

}  // namespace tq::dispatch
