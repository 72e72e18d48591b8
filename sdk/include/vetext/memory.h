/* vetext host library "Memory": host pointers handed to the GPU path (document copies). */
#ifndef VETEXT_MEMORY_H
#define VETEXT_MEMORY_H

#include <stdint.h>

#include "vetext/vx_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Allocates a host pointer of `size` bytes (null on failure); the caller owns it. */
VX_API void* RxNewPtr(uint64_t size);
/* The byte size `p` was allocated with; 0 for null. */
VX_API uint64_t RxGetPtrSize(const void* p);
/* Frees a pointer from RxNewPtr; null is ignored. */
VX_API void RxDisposePtr(void* p);

#ifdef __cplusplus
}
#endif

#endif
