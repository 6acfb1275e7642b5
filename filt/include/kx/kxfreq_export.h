#pragma once
// Symbol visibility of kxfreq. The library is built with hidden visibility;
// exactly the classes and functions marked KXFREQ_API are exported.
#if defined(KXFREQ_STATIC)
#define KXFREQ_API
#else
#define KXFREQ_API __attribute__((visibility("default")))
#endif
