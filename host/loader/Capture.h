// A capture description: the frame's metadata, the static metadata of each
// camera, the camera ids and image sizes a plug-in would pass, and what the
// platform adapter answers. Read and checked whole before anything is
// installed.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "TagPayload.h"
#include "kvhost/Capture.h"

namespace kvhost {
namespace loader {

// A capture as a reader gives it: its metadata as tag payloads, not yet in
// containers.
struct Capture : CaptureInfo {
    std::vector<TagPayload> frame;
    std::map<uint32_t, std::vector<TagPayload>> statics;  // by camera id
};

// Reads and checks a capture description given as text. Every problem is an
// InputError whose text starts with `file`. (Load.h reads files.)
Capture parseCapture(const std::string& text, const std::string& file);

// The description, notes, warnings, camera ids, input size, frame and static
// metadata of a capture as a capture description, one tag a line (the
// arguments and adapter answers are left at their defaults): what a dump's
// capture is saved as. Read back, it gives the same report but for the
// file's name.
std::string captureText(const Capture& c);

// The capture's containers built, its static metadata registered with the
// platform stand-in and the adapter stand-in scripted. Throws InputError
// when a container cannot be built, before anything is registered.
kvhost::Capture install(Capture&& capture);

// The containers of a capture's static metadata, by camera. Throws
// InputError when one cannot be built.
std::map<uint32_t, std::shared_ptr<kvhost::Metadata>> buildStatics(const Capture& capture);

// install() with the static metadata containers built beforehand, as a
// sequence builds them once for all its frames (which then share them);
// capture.statics is not read.
kvhost::Capture install(Capture&& capture,
                        std::map<uint32_t, std::shared_ptr<kvhost::Metadata>> statics);

}  // namespace loader
}  // namespace kvhost
