#pragma once

#include "functions/module.h"

/// The system module: smaller and larger, waiting, chance, the console, the context's dumps. The
/// record lives as long as the process and is never written to.
const FUNCMOD_REGISTRATION* GetSystemModule();
