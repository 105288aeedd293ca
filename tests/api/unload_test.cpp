// Unloading the library while models are loaded, one in the registry and one in use, neither hangs nor crashes, also
// not when the process ends.
//     unload_test LIBRARY MODEL
#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

#include "tavrin/tavrin_c.h"
#include "tavrin/tavrin_proc.h"

static bool loadAndUnload(const char* path, const std::vector<char>& model) {
    void* const library = dlopen(path, RTLD_NOW);
    if (!library) return std::puts(dlerror()), false;
    const auto initialize = reinterpret_cast<decltype(&tavrin::initializeModel)>(dlsym(
        library, "_ZN6tavrin15initializeModelERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEERKNS_9ModelDataE"));
    const auto create = reinterpret_cast<decltype(&tavrin_model_create)>(dlsym(library, "tavrin_model_create"));
    static tavrin_model* handle;  // nobody frees it, but it is not lost
    return initialize && create &&
           initialize("tag", {reinterpret_cast<const std::uint8_t*>(model.data()), model.size(), nullptr}) &&
           create(model.data(), model.size(), nullptr, &handle) == TAVRIN_OK && dlclose(library) == 0;
}

int main(int, char** argv) {
    std::ifstream file(argv[2], std::ios::binary);
    const std::vector<char> model(std::istreambuf_iterator<char>(file), {});
    alarm(60);  // seconds
    return loadAndUnload(argv[1], model) ? 0 : 1;
}
