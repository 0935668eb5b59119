// tarnquill convert, append, and a command for each operation.
#include "command.h"

#include <cctype>

#include "batch.h"
#include "operations.h"
#include "plan.h"

namespace tool {
namespace {

int run(const std::string& command, const Arguments& arguments) {
  const Plan plan = make_plan(command, arguments);
  apply_settings(arguments, plan);
  return carry_out(arguments, plan);
}

std::vector<Option> with_output_options(std::vector<Option> options) {
  options.insert(options.end(), output_options().begin(), output_options().end());
  return options;
}

std::vector<Option> all_options() {
  std::vector<Option> options = chain_options();
  options.insert(options.end(), decode_options().begin(), decode_options().end());
  return with_output_options(options);
}

}  // namespace

Command convert_command() {
  return {
      "convert",
      "IN... OUT",
      "Converts, changes and puts together images of any format.",
      "IN and OUT may be - for standard input and output. All pages of all inputs are taken: into\n"
      "one file of a format of many pages (pdf, tiff, dcx); into files of their own by a name "
      "with\n"
      "a number, out-%03d.png; or, if OUT is a folder, into files named after the inputs. Without\n"
      "--code the end of OUT's name decides. Operations are done in the order of the command "
      "line.\n"
      "Rectangles are given as X,Y,W,H or WxH+X+Y in pixels from the top left corner, and are cut\n"
      "at the edges of the image. OUT is replaced only by a complete result. Jpeg, png and "
      "tiff-g4\n"
      "inputs go into a pdf as they are, if no option changes their pixels.\n",
      "scan.tif page.pdf --deskew --mono background",
      all_options(),
      [](const Arguments& arguments) { return run("convert", arguments); },
  };
}

Command append_command() {
  return {
      "append",
      "IN... OUT",
      "Adds images as further pages to a file.",
      "Like convert, but the pages that OUT has stay in front. A file of another kind, or a\n"
      "document that is damaged or enciphered, is refused and stays as it is. OUT is changed by\n"
      "all inputs or by none.\n",
      "3.tif faxes.tif",
      all_options(),
      [](const Arguments& arguments) { return run("append", arguments); },
  };
}

std::vector<Command> operation_commands() {
  std::vector<Command> commands;
  for_each_operation([&](const OperationRow& row) {
    if (row.where == OperationRow::as_option) return;
    std::string summary = row.help;
    summary[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(summary[0])));
    commands.push_back(
        {row.name, "IN... OUT", summary + ".",
         row.where == OperationRow::both
             ? "Inputs and outputs are those of convert, which has this as an option, "
               "too, among others.\n"
             : "Inputs and outputs are those of convert.\n",
         row.example, with_output_options(options_of(row)),
         [name = std::string(row.name)](const Arguments& arguments) {
           return run(name, arguments);
         }});
  });
  return commands;
}

}  // namespace tool
