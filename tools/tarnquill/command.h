// The commands of the program; main.cpp has the table of them.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "options.h"

namespace tool {

struct Command {
  const char* name;
  const char* operands;  // for the usage line
  std::string summary;
  const char* explanation;  // further paragraphs of the help text
  const char* example;      // of a command line, from behind the command's name on
  std::vector<Option> options;
  std::function<int(const Arguments& arguments)> run;  // the exit code; throws UsageError, Failure
};

Command formats_command();
Command info_command();
Command convert_command();
Command append_command();
Command extract_command();
Command pages_command();
Command tags_command();
Command scan_command();
Command sheet_command();
Command view_command();
std::vector<Command> operation_commands();

// Writes "tarnquill: MESSAGE" to standard error.
void complain(const std::string& message);

// Standard output is done; `code`, or kExitError and a complaint when it could not be written.
int flushed(int code);

}  // namespace tool
