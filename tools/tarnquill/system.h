// What differs between operating systems. File names are bytes (Windows: in the ANSI code page).
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace tool {

enum class PathKind { absent, file, folder, other };
PathKind path_kind(const std::string& name);
bool is_separator(char c);

// Stream handles as the library takes them; negative when the file cannot be opened.
std::int32_t open_to_read(const std::string& name);
std::int32_t open_to_update(const std::string& name);
std::int32_t create_new(const std::string& name);  // for reading and writing; must not exist yet
void rewind_stream(std::int32_t stream);
void close_stream(std::int32_t stream);

bool replace_file(const std::string& from, const std::string& to);
void remove_file(const std::string& name);
bool make_folder(const std::string& name);
std::string resolve_links(const std::string& name);  // the file that a link leads to
void copy_permissions(const std::string& from, const std::string& to);
std::string temporary_folder();

bool is_terminal(std::FILE* file);
void set_binary(std::FILE* file);

// From here on an interrupt is only noted, once: a second one ends the program.
void catch_interrupts();
int interrupted();  // 0, or the number of the signal
[[noreturn]] void end_by_signal(int number);

}  // namespace tool
