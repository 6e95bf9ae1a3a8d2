/* Export and linkage macros shared by every public header of the SDK. */
#ifndef KOVASDK_EXPORT_H
#define KOVASDK_EXPORT_H

#if defined(KOVASDK_BUILDING)
#define KOVA_API __attribute__((visibility("default")))
#else
#define KOVA_API
#endif

#ifdef __cplusplus
#define KOVA_BEGIN_DECLS extern "C" {
#define KOVA_END_DECLS }
#else
#define KOVA_BEGIN_DECLS
#define KOVA_END_DECLS
#endif

#endif /* KOVASDK_EXPORT_H */
