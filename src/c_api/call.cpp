#include "c_api/call.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

#include "inference/runtime.h"  // for the one kind of failure that include/tavrin has no type for

namespace tavrin::c_api {
namespace {

// No later version's structure will be larger; a size beyond is memory that nobody has set.
constexpr size_t kLargestStructure = 1024;

// Of fixed size, so that keeping a message cannot fail.
thread_local std::array<char, 1024> t_lastError{};

// Cuts a message that is too long before a whole character of UTF-8: the bytes within one begin with the bits 10.
tavrin_status keep(tavrin_status status, const char* message) noexcept {
    size_t length = std::min(std::strlen(message), t_lastError.size() - 1);
    while (length > 0 && (static_cast<unsigned char>(message[length]) & 0xC0U) == 0x80U) --length;
    std::memcpy(t_lastError.data(), message, length);
    t_lastError[length] = '\0';
    return status;
}

}  // namespace

tavrin_status reportException(tavrin_status otherwise) noexcept {
    try {
        throw;
    } catch (const RuntimeTooOld& failure) {
        return keep(TAVRIN_RUNTIME_TOO_OLD, failure.what());
    } catch (const std::bad_alloc&) {
        return keep(TAVRIN_OUT_OF_MEMORY, "out of memory");
    } catch (const std::length_error&) {
        return keep(TAVRIN_OUT_OF_MEMORY, "out of memory: no machine has as much as the call needs");
    } catch (const std::invalid_argument& failure) {
        return keep(TAVRIN_INVALID_ARGUMENT, failure.what());
    } catch (const std::logic_error& failure) {
        return keep(TAVRIN_CLOSED, failure.what());
    } catch (const std::exception& failure) {
        return keep(otherwise, failure.what());
    } catch (...) {
        return keep(otherwise, "an exception of an unknown type");
    }
}

std::vector<std::string> names(const char* const* list, size_t count, const char* what) {
    if (count > 0) required(list, what);
    std::vector<std::string> result;
    for (size_t i = 0; i < count; ++i)
        result.emplace_back(&required(list[i], (std::string(what) + '[' + std::to_string(i) + ']').c_str()));
    return result;
}

void requireKnownFields(const void* structure, size_t callersSize, size_t ourSize, const char* name) {
    if (callersSize < ourSize || callersSize > kLargestStructure)
        throw std::invalid_argument(std::string(name) + "->struct_size is " + std::to_string(callersSize) +
                                    "; set it to sizeof *" + name + ", which is " + std::to_string(ourSize) +
                                    " in this version");
    const auto* bytes = static_cast<const unsigned char*>(structure);
    if (std::any_of(bytes + ourSize, bytes + callersSize, [](unsigned char byte) { return byte != 0; }))
        throw std::invalid_argument(std::string(name) +
                                    " has a field set that this version of the library does not "
                                    "know; a newer library does");
}

}  // namespace tavrin::c_api

const char* tavrin_last_error(void) { return tavrin::c_api::t_lastError.data(); }
