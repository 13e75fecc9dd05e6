// What nobody means to remove, whatever was typed.
#pragma once

#include <string>
#include <vector>

namespace tool {

enum class Mounts { refused, emptied };

// Throws a Failure for the first of these paths that is empty, the root, "." or "..", the working directory or above
// it, or, unless `mounts` says otherwise, a place where something is mounted, at it or below. To be asked about all
// paths before the first one is removed.
void refuse_what_nobody_means(const std::vector<std::string> &paths, Mounts mounts);

}  // namespace tool
