// metautils-inspect: what every kvalgo2::MetaUtils getter returns for one
// capture, run off-device against the host stand-ins of the platform. The
// capture comes from a capture description or from a device's camera
// metadata dump.
#include <iostream>

#include "Run.h"

int main(int argc, char** argv) {
    return inspect::run(argc, argv, std::cout, std::cerr);
}
