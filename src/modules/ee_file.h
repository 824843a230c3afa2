#pragma once

#include "functions/module.h"

/// The module of files: by path or URL, by line, as searches, executables and code pages.
///
/// The numbers of the module's errors are written into the record when it is registered.
const FUNCMOD_REGISTRATION* GetFileModule();
