#pragma once
// Symbol visibility of the core library. The library is built with hidden
// visibility; only what is marked KXCORE_API is part of its interface.
#if defined(KXCORE_STATIC)
#define KXCORE_API
#else
#define KXCORE_API __attribute__((visibility("default")))
#endif
