#ifndef KIVR_KIVAPI_H
#define KIVR_KIVAPI_H

/// Marks what libkivr.so exports; everything else in it is hidden.
#if defined(__GNUC__)
#define KIV_API __attribute__((visibility("default")))
#else
#define KIV_API
#endif

#endif
