/* Marks what the shared library exports; everything else in it stays internal. */
#ifndef QBCODE_EXPORT_H
#define QBCODE_EXPORT_H

#if defined(__GNUC__) || defined(__clang__)
#define QBCODE_EXPORT __attribute__((visibility("default")))
/* Around the declarations of a public header. */
#define QBCODE_VISIBLE_BEGIN _Pragma("GCC visibility push(default)")
#define QBCODE_VISIBLE_END _Pragma("GCC visibility pop")
#else
#define QBCODE_EXPORT
#define QBCODE_VISIBLE_BEGIN
#define QBCODE_VISIBLE_END
#endif

#endif
