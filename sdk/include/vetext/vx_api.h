/* vetext SDK: export macro for the host libraries.
 *
 * Everything the host libraries export is marked VX_API; the rest of their code is built with
 * hidden visibility. The module itself exports only its two entry points (see effect.h and
 * gpu_filter.h) and marks them VX_MODULE_EXPORT. */
#ifndef VETEXT_VX_API_H
#define VETEXT_VX_API_H

#if defined(__GNUC__)
#define VX_API __attribute__((visibility("default")))
#define VX_MODULE_EXPORT __attribute__((visibility("default")))
#else
#define VX_API
#define VX_MODULE_EXPORT
#endif

#ifdef __cplusplus
#define VX_EXTERN_C extern "C"
#else
#define VX_EXTERN_C
#endif

#endif
