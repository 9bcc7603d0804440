// Closed debug library (libcom.kovani.debug.so): gated log path with an
// interceptor and an offline sink, plus Android's liblog entry point.
#pragma once

#include <cstdint>

namespace kvdebug {

extern uint32_t gKvCamLogLevel;
extern uint32_t gKvCamLogGroup;
extern uint32_t gKvCamOfflineLogLevel;
extern uint32_t gKvCamOfflineLogGroup;
extern uint32_t gKvCamDebugMask;

class Log {
public:
    static const char* getFileName(const char* path);
    // 0 when the line is left for normal printing.
    static int catchLogEncryptLog(unsigned group, const char* file, int line, const char* func,
                                  char level, const char* fmt, ...)
        __attribute__((format(printf, 6, 7)));
    static const char* kvaGroupToString(unsigned group);
    static void logSystem(unsigned group, const char* level, const char* file, const char* func,
                          int line, const char* fmt, ...) __attribute__((format(printf, 6, 7)));
};

}  // namespace kvdebug

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));
