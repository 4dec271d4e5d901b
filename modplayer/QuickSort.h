// quickSort: the runtime's in-place sort of 16-bit values. Recursive; a
// recursion deeper than 256 levels is a fatal error ("Sort recursion too
// deep!"). Used to build the sorted period tables.
#pragma once

#include <cstdint>

void quickSort(uint16_t* values, int32_t count);
