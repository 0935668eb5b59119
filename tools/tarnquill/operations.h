// One table of the operations on images: each is an option of convert, done in the order given, and a
// command of its own.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "options.h"

namespace tool {

// The image at work, and how to speak of it.
struct Subject {
  std::int32_t image;
  const std::string& label;
  bool quiet, verbose;
};

// "scan.tif: 16 bits become 8", unless the program is to be quiet.
void note(const Subject& subject, const std::string& what);
// What is said only if the program is to be verbose.
void tell(const Subject& subject, const std::string& what);

using Operation = std::function<std::int32_t(const Subject& subject)>;  // the library's status

struct OperationRow {
  enum Where { both, as_command, as_option };

  Where where;
  const char* name;
  Option argument;  // how the command takes it; with a null name it takes none
  const char* help;
  const char* example;           // of the command, from behind its name on
  std::span<const Option> more;  // further options of the command
  // Without a value where a command was given none. Throws UsageError.
  Operation (*make)(const std::optional<std::string>& value, const Arguments& arguments);
};

std::span<const OperationRow> geometry_rows();
std::span<const OperationRow> cleanup_rows();
std::span<const OperationRow> colour_rows();

// Calls `use` with every row of the table, in the order that a help text has.
template <class Use>
void for_each_operation(Use&& use) {
  for (const auto rows : {geometry_rows(), cleanup_rows(), colour_rows()}) {
    for (const OperationRow& row : rows) use(row);
  }
}

// For convert: the options of all rows, and those that they look at.
std::vector<Option> chain_options();
// What is asked for, in the order given; `command` is the name of the command.
std::vector<Operation> make_chain(const std::string& command, const Arguments& arguments);

// The row of a command; null when there is none.
const OperationRow* find_operation(const std::string& command);
std::vector<Option> options_of(const OperationRow& row);  // behind which come those of convert

// What pixels between pixels need: no colours by number, no more than 8 bits of grey.
std::int32_t make_blendable(const Subject& subject);
// Whether 4 or 8 bits are numbers of colours that are not grey.
bool has_colours(std::int32_t image);
// 32 bits of blue, green, red, unused to 24, which the library's own promotion takes for others.
std::int32_t to_24(std::int32_t image);
// To at most so many colours; 4 bits if these are enough.
std::int32_t to_palette(const Subject& subject, int bits, int colours);

struct ImageShape {
  std::int32_t width = 0, height = 0, bits = 0;
  bool has_inks = false;
};
ImageShape shape_of(std::int32_t image);

}  // namespace tool
