// Internal seam between the host log sinks and the capture store, which lives
// in the plug-in utility stand-in. Not installed.
#pragma once

#include <cstdarg>
#include <string>

#include "kvhost/LogCapture.h"

namespace kvhost {
namespace detail {

// printf-style formatting of any length; "" for a null format or a
// formatting error. `args` is left untouched (it is copied).
std::string formatV(const char* fmt, va_list args) __attribute__((format(printf, 1, 0)));

// false when a line of `sink` would be neither recorded nor echoed, so the
// sink can skip formatting it. Advisory: deliver() decides.
bool wants(LogSink sink);

// Hands one line to the store: recorded while a capture is alive, otherwise
// echoed to stderr when echo is on and the sink is console-facing.
void deliver(LogRecord&& record);

// Android priority of a debug level letter (V 2 ... F 7), 0 when unknown.
unsigned letterLevel(char letter);

// Part of `path` after its last '/'; "" for null.
const char* baseName(const char* path);

}  // namespace detail
}  // namespace kvhost
