#pragma once

/// \file
/// All that a host needs to compile and run Tamber scripts.

#include "context/tambctxt.h"
#include "frontend/script.h"
#include "functions/module.h"
#include "host/call.h"
#include "host/register.h"
#include "kel/filepolicy.h"
#include "kel/keldebug.h"
#include "kel/kelstring.h"
#include "kel/notice.h"
#include "kel/sessionstore.h"
#include "text/tokenise.h"
#include "values/vararray.h"
#include "values/varbool.h"
#include "values/varchar.h"
#include "values/vardouble.h"
#include "values/varestring.h"
#include "values/varfloat.h"
#include "values/varhandle.h"
#include "values/varint.h"
#include "values/varlist.h"
#include "values/varnone.h"
#include "values/varref.h"
#include "values/varstring.h"
#include "values/varstruct.h"
