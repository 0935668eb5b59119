// Decodes all pages of a document, twice: the same both times. fuzz/pdf.dict has its words.
#include "fuzz/pdf_pages.h"

namespace tq::fuzz {

void fuzz(Bytes bytes) {
  TQ_CLAIM(digest_of_pages(bytes) == digest_of_pages(bytes));
}

}  // namespace tq::fuzz
