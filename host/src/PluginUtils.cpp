// Host stand-in of the plug-in utility library: the settings record and the
// online/offline sinks of the primary log convention.
#include <cstdarg>
#include <utility>

#include "LogStore.h"
#include "UtilsLog.h"

namespace {

// Constant-initialised, so it is valid before any constructor of any library
// runs. The opaque part is what the device library keeps before the tag.
UtilsSettings gSettings = {{}, "KvMetaUtils"};

void emit(kvhost::LogSink sink, unsigned level, unsigned group, const char* tag, const char* file,
          unsigned line, const char* fmt, va_list args) __attribute__((format(printf, 7, 0)));

void emit(kvhost::LogSink sink, unsigned level, unsigned group, const char* tag, const char* file,
          unsigned line, const char* fmt, va_list args) {
    if (!kvhost::detail::wants(sink)) return;
    try {
        kvhost::LogRecord r;
        r.sink = sink;
        r.level = level;
        r.group = group;
        r.tag = tag != nullptr ? tag : "";
        r.file = file != nullptr ? file : "";
        r.line = static_cast<int>(line);
        r.format = fmt != nullptr ? fmt : "";
        r.text = kvhost::detail::formatV(fmt, args);
        kvhost::detail::deliver(std::move(r));
    } catch (...) {
        // Out of memory: the line is lost, the caller is not disturbed.
    }
}

}  // namespace

extern "C" {

UtilsSettings* UtilsSettings_getter(void) {
    return &gSettings;
}

const char* __UtilsLog_NoDirFileName(const char* path) {
    return kvhost::detail::baseName(path);
}

void __UtilsLog_PintOnline(unsigned level, unsigned group, const char* tag, const char* file,
                           unsigned line, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    emit(kvhost::LogSink::Online, level, group, tag, file, line, fmt, args);
    va_end(args);
}

void __UtilsLog_PintOffline(unsigned level, unsigned group, const char* tag, const char* file,
                            unsigned line, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    emit(kvhost::LogSink::Offline, level, group, tag, file, line, fmt, args);
    va_end(args);
}

}  // extern "C"
