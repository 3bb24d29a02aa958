// The library's own version, from the project version in CMakeLists.txt.
#include "vrncal/version.h"

namespace vrncal {

const char* version() { return VRNCAL_VERSION_STRING; }

VersionNumbers versionNumbers() {
    return VersionNumbers{VRNCAL_VERSION_MAJOR, VRNCAL_VERSION_MINOR, VRNCAL_VERSION_PATCH};
}

}  // namespace vrncal
