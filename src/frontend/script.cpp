#include "frontend/script.h"

TamberScript::~TamberScript() = default;
