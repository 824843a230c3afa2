#pragma once

/// Marks what `libKelTamber.so` shows to hosts and modules; everything else stays hidden. A program
/// that is linked with the static library shows nothing of it.
#ifdef TAMBER_STATIC
#define TAMBER_API
#else
#define TAMBER_API __attribute__((visibility("default")))
#endif

/// Marks a member of a class of which the rest is shown: nothing in the headers calls it.
#define TAMBER_LOCAL __attribute__((visibility("hidden")))
