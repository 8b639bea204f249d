// Symbol export for libkestro. The library is built with hidden visibility;
// everything a host may use carries KESTRO_API.
#ifndef KESTRO_EXPORT_H
#define KESTRO_EXPORT_H

#if defined(_WIN32)
#if defined(KESTRO_BUILDING)
#define KESTRO_API __declspec(dllexport)
#else
#define KESTRO_API __declspec(dllimport)
#endif
#else
#define KESTRO_API __attribute__((visibility("default")))
#endif

#endif
