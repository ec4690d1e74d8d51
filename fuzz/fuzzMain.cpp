// The entry points by which libFuzzer finds the one target of a program.

#include "fuzz/target.h"

extern "C" {

int LLVMFuzzerInitialize(int* count, char*** arguments);
int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    obrin::fuzz::prepare();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    obrin::fuzz::targets().front()->check({reinterpret_cast<const char*>(bytes), size});
    return 0;
}
}
