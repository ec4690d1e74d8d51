#pragma once

#include <new>
#include <utility>

namespace obrin {

/// A process-wide object that is never destroyed: Java may end the process while the agent's thread still
/// uses it.
template <class T>
class Immortal {
public:
    template <class... Arguments>
    explicit Immortal(Arguments&&... arguments) {
        ::new (static_cast<void*>(storage_)) T(std::forward<Arguments>(arguments)...);
    }
    Immortal(const Immortal&) = delete;
    Immortal& operator=(const Immortal&) = delete;

    T& operator*() { return *std::launder(reinterpret_cast<T*>(storage_)); }
    T* operator->() { return &**this; }

private:
    alignas(T) unsigned char storage_[sizeof(T)];
};

} // namespace obrin
