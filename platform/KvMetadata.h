// Closed metadata library (libcom.kovani.metadatautils.so): the container of
// one capture's camera metadata and the per-camera static metadata provider.
// Only the operations the library calls are declared here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#if __has_include(<system/camera_metadata.h>)
#include <system/camera_metadata.h>
#else
// Entry layout of Android's read-only camera metadata entry.
typedef struct camera_metadata_rational {
    int32_t numerator;
    int32_t denominator;
} camera_metadata_rational_t;

typedef struct camera_metadata_ro_entry {
    size_t index;
    uint32_t tag;
    uint8_t type;
    size_t count;
    union {
        const uint8_t* u8;
        const int32_t* i32;
        const float* f;
        const int64_t* i64;
        const double* d;
        const camera_metadata_rational_t* r;
    } data;
} camera_metadata_ro_entry_t;
#endif

class KvMetadata {
public:
    // Returns the entry by value; count is 0 when the tag is absent.
    camera_metadata_ro_entry_t find(const char* name) const;
    camera_metadata_ro_entry_t find(uint32_t tag) const;

    // 0 and the tag id in *tag when the name is known, non-zero otherwise.
    static int getTagFromName(const char* name, uint32_t* tag);

    // Create or replace an entry; 0 on success.
    int update(uint32_t tag, const float* data, size_t count);
    int update(uint32_t tag, const int32_t* data, size_t count);
    int update(uint32_t tag, const uint8_t* data, size_t count);

protected:
    // Containers are made by the metadata library, never by this library.
    KvMetadata() = default;
    ~KvMetadata() = default;
};

class StaticMetadataWraper {
public:
    static StaticMetadataWraper* getInstance();
    // The static characteristics of a camera; empty when the camera is unknown.
    std::shared_ptr<KvMetadata> getStaticMetadata(uint32_t cameraId);

protected:
    StaticMetadataWraper() = default;
    ~StaticMetadataWraper() = default;
};
