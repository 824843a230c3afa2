#pragma once

/// Marks what `libKelTamber.so` shows to hosts and modules; everything else stays hidden.
#define TAMBER_API __attribute__((visibility("default")))
