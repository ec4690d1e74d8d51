#include "support/systemPaths.h"

namespace obrin {

SystemPaths& systemPaths() {
    static SystemPaths paths;
    return paths;
}

} // namespace obrin
