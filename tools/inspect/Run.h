// One run of metautils-inspect, from its command line to what it prints and
// writes. The program is this function on the process's streams; the tests
// run it in process on every input and combination of outputs.
#pragma once

#include <ostream>

namespace inspect {

// Reads the file the arguments name and gives the outputs they ask for: the
// report (text or JSON, with log lines or not) or the block list on `out`,
// the drawing and the saved capture in files. Returns the exit status: 0, or
// 1 with one line "metautils-inspect: FILE: what went wrong" on `err` and
// nothing on `out`. Output files are written whole or not at all.
int run(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

}  // namespace inspect
