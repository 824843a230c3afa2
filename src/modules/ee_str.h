#pragma once

#include "functions/module.h"

/// The string module: sub-strings, searching, expressions, encodings, numbers as text.
///
/// The record and its lists live as long as the process and are not written to.
const FUNCMOD_REGISTRATION* GetStringModule();
