#pragma once

/// Marks what `libKelTamber.so` shows to hosts and modules; everything else stays hidden. A program
/// that is linked with the static library shows nothing of it.
#ifdef TAMBER_STATIC
#define TAMBER_API
#else
#define TAMBER_API __attribute__((visibility("default")))
#endif
