// tarnquill pages: how many pages files have.
#include <cstdio>

#include "command.h"
#include "errors.h"
#include "input.h"

namespace tool {
namespace {

constexpr Option kOptions[] = {
    {"help", 'h', nullptr, "this text"},
};

int run_pages(const Arguments& arguments) {
  const auto& names = arguments.operands();
  if (names.empty()) throw UsageError("pages needs the name of a file");
  int code = kExitOk;
  for (const std::string& name : names) {
    try {
      within_memory(input_label(name), [&] {
        const Input input(name);
        input.file_type();
        const int pages = input.pages();
        if (names.size() > 1) std::printf("%s: ", printable(input.label()).c_str());
        std::printf("%d\n", pages);
      });
    } catch (const Failure& failure) {
      complain(failure.what());
      code = kExitError;
    }
  }
  return flushed(code);
}

}  // namespace

Command pages_command() {
  return {
      "pages",
      "FILE...",
      "Counts the pages of files.",
      "Prints the number of pages, behind the file's name if there are several files. A FILE of - "
      "is\n"
      "standard input. A file of a format without pages has one.\n",
      "book.pdf",
      {std::begin(kOptions), std::end(kOptions)},
      run_pages,
  };
}

}  // namespace tool
