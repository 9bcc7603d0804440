// Closed plug-in utility library (libcom.kovani.pluginutils.so): settings
// record and the online/offline log sinks of the primary log convention.
#pragma once

#include <cstddef>

// Only the address of logTag is used: the settings library keeps the log
// tag text inline at byte 72 of its record.
struct UtilsSettings {
    unsigned char opaque[72];
    char logTag[64];
};
static_assert(offsetof(UtilsSettings, logTag) == 72, "log tag lives at byte 72");

extern "C" {
UtilsSettings* UtilsSettings_getter(void);
const char* __UtilsLog_NoDirFileName(const char* path);
void __UtilsLog_PintOnline(unsigned level, unsigned group, const char* tag, const char* file,
                           unsigned line, const char* fmt, ...)
    __attribute__((format(printf, 6, 7)));
void __UtilsLog_PintOffline(unsigned level, unsigned group, const char* tag, const char* file,
                            unsigned line, const char* fmt, ...)
    __attribute__((format(printf, 6, 7)));
}
