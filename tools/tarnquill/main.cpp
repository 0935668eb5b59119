// The program: finds the command, hands it its arguments, turns what it throws into exit codes.
#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "command.h"
#include "errors.h"
#include "library_options.h"
#include "progress.h"
#include "system.h"

namespace tool {

void complain(const std::string& message) {
  say("tarnquill: " + message);
}

int flushed(int code) {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return code;
  complain(Failure("standard output", IMG_WRITE_FAILED).what());
  return kExitError;
}

namespace {

std::vector<Command> all_commands() {
  std::vector<Command> commands = {info_command(),   pages_command(),   tags_command(),
                                   view_command(),   convert_command(), append_command(),
                                   extract_command()};
  for (Command& command : operation_commands()) commands.push_back(std::move(command));
  commands.push_back(sheet_command());
  commands.push_back(scan_command());
  commands.push_back(formats_command());
  return commands;
}

Command find_command(const std::string& name) {
  for (Command& command : all_commands()) {
    if (name == command.name) return std::move(command);
  }
  throw UsageError("unknown command " + printable(name));
}

int print(const std::string& text) {
  std::fputs(text.c_str(), stdout);
  return flushed(kExitOk);
}

std::string general_help() {
  constexpr std::size_t kColumn = 17;
  std::string text =
      "Usage: tarnquill COMMAND [OPTION]... OPERAND...\n"
      "Reads, converts and writes raster images.\n"
      "\n"
      "Commands:\n";
  for (const Command& command : all_commands()) {
    std::string line = std::string("  ") + command.name;
    line.resize(kColumn, ' ');
    for (const char c : command.summary) {
      line += c;
      if (c == '\n') line.append(kColumn, ' ');
    }
    text += line + "\n";
  }
  return text +
         "  help           Explains a command: tarnquill help convert\n"
         "\n"
         "Options:\n"
         "  -h, --help     this text, or a command's\n"
         "      --version  the versions of the program and of the interface\n"
         "\n"
         "Exit status:\n"
         "  0  success\n"
         "  1  a file could not be processed\n"
         "  2  wrong usage\n"
         "  3  a file was damaged, and what is left of it was processed\n";
}

std::string command_help(const Command& command) {
  const std::string call = std::string("tarnquill ") + command.name;
  const auto followed_by = [](const std::string& words) {
    return words.empty() ? "" : " " + words;
  };
  return "Usage: " + call + " [OPTION]..." + followed_by(command.operands) + "\n" +
         command.summary + "\n\n" + command.explanation + "\nExample:\n  " + call +
         followed_by(command.example) + "\n\n" + options_help("Options", command.options) + "\n" +
         options_help("Options of every command", library_options());
}

int print_version() {
  std::int32_t major = 0;
  std::int32_t minor = 0;
  IMG_ifl_version(&major, &minor);
  const std::int32_t library = IMG_library_version();
  const auto part = [&](std::int32_t of) { return std::to_string(library / of % 100); };
  return print("tarnquill " TARNQUILL_VERSION " (library " + part(10000) + "." + part(100) + "." +
               part(1) + ", interface " + std::to_string(major) + "." + std::to_string(minor) +
               ")\n");
}

int run(const std::vector<std::string>& words) {
  if (words.empty()) throw UsageError("a command is missing");
  const std::string& first = words[0];
  if (first == "--version" || first == "-version") return print_version();
  if (first == "-h" || first == "--help" || first == "-help") return print(general_help());
  if (first == "help")
    return words.size() == 1 ? print(general_help()) : print(command_help(find_command(words[1])));
  const Command command = find_command(first);
  std::vector<Option> options = command.options;
  options.insert(options.end(), library_options().begin(), library_options().end());
  const Arguments arguments(std::span<const std::string>(words).subspan(1), options);
  if (arguments.has("help")) return print(command_help(command));
  apply_library_options(arguments);
  const int code = command.run(arguments);
  return code == kExitOk && damage_was_reported() ? kExitDamaged : code;
}

int run_and_report(const std::vector<std::string>& words) {
  try {
    return run(words);
  } catch (const UsageError& error) {
    complain(error.what());
    std::fputs("Try: tarnquill --help\n", stderr);
    return kExitUsage;
  } catch (const std::bad_alloc&) {
    complain(status_meaning(IMG_OUT_OF_MEMORY));
  } catch (const std::exception& error) {
    complain(error.what());
  }
  return kExitError;
}

}  // namespace

int run_program(const std::vector<std::string>& words) {
  hold_standard_streams();
  catch_interrupts();
  const int code = run_and_report(words);
  if (const int signal = interrupted(); signal != 0) end_by_signal(signal);
  return code;
}

}  // namespace tool
