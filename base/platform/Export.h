// RYL_API: visibility of the base library's symbols on each platform.
#pragma once

#if defined(_WIN32)
#if defined(RYL_BUILDING)
#define RYL_API __declspec(dllexport)
#else
#define RYL_API __declspec(dllimport)
#endif
#else
#define RYL_API __attribute__((visibility("default")))
#endif
