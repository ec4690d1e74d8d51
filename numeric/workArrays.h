#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <type_traits>

namespace obrin {

/// Memory for `elements` elements of `elementSize` bytes, zeroed, at least one element; the caller frees it
/// with free(3). A count below 1 is reported on standard error ("trying to allocate %s with size %d \n") and
/// served all the same. When there is no memory, standard error receives "Error allocating array %s\n" and
/// "Sizeof %d, n_elements %d\n" (the element size and the count as asked for) and the process ends with exit
/// status 1. Any thread.
void* allocateWork(const char* name, std::size_t elementSize, int elements);

/// The first half of the above: reports a count below 1, and nothing else.
void reportWorkCount(const char* name, int elements);

/// The same, not zeroed, for memory that is the calling thread's: what it does not give back is freed when it
/// ends. Not by a destructor of something thread_local: where memory is short, registering one ends the
/// process.
void* allocateThreadWork(const char* name, std::size_t elementSize, int elements);

/// The same without a word and without an end: null when there is no memory.
void* tryThreadWork(std::size_t elementSize, int elements) noexcept;

/// The end of the process when there is no memory, as allocateWork() tells it.
[[noreturn]] void endWithoutMemory(const char* name, std::size_t elementSize, int elements);

/// Gives back what allocateThreadWork() gave to this very thread; null is nothing.
void freeThreadWork(void* memory) noexcept;

/// A scratch array of the toolkit that lives between calls and only grows, so that a second call of the same
/// or a smaller size takes no memory. One thread, whose end frees it (a member of what threadOwn() gives,
/// where it serves a function); contents do not survive a get(), which may move the array.
template <class T>
class WorkArray {
    static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>);
    static_assert(alignof(T) <= alignof(std::max_align_t));

public:
    /// `name` is what the allocation messages call it; a literal.
    explicit constexpr WorkArray(const char* name) : name_(name) {}

    /// Room for `elements` elements, contents undefined. Reports and ends as allocateWork() does; the report
    /// of a count below 1 comes whether it has to grow or not. Valid until the next get() or the thread's
    /// end.
    T* get(int elements) {
        if (elements > capacity_ || capacity_ == 0) {
            grow(elements);
        } else if (elements < 1) {
            reportWorkCount(name_, elements);
        }
        return memory_;
    }

    /// Sees to it that a get() of up to so many elements takes no memory. False when that cannot be had: the
    /// array is then as it was.
    [[nodiscard]] bool reserve(std::int64_t elements) noexcept {
        const std::int64_t wanted = std::max<std::int64_t>(elements, 1);
        if (wanted <= capacity_) {
            return true;
        }
        if (wanted > std::numeric_limits<int>::max()) {
            return false;
        }
        void* const memory = tryThreadWork(sizeof(T), static_cast<int>(wanted));
        if (memory == nullptr) {
            return false;
        }
        freeThreadWork(memory_);
        memory_ = static_cast<T*>(memory);
        capacity_ = static_cast<int>(wanted);
        return true;
    }

private:
    void grow(int elements) {
        freeThreadWork(memory_); // first, so that old and new are never held together
        memory_ = nullptr;
        capacity_ = 0;
        memory_ = static_cast<T*>(allocateThreadWork(name_, sizeof(T), elements));
        capacity_ = elements < 1 ? 1 : elements;
    }

    const char* name_;
    T* memory_ = nullptr;
    int capacity_ = 0;
};

/// The calling thread's own T, as T{} makes it at the first call, until the thread ends. Null when there is
/// no memory for it. Of each thread's memory that the loader hands out, only a pointer is taken, and that
/// with the thread: where more is first asked for, and refused, the loader ends the process.
template <class T>
T* tryThreadOwn() noexcept {
    static_assert(std::is_trivially_destructible_v<T> && alignof(T) <= alignof(std::max_align_t));
    [[gnu::tls_model("initial-exec")]] static thread_local constinit T* own = nullptr;
    if (own == nullptr) {
        if (void* const memory = tryThreadWork(sizeof(T), 1)) {
            own = new (memory) T{};
        }
    }
    return own;
}

/// The same; the process ends as that of allocateWork() does when there is no memory.
template <class T>
T& threadOwn() {
    T* const own = tryThreadOwn<T>();
    if (own == nullptr) {
        endWithoutMemory("work", sizeof(T), 1);
    }
    return *own;
}

} // namespace obrin
