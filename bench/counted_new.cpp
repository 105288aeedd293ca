// Counts what is allocated, by this program and by the library that is linked into it.
#include "counted_new.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> allocations = 0;

void* counted(std::size_t size, std::size_t alignment) {
    ++allocations;
    void* memory = nullptr;
    if (posix_memalign(&memory, alignment, size) != 0) throw std::bad_alloc();
    return memory;
}

}  // namespace

std::size_t allocationCount() { return allocations; }

void* operator new(std::size_t size) { return counted(size, alignof(std::max_align_t)); }
void* operator new(std::size_t size, std::align_val_t alignment) { return counted(size, std::size_t(alignment)); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept { std::free(memory); }
