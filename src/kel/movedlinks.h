#pragma once

#include "kel/filepolicy.h"

namespace kel {

/// Whether symbolic links lead where the policy allows reading once what has the first place, a
/// link, or a tree with links in it, has the second. A relative link leads elsewhere from there.
bool LinksStayAllowed(const FilePolicy& policy, const Place& from, const Place& to);

}  // namespace kel
