/// @file
/// The models of a run, and what tells models and songs apart.
#pragma once

#include <cstddef>
#include <new>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "audio/ffmpeg.h"
#include "separate/options.h"
#include "separate/songs.h"
#include "stems/separation.h"

namespace tavrin::tool {

/// Takes bytes as they come and gives their digest: MurmurHash3, 128 bits. It tells songs and models apart, at the
/// speed of memory; against forgery it says nothing.
class Digest {
public:
    Digest() {
        if (av_hash_alloc(&_context, "murmur3") < 0) throw std::bad_alloc();
        av_hash_init(_context);
    }
    ~Digest() { av_hash_freep(&_context); }
    Digest(const Digest&) = delete;
    Digest& operator=(const Digest&) = delete;

    Digest& add(const void* bytes, std::size_t count) {
        av_hash_update(_context, static_cast<const std::uint8_t*>(bytes), count);
        return *this;
    }

    /// In hexadecimal digits. Once, at the end.
    std::string text() {
        char digits[2 * AV_HASH_MAX_SIZE + 1];
        av_hash_final_hex(_context, reinterpret_cast<std::uint8_t*>(digits), sizeof digits);
        return digits;
    }

private:
    AVHashContext* _context = nullptr;
};

/// Its members stay in their order.
using Json = nlohmann::ordered_json;

/// Everything that songs need of the models; any number of threads may use it.
struct LoadedModels {
    std::vector<Stage> stages;
    PartNames names;
    std::string label;     ///< for messages: the models' files
    std::string provider;  ///< that runs them
    Json record;           ///< name and digest of each, in the order of their use
};

/// Says why a wanted provider is not used. @throws Failure with ExitCode::modelUnusable; with ExitCode::wrongUsage for
/// a stem that no model knows.
LoadedModels loadModels(const ModelChoice& choice);

}  // namespace tavrin::tool
