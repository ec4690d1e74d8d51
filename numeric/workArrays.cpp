#include "numeric/workArrays.h"

#include <algorithm>
#include <cstdio>

namespace obrin {

void reportWorkCount(const char* name, int elements) {
    if (elements < 1) {
        std::fprintf(stderr, "trying to allocate %s with size %d \n", name, elements);
    }
}

void* allocateWork(const char* name, std::size_t elementSize, int elements) {
    reportWorkCount(name, elements);
    void* const memory = std::calloc(static_cast<std::size_t>(std::max(elements, 1)), elementSize);
    if (memory == nullptr) {
        std::fprintf(stderr, "Error allocating array %s\n", name);
        std::fprintf(stderr, "Sizeof %d, n_elements %d\n", static_cast<int>(elementSize), elements);
        std::exit(1);
    }
    return memory;
}

} // namespace obrin
