#pragma once

#include "functions/module.h"

/// The core module: variables by name, arrays as a whole, the error table. The record lives as long
/// as the process and is never written to.
const FUNCMOD_REGISTRATION* GetCoreModule();
