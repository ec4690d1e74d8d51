#include "support/systemPaths.h"

#include "support/immortal.h"

namespace obrin {

SystemPaths& systemPaths() {
    static Immortal<SystemPaths> paths;
    return *paths;
}

namespace {

/// Made when the library is loaded: the first message of the log may find no memory, and needs none.
[[maybe_unused]] const SystemPaths& madeAtLoading = systemPaths();

} // namespace

} // namespace obrin
