#include "Load.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <new>

#include "InputText.h"
#include "TagMonitor.h"

namespace kvhost {
namespace loader {
namespace {

bool anyOption(const DumpOptions& o) {
    return o.camera || o.frame || !o.statics.empty() || o.input;
}

}  // namespace

bool isCaptureDescription(std::string_view text) {
    if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);  // a UTF-8 byte order mark
    const size_t first = text.find_first_not_of(" \t\r\n");
    return first != std::string_view::npos && text[first] == '{';
}

Capture loadText(std::string_view text, const std::string& path, const DumpOptions& options) {
    if (isCaptureDescription(text)) {
        if (anyOption(options)) {
            throw InputError(path +
                             ": a capture description; --camera, --frame, --static and "
                             "--input apply to dumps");
        }
        return parseCapture(std::string(text), path);
    }
    return captureFromDump(readDump(text, path), options);
}

void writeFileAtomically(const std::string& path, const std::string& text) {
    // A device or a pipe (/dev/stdout, a FIFO) is written in place: it cannot
    // be replaced, and is not left half-written on a disk.
    struct stat existing {};
    const bool inPlace = ::stat(path.c_str(), &existing) == 0 && !S_ISREG(existing.st_mode) &&
                         !S_ISDIR(existing.st_mode);
    const std::string temporary = inPlace ? path : path + ".tmp-" + std::to_string(::getpid());
    const auto fail = [&](const char* what, int error) {
        if (!inPlace) ::unlink(temporary.c_str());
        throw InputError(path + ": " + what + ": " + std::strerror(error));
    };
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) fail("cannot write", errno);
    for (size_t done = 0; done < text.size();) {
        const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            const int error = n < 0 ? errno : EIO;
            ::close(fd);
            fail("cannot write", error);
        }
        done += static_cast<size_t>(n);
    }
    // A full disk may only show when the data reaches it.
    if (::fsync(fd) != 0 && errno != EINVAL) {
        const int error = errno;
        ::close(fd);
        fail("cannot write", error);
    }
    if (::close(fd) != 0) fail("cannot write", errno);
    if (!inPlace && std::rename(temporary.c_str(), path.c_str()) != 0)
        fail("cannot replace", errno);
}

}  // namespace loader

std::shared_ptr<Metadata> Capture::staticOf(int cameraId) const {
    const auto it = statics.find(static_cast<uint32_t>(cameraId));
    return cameraId < 0 || it == statics.end() ? nullptr : it->second;
}

LoadResult loadCapture(const std::string& path, const DumpOptions& options,
                       const std::string& saveAs) {
    LoadResult result;
    try {
        const loader::InputText in = loader::readInput(path);
        const std::string_view text = in.text;
        if (!saveAs.empty() && loader::isCaptureDescription(text)) {
            throw loader::InputError(path +
                                     ": a capture description; only a dump's capture "
                                     "is saved");
        }
        loader::Capture capture = loader::loadText(text, path, options);
        if (!in.note.empty()) capture.notes.insert(capture.notes.begin(), in.note);
        // A dump whose tag monitor logged a session: one frame is read here.
        if (!loader::isCaptureDescription(text)) {
            const size_t events = loader::readEventLog(text, path, {}).events.size();
            if (events != 0) {
                capture.notes.push_back("the file also holds a tag monitor log of " +
                                        std::to_string(events) +
                                        " events: --frames shows the session frame by frame");
            }
        }
        if (!saveAs.empty()) loader::writeFileAtomically(saveAs, loader::captureText(capture));
        result.warnings = capture.warnings;
        result.capture = loader::install(std::move(capture));
    } catch (const loader::InputError& e) {
        result.error = e.what();
    } catch (const std::bad_alloc&) {
        result.error = path + ": out of memory";
    }
    return result;
}

BlockList listDumpBlocks(const std::string& path) {
    BlockList list;
    try {
        const loader::Text text = loader::readInput(path).text;
        if (loader::isCaptureDescription(text)) {
            throw loader::InputError(path + ": a capture description, not a dump");
        }
        const loader::Dump dump = loader::readDump(text, path);
        list.text = loader::listBlocks(dump, &list.warnings);
    } catch (const loader::InputError& e) {
        list.error = e.what();
    } catch (const std::bad_alloc&) {
        list.error = path + ": out of memory";
    }
    return list;
}

}  // namespace kvhost
