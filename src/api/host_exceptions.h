/// @file
/// Exceptions that hosts know.
#pragma once

#include <exception>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

/// Runs `action` and turns the runtime's own exception type, which hosts of include/tavrin do not see, into a
/// std::runtime_error with its message.
template <class Action>
auto withHostExceptions(Action&& action) {
    try {
        return std::forward<Action>(action)();
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::logic_error&) {
        throw;
    } catch (const std::runtime_error&) {
        throw;
    } catch (const std::exception& failure) {
        throw std::runtime_error(failure.what());
    }
}
