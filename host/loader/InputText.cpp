#include "InputText.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>

#if defined(KVHOST_ZIP)
#include <archive.h>
#include <archive_entry.h>
#endif

#include "Capture.h"
#include "DumpText.h"

namespace kvhost {
namespace loader {
namespace {

constexpr size_t kChunk = size_t{1} << 16;
constexpr std::string_view kDumpOfService = "DUMP OF SERVICE ";

// A line a HAL's log or the camera service prints of camera metadata: a
// block's header, an entry's header "name (id): type[n]", a value row
// "[...]", a tag monitor event "f<frame>:<time>ns: ...", a tag list line.
bool isCameraLine(std::string_view raw) {
    // Most lines of a bug report hold none of these; they are let go
    // without cleaning.
    if (raw.find('[') == std::string_view::npos && raw.find("ns:") == std::string_view::npos &&
        raw.find("camera metadata") == std::string_view::npos &&
        raw.find("Tag monitor") == std::string_view::npos) {
        return false;
    }
    const std::string_view s = cleanDumpLine(raw);
    if (s.empty()) return false;
    if ((s.front() == '[' && s.back() == ']') || contains(s, "camera metadata") ||
        contains(s, "Tag monitor")) {
        return true;
    }
    size_t p = 0;
    if (skipChar(s, p, 'f') && skipDigits(s, p) && skipChar(s, p, ':') && skipDigits(s, p) &&
        startsWith(s.substr(p), "ns:")) {
        return true;
    }
    const size_t header = s.find("): ");
    return header != std::string_view::npos && s.find('[', header) != std::string_view::npos;
}

// The pages a text is read into: anonymous memory that the kernel may back
// with huge pages, grown in place (mremap). A file read into the heap costs a
// page fault every 4 KiB, which on a virtual machine can take longer than
// reading the file.
class TextBuffer {
public:
    TextBuffer() = default;
    TextBuffer(const TextBuffer&) = delete;
    TextBuffer& operator=(const TextBuffer&) = delete;
    ~TextBuffer() {
        if (data_ != nullptr) ::munmap(data_, capacity_);
    }

    void reserve(size_t n) {
        if (n > capacity_) grow(n);
    }
    void append(std::string_view s) {
        reserve(size_ + s.size());
        if (!s.empty()) std::memcpy(data_ + size_, s.data(), s.size());
        size_ += s.size();
    }
    void pop_back() { --size_; }
    std::string_view view() const { return {data_, size_}; }

    // The text, which now owns the pages.
    Text release() {
        if (data_ == nullptr) return Text();
        const size_t capacity = capacity_;
        const std::shared_ptr<const void> pages(
            data_, [capacity](const void* p) { ::munmap(const_cast<void*>(p), capacity); });
        const Text text(pages, view());
        data_ = nullptr;
        size_ = capacity_ = 0;
        return text;
    }

private:
    static constexpr size_t kHugePage = size_t{2} << 20;

    void grow(size_t n) {
        size_t capacity = std::max({n, capacity_ * 2, kHugePage});
        capacity = (capacity + kHugePage - 1) / kHugePage * kHugePage;
        void* p = data_ == nullptr ? ::mmap(nullptr, capacity, PROT_READ | PROT_WRITE,
                                            MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)
                                   : ::mremap(data_, capacity_, capacity, MREMAP_MAYMOVE);
        if (p == MAP_FAILED) throw std::bad_alloc();
        ::madvise(p, capacity, MADV_HUGEPAGE);  // a hint; without it, small pages
        data_ = static_cast<char*>(p);
        capacity_ = capacity;
    }

    char* data_ = nullptr;
    size_t size_ = 0;
    size_t capacity_ = 0;
};

// The text kept of an input, fed in pieces of any size.
class Sink {
public:
    // `size`: the input's size when known, for the text of one that is not
    // a bug report (kept whole) to take its room once.
    Sink(const std::string& path, const InputLimits& limits, size_t size = 0)
        : path_(path), limits_(limits), size_(size) {}

    void add(std::string_view bytes) {
        if (std::memchr(bytes.data(), '\0', bytes.size()) != nullptr) {
            fail("binary data, neither a capture description nor a camera metadata dump");
        }
        while (!bytes.empty()) {
            if (bugReport_ == 0 && partial_.empty()) return addWhole(bytes);
            const size_t end = bytes.find('\n');
            const std::string_view piece = bytes.substr(0, end);
            lineLength(partial_.size() + piece.size());
            if (end == std::string_view::npos) {
                partial_.append(piece);
                return;
            }
            if (partial_.empty()) {
                line(piece);
            } else {
                partial_.append(piece);
                line(partial_);
                partial_.clear();
            }
            bytes.remove_prefix(end + 1);
        }
    }

    Text finish() {
        if (!partial_.empty()) {
            line(partial_);
            text_.pop_back();  // the file's last line had no line end
        }
        if (open_ != 0) countLine();  // the same, read whole
        if (bugReport_ == 1 && !camera_) {
            fail(
                "a bug report without camera text (no media.camera service dump, no camera "
                "metadata lines)");
        }
        if (text_.view().find_first_not_of(" \t\r\n") == std::string_view::npos) {
            fail("empty file");
        }
        return text_.release();
    }

    // The text kept, with a note when it is a bug report's camera text.
    InputText input() {
        InputText in;
        in.text = finish();
        if (bugReport_ == 1) {
            in.note = "a bug report: its camera service dump and camera metadata lines read";
        }
        return in;
    }

    [[noreturn]] void fail(const std::string& what) const { throw InputError(path_ + ": " + what); }

private:
    void countLine() {
        if (++lines_ > limits_.lines) {
            fail("more than " + std::to_string(limits_.lines) + " lines");
        }
    }
    // Whether `more` bytes may still be kept.
    void keptLength(size_t more) const {
        if (text_.view().size() + more > limits_.keptBytes) {
            fail("more than " + std::to_string(limits_.keptBytes >> 20) + " MiB of camera text");
        }
    }
    void lineLength(size_t bytes) const {
        if (bytes > limits_.lineBytes) {
            fail("line " + std::to_string(lines_ + 1) + " is longer than " +
                 std::to_string(limits_.lineBytes >> 20) +
                 " MiB: neither a capture description nor a camera metadata dump");
        }
    }

    // Bytes of a text kept whole (not a bug report) from a line's start: the
    // lines counted and measured, the bytes kept as they are.
    void addWhole(std::string_view bytes) {
        keptLength(bytes.size());
        for (size_t start = 0; start < bytes.size();) {
            const void* found = std::memchr(bytes.data() + start, '\n', bytes.size() - start);
            const size_t end =
                found != nullptr
                    ? static_cast<size_t>(static_cast<const char*>(found) - bytes.data())
                    : bytes.size();
            open_ += end - start;
            lineLength(open_);
            if (found == nullptr) break;
            countLine();
            open_ = 0;
            start = end + 1;
        }
        text_.append(bytes);
    }

    void line(std::string_view s) {
        countLine();
        // A bug report opens with a rule of '=' and the "== dumpstate:" line.
        const bool opening = bugReport_ < 0 && lines_ == 2;
        if (opening) bugReport_ = startsWith(s, "== dumpstate:") ? 1 : 0;
        if (opening && bugReport_ == 0) text_.reserve(std::min(size_, limits_.keptBytes) + 1);
        bool kept = true;
        if (bugReport_ == 1 && !opening) {
            kept = keep(s);
            camera_ = camera_ || kept;
        }
        if (kept) {
            keptLength(s.size() + 1);
            text_.append(s);
        }
        text_.append("\n");
    }

    // A bug report's line: in the camera service's dump, or of metadata.
    bool keep(std::string_view s) {
        if (startsWith(s, kDumpOfService)) {
            std::string_view name = s.substr(kDumpOfService.size());
            for (std::string_view priority : {"CRITICAL ", "HIGH ", "NORMAL "}) {
                if (startsWith(name, priority)) name.remove_prefix(priority.size());
            }
            inCamera_ = trim(name) == "media.camera:";
            return inCamera_;
        }
        if (startsWith(s, "------")) {
            const bool ends = inCamera_;
            inCamera_ = false;
            return ends && contains(s, "was the duration of dumpsys");
        }
        return inCamera_ || isCameraLine(s);
    }

    const std::string& path_;
    const InputLimits& limits_;
    TextBuffer text_;
    std::string partial_;
    size_t open_ = 0;  // bytes of the last line, read whole, so far without its end
    size_t size_;
    size_t lines_ = 0;
    int bugReport_ = -1;  // not known yet
    bool inCamera_ = false;
    bool camera_ = false;  // a bug report's camera line was kept
};

#if defined(KVHOST_ZIP)
using Archive = std::unique_ptr<archive, decltype(&archive_read_free)>;

bool isBugReportEntry(const std::string& name, const std::string& main) {
    if (!main.empty()) return name == main;
    return name.find('/') == std::string::npos && startsWith(name, "bugreport") &&
           name.size() > 4 && name.compare(name.size() - 4, 4, ".txt") == 0;
}

// The bug report's text inside the zip `a` opened on.
InputText readZip(archive* a, const std::string& path, const InputLimits& limits) {
    Sink sink(path, limits);
    const auto fail = [&](const std::string& what) -> void {
        throw InputError(path + ": " + what);
    };
    std::string main;  // main_entry.txt names the bug report's entry
    archive_entry* entry = nullptr;
    for (;;) {
        const int rc = archive_read_next_header(a, &entry);
        if (rc == ARCHIVE_EOF) break;
        if (rc != ARCHIVE_OK && rc != ARCHIVE_WARN) {
            fail(std::string("cannot read the zip: ") + archive_error_string(a));
        }
        const char* raw = archive_entry_pathname(entry);
        const std::string name = raw != nullptr ? raw : "";
        const bool isMain = name == "main_entry.txt";
        if (!isMain && !isBugReportEntry(name, main)) continue;
        std::string small;  // main_entry.txt's text
        size_t total = 0;
        char buffer[1 << 16];
        for (;;) {
            const la_ssize_t n = archive_read_data(a, buffer, sizeof buffer);
            if (n < 0) fail(std::string("cannot read the zip: ") + archive_error_string(a));
            if (n == 0) break;
            total += static_cast<size_t>(n);
            if (total > limits.entryBytes) {
                fail(name + " expands past " + std::to_string(limits.entryBytes >> 30) +
                     " GiB, more than any bug report");
            }
            if (isMain) {
                if (small.size() < 4096) small.append(buffer, static_cast<size_t>(n));
            } else {
                sink.add(std::string_view(buffer, static_cast<size_t>(n)));
            }
        }
        if (isMain) {
            main = std::string(trim(small));
            continue;
        }
        InputText in;
        in.text = sink.finish();
        in.note = "read " + name + " of the zip (the bug report)";
        return in;
    }
    fail(main.empty() ? "a zip without a bug report (no bugreport-*.txt entry)"
                      : "a zip without its bug report " + main);
    return {};
}

Archive openZip() {
    Archive a(archive_read_new(), archive_read_free);
    archive_read_support_format_zip(a.get());
    return a;
}
#endif

bool isZip(std::string_view head) {
    return head.size() >= 4 && head.substr(0, 4) == std::string_view("PK\x03\x04", 4);
}

#if !defined(KVHOST_ZIP)
[[noreturn]] void noZip(const std::string& path) {
    throw InputError(path + ": a zip, and this build reads none (it was built without libarchive)");
}
#endif

}  // namespace

Text::Text(std::string text) {
    auto owned = std::make_shared<const std::string>(std::move(text));
    view_ = *owned;
    holder_ = std::move(owned);
}

InputText readInput(const std::string& path, const InputLimits& limits) {
    const auto fail = [&](const std::string& what) { throw InputError(path + ": " + what); };
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored)) {
        fail("cannot open: " + std::string(std::strerror(EISDIR)));
    }
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) fail("cannot open: " + std::string(std::strerror(errno)));
    std::unique_ptr<int, void (*)(int*)> closer(new int(fd), [](int* f) {
        ::close(*f);
        delete f;
    });
    std::string chunk(kChunk, '\0');
    const auto readSome = [&]() -> size_t {
        for (;;) {
            const ssize_t n = ::read(fd, chunk.data(), chunk.size());
            if (n >= 0) return static_cast<size_t>(n);
            if (errno != EINTR) fail("cannot read: " + std::string(std::strerror(errno)));
        }
    };
    size_t n = readSome();
    if (isZip(std::string_view(chunk.data(), n))) {
#if defined(KVHOST_ZIP)
        if (::lseek(fd, 0, SEEK_SET) != 0) fail("cannot read a zip from a pipe");
        Archive a = openZip();
        if (archive_read_open_fd(a.get(), fd, 1 << 16) != ARCHIVE_OK) {
            fail(std::string("cannot read the zip: ") + archive_error_string(a.get()));
        }
        return readZip(a.get(), path, limits);
#else
        noZip(path);
#endif
    }
    struct stat st {};
    const bool sized = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
    Sink sink(path, limits, sized ? static_cast<size_t>(st.st_size) : 0);
    while (n != 0) {
        sink.add(std::string_view(chunk.data(), n));
        n = readSome();
    }
    return sink.input();
}

InputText readInputBytes(std::string_view bytes, const std::string& path,
                         const InputLimits& limits) {
    if (isZip(bytes)) {
#if defined(KVHOST_ZIP)
        Archive a = openZip();
        if (archive_read_open_memory(a.get(), bytes.data(), bytes.size()) != ARCHIVE_OK) {
            throw InputError(path + ": cannot read the zip: " + archive_error_string(a.get()));
        }
        return readZip(a.get(), path, limits);
#else
        noZip(path);
#endif
    }
    Sink sink(path, limits, bytes.size());
    sink.add(bytes);
    return sink.input();
}

}  // namespace loader
}  // namespace kvhost
