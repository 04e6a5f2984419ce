#pragma once
// The console seam: whether a standard stream shows ANSI colour, and writing text to it.
// On Windows a console shows colour only once its virtual-terminal mode is on, and takes
// UTF-8 text correctly only through its wide-character call.

#include <cstdio>
#include <string_view>

namespace zv::console {

// True when stream is a terminal that turns ANSI escapes into colour; on Windows this
// switches the console's virtual-terminal mode on where the console has one.
bool showsColour(std::FILE* stream);

// Writes UTF-8 text to the stream and flushes it.
void write(std::FILE* stream, std::string_view text);

}  // namespace zv::console
