#pragma once

#include "functions/module.h"

/// The module of paths and directories.
///
/// The record and its lists live as long as the process and are not written to.
const FUNCMOD_REGISTRATION* GetDirectoryModule();
