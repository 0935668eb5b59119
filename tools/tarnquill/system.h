// What differs between operating systems, the entry of the program too. File names and arguments are
// bytes (Windows: UTF-8).
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "options.h"

namespace tool {

// Called by main with the words behind the program's name; gives the exit code.
int run_program(const std::vector<std::string>& words);

enum class PathKind { absent, file, folder, other };
PathKind path_kind(const std::string& name);
bool is_separator(char c);
bool is_forbidden(const std::string& name);  // for lack of permission to read it

// Stream handles as the library takes them; negative when the file cannot be opened.
std::int32_t open_to_read(const std::string& name);
std::int32_t open_to_update(const std::string& name);
std::FILE* open_file(const std::string& name, const char* mode);  // as fopen; for pipes and devices
std::int32_t create_new(const std::string& name);  // for reading and writing; must not exist yet
void rewind_stream(std::int32_t stream);
std::int64_t position_of(std::int32_t stream);
void close_stream(std::int32_t stream);

// Bytes read, 0 at the end, negative on an error or after an interrupt.
std::int32_t read_stream(std::int32_t stream, void* bytes, std::int32_t count);
bool write_stream(std::int32_t stream, const void* bytes, std::int32_t count);  // all of them

// Which file bears a name, and what tells that it was written to; all 0 when there is none.
struct FileState {
  std::uint64_t volume = 0, number = 0, bytes = 0, written = 0;
  bool operator==(const FileState&) const = default;
};
FileState state_of(const std::string& name);

// Other runs of this program wait in here for the same file, if there is one, until this one ends
// or takes another turn.
void take_turn(const std::string& name);

bool replace_file(const std::string& from, const std::string& to);
bool name_file(const std::string& from, const std::string& to);  // only if there is no `to` yet
void remove_file(const std::string& name);
bool make_folder(const std::string& name);
std::string resolve_links(const std::string& name);  // the file that a link leads to
void copy_permissions(const std::string& from, const std::string& to);
void copy_date(const std::string& from, const std::string& to);  // of the last change

// Where temporary files go, with a separator at its end: what the environment said at first, and
// where the library puts its own. While there are several threads that must not change.
std::string temporary_folder();
void set_library_temporary_folder(const std::string& folder);

// Standard streams that the program was started without fail; no file of ours takes their place.
void hold_standard_streams();
bool is_terminal(std::FILE* file);

// Of the terminal that standard output goes to, which from then on shows colours; zeros where it is
// none or does not tell.
struct TerminalSize {
  Size cells = {}, pixels = {};
};
TerminalSize terminal_size();

void set_binary(std::FILE* file);

// From here on an interrupt is only noted, once: a second one ends the program. Writing to a closed
// pipe or beyond a limit fails instead of ending it.
void catch_interrupts();
int interrupted();  // 0, or the number of the signal
[[noreturn]] void end_by_signal(int number);

}  // namespace tool
