#include "support/systemPaths.h"

#include "support/immortal.h"

namespace obrin {

SystemPaths& systemPaths() {
    static Immortal<SystemPaths> paths;
    return *paths;
}

} // namespace obrin
