// Host stand-in of the debug library: the level, group and mask globals, the
// interceptor and the offline sink, all recording into the shared log store.
#include <cstdarg>
#include <utility>

#include "KvDebug.h"
#include "LogStore.h"

namespace kvdebug {

// Open gates: on the host every line of the secondary convention goes
// through unless a test or tool narrows them.
uint32_t gKvCamLogLevel = 0;
uint32_t gKvCamLogGroup = 0xFFFFFFFF;
uint32_t gKvCamOfflineLogLevel = 0;
uint32_t gKvCamOfflineLogGroup = 0xFFFFFFFF;
uint32_t gKvCamDebugMask = 1;

namespace {

void emit(kvhost::LogSink sink, unsigned group, const char* file, int line, const char* func,
          char letter, const char* fmt, va_list args) __attribute__((format(printf, 7, 0)));

void emit(kvhost::LogSink sink, unsigned group, const char* file, int line, const char* func,
          char letter, const char* fmt, va_list args) {
    if (!kvhost::detail::wants(sink)) return;
    try {
        kvhost::LogRecord r;
        r.sink = sink;
        r.level = kvhost::detail::letterLevel(letter);
        r.group = group;
        r.file = file != nullptr ? file : "";
        r.line = line;
        r.func = func != nullptr ? func : "";
        r.letter = letter;
        r.format = fmt != nullptr ? fmt : "";
        r.text = kvhost::detail::formatV(fmt, args);
        kvhost::detail::deliver(std::move(r));
    } catch (...) {
        // Out of memory: the line is lost, the caller is not disturbed.
    }
}

}  // namespace

const char* Log::getFileName(const char* path) {
    return kvhost::detail::baseName(path);
}

int Log::catchLogEncryptLog(unsigned group, const char* file, int line, const char* func,
                            char level, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    emit(kvhost::LogSink::DebugIntercept, group, file, line, func, level, fmt, args);
    va_end(args);
    return kvhost::debugInterceptResult();
}

const char* Log::kvaGroupToString(unsigned group) {
    // Groups are single bits; a value that is not one of them has no name.
    switch (group) {
        case 1u << 0:
            return "COMMON";
        case 1u << 1:
            return "ALGO";
        case 1u << 2:
            return "ISP";
        case 1u << 3:
            return "SENSOR";
        case 1u << 4:
            return "3A";
        case 1u << 5:
            return "HAL";
        case 1u << 6:
            return "PLUGIN";
        case 1u << 7:
            return "UTILS";
        default:
            return "UNKNOWN";
    }
}

void Log::logSystem(unsigned group, const char* level, const char* file, const char* func, int line,
                    const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    const char letter = level != nullptr ? level[0] : '\0';
    emit(kvhost::LogSink::DebugOffline, group, file, line, func, letter, fmt, args);
    va_end(args);
}

}  // namespace kvdebug
