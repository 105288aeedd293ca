#include "common/model_key.h"

#include <array>
#include <fstream>
#include <system_error>

#include "common/failure.h"
#include "common/hidden_file.h"
#include "common/input_file.h"

namespace tavrin::tool {

namespace {

namespace fs = std::filesystem;

void requireNewFile(const fs::path& output, const fs::path& input, const fs::path& keyFile) {
    std::error_code none;
    for (const fs::path& source : {input, keyFile}) {
        if (fs::equivalent(output, source, none))
            throw Failure(ExitCode::wrongUsage,
                          output.string() + ": would replace " + source.string() + "; name another file with -o");
    }
    if (fs::exists(output, none) && !fs::is_regular_file(output, none))
        throw Failure(ExitCode::wrongUsage, output.string() + ": is no regular file; name another one with -o");
}

}  // namespace

std::string readKey(const fs::path& file) {
    std::string key = readBytes(file);
    if (key.ends_with('\n')) key.pop_back();
    if (key.ends_with('\r')) key.pop_back();
    if (key.empty()) throw Failure(ExitCode::inputUnreadable, file.string() + ": is empty; write the key into it");
    return key;
}

void applyKey(const std::string& key, char* bytes, std::size_t count, std::uint64_t position) {
    for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<char>(bytes[i] ^ key[(position + i) % key.size()]);
}

void scrambleFile(const fs::path& input, const fs::path& output, const fs::path& keyFile) {
    const std::string key = readKey(keyFile);
    std::ifstream source = openInput(input);
    requireNewFile(output, input, keyFile);
    HiddenFile target(output);
    std::array<char, 1 << 16> buffer;
    for (std::uint64_t position = 0; source.good();) {
        source.read(buffer.data(), buffer.size());
        const std::streamsize count = source.gcount();
        applyKey(key, buffer.data(), static_cast<std::size_t>(count), position);
        target.write(buffer.data(), static_cast<std::size_t>(count));
        position += static_cast<std::uint64_t>(count);
    }
    if (source.bad()) throw Failure(ExitCode::inputUnreadable, input.string() + ": reading failed; check the disk");
    target.publish();
}

}  // namespace tavrin::tool
