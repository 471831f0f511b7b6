#ifndef KIVR_KIVAPI_H
#define KIVR_KIVAPI_H

/// KIV_API marks what libkivr.so exports; everything else in it is hidden. So are the members of
/// an exported class that bear KIV_INTERNAL.
#if defined(__GNUC__)
#define KIV_API __attribute__((visibility("default")))
#define KIV_INTERNAL __attribute__((visibility("hidden")))
#else
#define KIV_API
#define KIV_INTERNAL
#endif

#endif
