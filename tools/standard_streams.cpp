#include "standard_streams.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <string>

#include "failure.h"
#include "interrupt.h"

namespace tavrin::tool {

namespace {

// A signal may reach another thread than the one that waits, so every wait is short.
void waitFor(int descriptor, short event) {
    constexpr int milliseconds = 100;
    pollfd wait{descriptor, event, 0};
    while (poll(&wait, 1, milliseconds) == 0) throwIfInterrupted();
}

bool isTemporary(int error) { return error == EINTR || error == EAGAIN; }

}  // namespace

std::size_t readStandardInput(char* bytes, std::size_t size) {
    for (;;) {
        waitFor(STDIN_FILENO, POLLIN);
        const ssize_t count = read(STDIN_FILENO, bytes, size);
        if (count >= 0) return static_cast<std::size_t>(count);
        if (!isTemporary(errno)) {
            throw Failure(ExitCode::inputUnreadable, std::string("standard input: cannot be read (") +
                                                         std::strerror(errno) + "); pipe a song into this command");
        }
    }
}

void writeStandardOutput(const char* bytes, std::size_t size) {
    while (size > 0) {
        waitFor(STDOUT_FILENO, POLLOUT);
        // So much fits into a pipe that is ready: the call cannot block.
        const ssize_t count = write(STDOUT_FILENO, bytes, std::min<std::size_t>(size, PIPE_BUF));
        if (count < 0 && isTemporary(errno)) continue;
        if (count < 0 && errno == EPIPE) throw readerGone();
        if (count < 0) throw writeFailure("standard output", std::strerror(errno));
        bytes += count;
        size -= static_cast<std::size_t>(count);
    }
}

}  // namespace tavrin::tool
