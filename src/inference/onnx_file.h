/// @file
/// What a serialized model says before the runtime sees it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace tavrin {

/// The parts of a model file that decide whether it may be given to the runtime at all.
struct OnnxFile {
    /// Tensors of the model whose numbers lie in one other file.
    struct Outside {
        std::size_t tensors = 0;
        std::string first;  ///< name of one of them; may be empty
    };

    bool whole = false;                           ///< could be read to its end; all below is incomplete otherwise
    std::int64_t irVersion = 0;                   ///< of the file format
    std::map<std::string, std::int64_t> opsets;   ///< version by operator domain; "" is the standard one
    std::map<std::string, std::string> metadata;  ///< metadata_props
    std::map<std::string, Outside> outside;       ///< by the other file's name as the model gives it
};

/// Reads the file's structure: graphs within graphs, functions and training graphs, too, as any of them can hold
/// tensors. Opens nothing; takes any bytes; needs memory for what it returns only.
OnnxFile readOnnxFile(const void* data, std::size_t size);

}  // namespace tavrin
