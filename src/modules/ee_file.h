#pragma once

#include "functions/module.h"

/// The module of files: by path or URL, by line, as searches, executables and code pages.
///
/// The record and its lists live as long as the process and are not written to.
const FUNCMOD_REGISTRATION* GetFileModule();
