// VELTRANE_API marks what libveltrane.so exports: the platform's API, the
// type library's interfaces, identifiers and dispatch tables, and the
// module's entry points. Everything else is compiled with hidden visibility.
#pragma once

#define VELTRANE_API __attribute__((visibility("default")))
