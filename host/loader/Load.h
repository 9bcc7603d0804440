// What a user hands us: a capture description (JSON) or a camera metadata
// dump (text), told apart by their content.
#pragma once

#include <string>
#include <string_view>

#include "Capture.h"
#include "DumpCapture.h"

namespace kvhost {
namespace loader {

// True when the text is a capture description: its first character that is
// not blank is '{'. Anything else is read as a dump.
bool isCaptureDescription(std::string_view text);

// The capture of a file's text of either kind; `path` names it in messages.
// `options` apply to dumps; for a capture description any option given is an
// error. kvhost::loadCapture (kvhost/Capture.h) reads, installs and reports
// errors as values on top of this.
Capture loadText(std::string_view text, const std::string& path, const DumpOptions& options);

// Writes `text` to `path` whole or not at all: into a temporary file beside
// it, renamed over `path` once every byte is written. Throws InputError
// naming `path` with the system's reason ("cannot write: No space left on
// device"); the temporary file is removed then.
void writeFileAtomically(const std::string& path, const std::string& text);

}  // namespace loader
}  // namespace kvhost
