/* vetext host library "CorvoInitializer": the component runtime that the text engine binds to.
 *
 * InitCorvoComponents starts the runtime (reference counted) and returns a look-up that maps
 * (component, interface, procedure) names to a procedure address, or null when the runtime
 * cannot start. TerminateCorvoComponents undoes one start; its result is advisory. Not thread
 * safe: the host calls both from global setup and teardown only. */
#ifndef VETEXT_CORVO_H
#define VETEXT_CORVO_H

#include <stdbool.h>

#include "vetext/vx_api.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef void* (*CorvoLookupProc)(const char* component, const char* interface_name,
                                 const char* procedure);
VX_API CorvoLookupProc InitCorvoComponents(void);
VX_API bool TerminateCorvoComponents(void);

/* Test hook: while set, InitCorvoComponents returns null. */
VX_API void CorvoSetFailForTesting(bool fail);

#ifdef __cplusplus
}
#endif

#endif
