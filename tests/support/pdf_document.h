// Documents, object by object.
#pragma once

#include <map>
#include <string>

#include "tests/support/memory_file.h"

namespace tq::test {

struct PdfDocument {
  std::string text = "%PDF-1.5\n";
  std::map<int, std::size_t> offsets;  // of objects that the table is to have

  void add(int number, const std::string& value) {
    offsets[number] = text.size();
    text += std::to_string(number) + " 0 obj\n" + value + "\nendobj\n";
  }
  // `length`: what the dictionary says; by itself the true one.
  void add_stream(int number, const std::string& entries, const std::string& data,
                  const std::string& length = {}) {
    const std::string said = length.empty() ? std::to_string(data.size()) : length;
    add(number, "<<" + entries + "/Length " + said + ">>stream\n" + data + "\nendstream");
  }
  // A table of what has been added since the last one. Answers where it is.
  std::size_t add_table(const std::string& trailer) {
    const std::size_t at = text.size();
    text += "xref\n0 1\n0000000000 65535 f \n";
    for (const auto& [number, offset] : offsets) {
      const std::string digits = std::to_string(offset);
      text += std::to_string(number) + " 1\n" + std::string(10 - digits.size(), '0') + digits +
              " 00000 n \n";
    }
    offsets.clear();
    text += "trailer\n<<" + trailer + ">>\n";
    end_at(at);
    return at;
  }
  void end_at(std::size_t section) {
    text += "startxref\n" + std::to_string(section) + "\n%%EOF\n";
  }
  Bytes bytes() const { return {text.begin(), text.end()}; }
};

}  // namespace tq::test
