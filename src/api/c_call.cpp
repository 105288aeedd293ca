#include "api/c_call.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <new>

#include "inference/runtime.h"

namespace {

// No later version's configuration will be larger; a size beyond is memory that nobody has set.
constexpr size_t kLargestConfig = 1024;

// Of fixed size, so that keeping a message cannot fail.
thread_local std::array<char, 1024> t_lastError{};

tavrin_status keep(tavrin_status status, const char* message) noexcept {
    std::snprintf(t_lastError.data(), t_lastError.size(), "%s", message);
    return status;
}

}  // namespace

tavrin_status reportException(tavrin_status otherwise) noexcept {
    try {
        throw;
    } catch (const Refusal& refusal) {
        return keep(refusal.status(), refusal.what());
    } catch (const tavrin::RuntimeTooOld& failure) {
        return keep(TAVRIN_RUNTIME_TOO_OLD, failure.what());
    } catch (const std::bad_alloc&) {
        return keep(TAVRIN_OUT_OF_MEMORY, "out of memory");
    } catch (const std::length_error&) {
        return keep(TAVRIN_OUT_OF_MEMORY, "out of memory: no machine has as much as the call needs");
    } catch (const std::exception& failure) {
        return keep(otherwise, failure.what());
    } catch (...) {
        return keep(otherwise, "an exception of an unknown type");
    }
}

void requireKnownFields(const void* config, size_t callersSize, size_t ourSize) {
    if (callersSize < ourSize || callersSize > kLargestConfig)
        throw Refusal(TAVRIN_INVALID_ARGUMENT, "config->struct_size is " + std::to_string(callersSize) +
                                                   "; set it to sizeof *config, which is " + std::to_string(ourSize) +
                                                   " in this version");
    const auto* bytes = static_cast<const unsigned char*>(config);
    if (std::any_of(bytes + ourSize, bytes + callersSize, [](unsigned char byte) { return byte != 0; }))
        throw Refusal(TAVRIN_INVALID_ARGUMENT,
                      "config has a field set that this version of the library does not know; a newer library does");
}

const char* tavrin_last_error(void) { return t_lastError.data(); }
