/// @file
/// What every function of the C interface goes through: exceptions end here, as a status and a message.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tavrin/tavrin_c.h"

namespace tavrin::c_api {

/// Keeps the exception that is being handled for tavrin_last_error(), and finds its status.
/// @param otherwise the status of an exception that has none of its own.
tavrin_status reportException(tavrin_status otherwise) noexcept;

/// Runs `action`; whatever it throws becomes a status.
template <class Action>
tavrin_status guarded(tavrin_status otherwise, Action&& action) noexcept {
    try {
        std::forward<Action>(action)();
        return TAVRIN_OK;
    } catch (...) {
        return reportException(otherwise);
    }
}

/// What `pointer` points at. @throws std::invalid_argument when it is null.
template <class T>
T& required(T* pointer, const char* name) {
    if (!pointer) throw std::invalid_argument(std::string(name) + " is NULL");
    return *pointer;
}

/// The caller's list of names. @throws std::invalid_argument for a null among them.
std::vector<std::string> names(const char* const* list, size_t count, const char* what);

/// Refuses a structure that is shorter than ours, and one that is longer with something set in what we do not know.
void requireKnownFields(const void* structure, size_t callersSize, size_t ourSize, const char* name);

/// The caller's structure, or that of the defaults. @param structure may be null. @throws std::invalid_argument.
template <class Structure>
Structure orDefaults(const Structure* structure, const char* name) {
    if (!structure) return {};
    requireKnownFields(structure, structure->struct_size, sizeof *structure, name);
    return *structure;
}

}  // namespace tavrin::c_api
