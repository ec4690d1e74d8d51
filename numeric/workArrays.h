#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>
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

/// A scratch array of the toolkit that lives between calls and only grows, so that a second call of the same
/// or a smaller size takes no memory. One owner, one thread (make it thread_local where it serves a
/// function); contents do not survive a get(), which may move the array.
template <class T>
class WorkArray {
    static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>);

public:
    /// `name` is what the allocation messages call it; a literal.
    explicit constexpr WorkArray(const char* name) : name_(name) {}

    /// Room for `elements` elements, contents undefined. Reports and ends as allocateWork() does; the report
    /// of a count below 1 comes whether it has to grow or not. Valid until the next get() or the owner's end.
    T* get(int elements) {
        if (elements > capacity_ || capacity_ == 0) {
            grow(elements);
        } else if (elements < 1) {
            reportWorkCount(name_, elements);
        }
        return memory_.get();
    }

private:
    struct Free {
        void operator()(T* memory) const { std::free(memory); }
    };

    void grow(int elements) {
        memory_.reset(); // first, so that old and new are never held together
        capacity_ = 0;
        memory_.reset(static_cast<T*>(allocateWork(name_, sizeof(T), elements)));
        capacity_ = elements < 1 ? 1 : elements;
    }

    const char* name_;
    std::unique_ptr<T, Free> memory_;
    int capacity_ = 0;
};

} // namespace obrin
