// Input of the MapRectToInput target: the mapping's six arguments.
#pragma once

#include <cstdint>

#include "FuzzSupport.h"

namespace kvfuzz {

struct MapRectCase {
    kvalgo2::ChiRect src{};
    kvalgo2::ChiRect refer{};
    int32_t inputWidth = 0;
    int32_t inputHeight = 0;
    kvalgo2::ChiRect sensor{};
};

template <typename IO>
void Visit(IO& io, MapRectCase& c) {
    VisitRect(io, c.src);
    VisitRect(io, c.refer);
    io.sdim(c.inputWidth);
    io.sdim(c.inputHeight);
    VisitRect(io, c.sensor);
}

}  // namespace kvfuzz
