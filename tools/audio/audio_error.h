/// @file
/// What goes wrong while audio is read or written.
#pragma once

#include <stdexcept>
#include <string>

namespace tavrin::tool {

/// Ends the work on one file. Its text is the whole message: it names the file, the reason and the next step.
class AudioError : public std::runtime_error {
public:
    enum class Kind {
        unreadable,      ///< no audio, an unknown kind of it, or more than two channels
        startBeyondEnd,  ///< the song ends before the wanted part begins
        unwritable,      ///< the disk is full, or the format cannot hold what it is given
        readerGone,      ///< whoever read the pipe has closed it: no fault, and nothing to say
        interrupted      ///< AudioPlace::interrupted said so
    };

    AudioError(Kind kind, const std::string& message) : std::runtime_error(message), _kind(kind) {}
    Kind kind() const noexcept { return _kind; }

private:
    Kind _kind;
};

}  // namespace tavrin::tool
