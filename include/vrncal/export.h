// Symbol visibility for the vrncal shared library.
//
// The library is built with hidden visibility; only what a header marks with
// VRNCAL_API is exported.  Hosts link by the mangled names of the exported
// classes and functions, so every exported name lives in the global namespace
// exactly as it is spelled here.
#ifndef VRNCAL_EXPORT_H
#define VRNCAL_EXPORT_H

#if defined(_WIN32)
#  define VRNCAL_API
#else
#  define VRNCAL_API __attribute__((visibility("default")))
#endif

#endif
