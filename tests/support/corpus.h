// The files of tests/corpus, which other programs wrote, and what is known of them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tq::test {

using Bytes = std::vector<std::uint8_t>;

// One image of a file: a line of digests.txt.
struct CorpusImage {
  std::string name;         // relative to the folder
  std::int32_t page = 0;    // from 0
  std::int32_t code = 0;    // what the file is taken for, or a status
  std::int32_t result = 0;  // the depth in bits, or the status of decoding
  std::int32_t width = 0, height = 0;
  std::string pixels;  // their digest, or the file that shows them when a format is lossy
};

// Throws when the list cannot be read.
const std::vector<CorpusImage>& corpus_images(const std::string& folder = "corpus");

struct CorpusFile {
  std::string name;
  Bytes bytes;
  std::int32_t pages = 1;
  bool decoded = false;   // there is a decoder
  bool extended = false;  // which the option EXTENDED_FORMATS asks for
};

// Each file once.
const std::vector<CorpusFile>& corpus_files(const std::string& folder = "corpus");

}  // namespace tq::test
