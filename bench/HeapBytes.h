#pragma once

#include <malloc.h>

/// The bytes that are allocated on the heap now.
inline double
heapBytes() {
   auto info = mallinfo2();
   return double(info.uordblks) + double(info.hblkhd);
}
