/// @file
/// What every function of the C interface goes through: exceptions end here, as a status and a message.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>

#include "tavrin/tavrin_c.h"

/// A call that cannot be served, with the status that says so.
class Refusal : public std::runtime_error {
public:
    Refusal(tavrin_status status, const std::string& message) : std::runtime_error(message), _status(status) {}
    tavrin_status status() const { return _status; }

private:
    tavrin_status _status;
};

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

/// What `pointer` points at. @throws Refusal when it is null.
template <class T>
T& required(T* pointer, const char* name) {
    if (!pointer) throw Refusal(TAVRIN_INVALID_ARGUMENT, std::string(name) + " is NULL");
    return *pointer;
}

/// Refuses a configuration that is shorter than ours, or longer with something set in what we do not know.
void requireKnownFields(const void* config, size_t callersSize, size_t ourSize);
