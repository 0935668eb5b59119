// Options of commands that write documents.
#pragma once

#include "options.h"

namespace tool {

// Rows for the table of such a command, behind its own.
inline constexpr Option kPaperOption = {
    "paper", 0, "SIZE",
    "of pdf: a3, a4, a5, letter, legal, or WxHmm, WxHin, WxHpt;\n"
    "without it pages are as large as their pictures"};
inline constexpr Option kMarginOption = {"margin", 0, "N",
                                         "of pdf: on every side of a page, in mm, in or pt: 10mm"};
inline constexpr Option kPageFitOption = {"page-fit", 0, "fill|shrink",
                                          "of pdf, with --paper: how pictures lie there "
                                          "(default\nfill); shrink leaves small ones as they are"};
inline constexpr Option kTurnPagesOption = {
    "turn-pages", 0, nullptr, "of pdf: turn pages where that makes their pictures larger"};
inline constexpr Option kLosslessOption = {"lossless", 0, nullptr,
                                           "of pdf: pictures exactly as they are, no jpeg"};
inline constexpr Option kTitleOption = {"title", 0, "TEXT", "of a new pdf"};
inline constexpr Option kAuthorOption = {"author", 0, "TEXT", "of a new pdf"};

// Tells the library. Throws UsageError.
void apply_pdf_options(const Arguments& arguments);

}  // namespace tool
