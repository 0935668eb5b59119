// What a command line asks for: the inputs, where their pages go, and what happens to these.
#pragma once

#include "command.h"
#include "operations.h"
#include "options.h"
#include "page_choice.h"

namespace tool {

struct Plan {
  enum class Out { file, folder, numbered };  // numbered: a name with %d, for a page each

  std::vector<std::string> inputs;
  std::string out;
  Out kind = Out::file;
  bool appends = false;  // to what OUT holds already
  std::int32_t code = 0;
  bool has_pages = false;  // of the code: one result takes many
  PageChoice pages;
  std::optional<Rect> rect;  // while decoding, as the size
  std::optional<Size> decode_size;
  Size sampling = {2, 1};
  std::vector<Operation> chain;
  int jobs = 1;
  bool keep_inks = false;
  bool copies = false;  // pages as they are coded, if they can be
  bool passes = false;  // nothing is done with pixels: rows may go straight from file to file
  bool no_clobber = false, keep_dates = false;
  bool quiet = false, verbose = false;
  std::string log, resume;  // files; empty: none
  std::string options;      // those that results depend on, as one text
};

// Of what the library does while it decodes: convert's alone. And those of all that write images.
std::span<const Option> decode_options();
std::span<const Option> output_options();

// `command` is what follows the program's name. Throws UsageError.
Plan make_plan(const std::string& command, const Arguments& arguments);

// A context's settings, the same for all inputs.
void apply_settings(const Arguments& arguments, const Plan& plan);

}  // namespace tool
