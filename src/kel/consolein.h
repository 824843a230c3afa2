#pragma once

#include <cstddef>
#include <string>

namespace kel {

/// Reads a line from standard input, as the C library buffers it, so that a host that reads there
/// too misses nothing. "\n", "\r\n" and "\r" end a line and are not part of it. At most `limit`
/// bytes are read; a longer line goes on with the next call. At the end of the input, or when it
/// cannot be read, the line is empty and the result false.
bool ReadConsoleLine(std::string& line, size_t limit);

}  // namespace kel
