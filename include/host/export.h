// Symbol visibility of the reference host library.
#pragma once

#if defined(CRANDLE_HOST_BUILDING)
#define HOST_API __attribute__((visibility("default")))
#else
#define HOST_API
#endif
