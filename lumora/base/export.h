// Symbol visibility for the Lumora shared library.
//
// The library is built with hidden visibility; everything a host may call is
// marked LUMORA_API. Classes are exported whole, so their inline members and
// type records are reachable from the host as well.
#pragma once

#if defined(_WIN32)
#if defined(LUMORA_BUILDING)
#define LUMORA_API __declspec(dllexport)
#else
#define LUMORA_API __declspec(dllimport)
#endif
#else
#define LUMORA_API __attribute__((visibility("default")))
#endif
