#include "numeric/workArrays.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <pthread.h>

namespace obrin {
namespace {

/// What stands before the memory of a thread: it is in a list of all such memory of its thread.
struct alignas(std::max_align_t) Block {
    Block* next;
    Block** link; ///< what points here
};

[[gnu::tls_model("initial-exec")]] thread_local Block* blocksOfThread = nullptr;

void freeBlocks(void* /*thread*/) {
    while (Block* const block = blocksOfThread) {
        blocksOfThread = block->next;
        std::free(block);
    }
}

/// Has freeBlocks called when a thread ends that has set it. Without one the memory stays until the process
/// ends.
const std::optional<pthread_key_t> threadEnd = [] {
    pthread_key_t key;
    return ::pthread_key_create(&key, &freeBlocks) == 0 ? std::optional(key) : std::nullopt;
}();

} // namespace

void endWithoutMemory(const char* name, std::size_t elementSize, int elements) {
    std::fprintf(stderr, "Error allocating array %s\n", name);
    std::fprintf(stderr, "Sizeof %d, n_elements %d\n", static_cast<int>(elementSize), elements);
    std::exit(1);
}

void reportWorkCount(const char* name, int elements) {
    if (elements < 1) {
        std::fprintf(stderr, "trying to allocate %s with size %d \n", name, elements);
    }
}

void* allocateWork(const char* name, std::size_t elementSize, int elements) {
    reportWorkCount(name, elements);
    void* const memory = std::calloc(static_cast<std::size_t>(std::max(elements, 1)), elementSize);
    if (memory == nullptr) {
        endWithoutMemory(name, elementSize, elements);
    }
    return memory;
}

void* allocateThreadWork(const char* name, std::size_t elementSize, int elements) {
    reportWorkCount(name, elements);
    void* const memory = tryThreadWork(elementSize, elements);
    if (memory == nullptr) {
        endWithoutMemory(name, elementSize, elements);
    }
    return memory;
}

void* tryThreadWork(std::size_t elementSize, int elements) noexcept {
    std::size_t size = 0;
    const bool isTooLarge =
        __builtin_mul_overflow(static_cast<std::size_t>(std::max(elements, 1)), elementSize, &size) ||
        __builtin_add_overflow(size, sizeof(Block), &size);
    auto* const block = isTooLarge ? nullptr : static_cast<Block*>(std::malloc(size));
    if (block == nullptr) {
        return nullptr;
    }
    if (threadEnd) {
        ::pthread_setspecific(*threadEnd, &blocksOfThread);
    }
    *block = {blocksOfThread, &blocksOfThread};
    if (block->next != nullptr) {
        block->next->link = &block->next;
    }
    blocksOfThread = block;
    return block + 1;
}

void freeThreadWork(void* memory) noexcept {
    if (memory == nullptr) {
        return;
    }
    Block* const block = static_cast<Block*>(memory) - 1;
    *block->link = block->next;
    if (block->next != nullptr) {
        block->next->link = block->link;
    }
    std::free(block);
}

} // namespace obrin
