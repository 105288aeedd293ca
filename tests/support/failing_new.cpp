// Stands in for operator new (the plain form, the only one that our objects ask for), and for their posix_memalign.
// Both fail when they should, and operator new throws also where the sanitizer's would stop the process. malloc stays
// as it is: of our code only PFFFT uses it.
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>

std::atomic<size_t> allocations, failing;  // how many there were; which of them, counted from 1, is to fail

void* operator new(size_t size) {
    void* memory = ++allocations == failing ? nullptr : std::malloc(size);
    return memory ? memory : throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, size_t) noexcept { std::free(memory); }

extern "C" int __real_posix_memalign(void** memory, size_t alignment, size_t size);
extern "C" int __wrap_posix_memalign(void** memory, size_t alignment, size_t size) {
    return ++allocations == failing ? ENOMEM : __real_posix_memalign(memory, alignment, size);
}
