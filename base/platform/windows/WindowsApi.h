// WindowsApi: the system's headers, without the macros that would rename the base library's own functions.
#pragma once

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif

#include <winsock2.h>
// Behind winsock2.h, which must come first.
#include <windows.h>

#undef CreateDirectory
#undef CreateEvent
#undef CreateFile
#undef CreateMutex
#undef DeleteFile
#undef GetFileSize
#undef MoveFile
