/// @file
/// The model registry and the block engine of libtavrin_proc.
///
/// Most hosts want separator.h: it takes blocks of any size, any number of stems and any geometry. This header is the
/// engine with a fixed geometry beneath a registry of models: load a model once with initializeModel(), then give every
/// audio stream a tavrin::TavrinProc of its own, which has rules on block sizes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tavrin/export.h"

namespace tavrin {

/// A serialized ONNX model in the host's memory. All three are read during the call only; nothing is retained.
struct ModelData {
    const std::uint8_t* data = nullptr;  ///< the model's bytes, or the bytes scrambled with `key`
    std::uint64_t size = 0;              ///< number of bytes at `data`
    const std::string* key = nullptr;    ///< descrambling key (cyclic XOR); null or empty: the bytes are plain
};

/// Loads a model and registers it under `tag`; a model that was registered under this tag is replaced (streams that
/// use the old one keep it). The model has one input and one output, both float [1, 4, 256, 2048]: batch, then real and
/// imaginary plane of the left and of the right channel, frames, bins.
///
/// The first call of the process also installs a console logger (plog, standard output, severity info), unless the
/// host has a default plog logger of its own by then.
///
/// @return true on success; false on any failure, with the registry as it was. The log says why a model could not be
/// loaded. Threads: the registry has no lock. Serialise the functions of this registry and the construction of streams.
TAVRIN_EXPORT bool initializeModel(const std::string& tag, const ModelData& model);

/// Removes the model of `tag`; streams that use it keep it until they are destroyed.
/// @return true, also when no such tag was registered; false only when the removal itself failed.
TAVRIN_EXPORT bool deinitializeModel(const std::string& tag);

/// Removes every model. @return true.
TAVRIN_EXPORT bool deinitializeAllModels();

/// @return true when a model is registered under `tag`.
TAVRIN_EXPORT bool isModelInitialized(const std::string& tag);

/// What one stream is to do.
struct TavrinProcConfig {
    std::string modelTag;            ///< tag of a model loaded with initializeModel()
    bool subtractFromInput = false;  ///< true: return input minus the separated signal (the rest of the mix)
    bool interleaved = true;         ///< true: left, right, left, right, …; false: all left samples, then all right
    std::uint64_t reserved = 0;      ///< not used
    std::int32_t channels = 2;       ///< must be 2
};

class TavrinProcImpl;

/// The block engine: separates one stereo stream whose host keeps to its rules on block sizes. Use Separator unless you
/// need this control.
///
/// Rules: every call without `eof` carries exactly maxInputSize() samples per channel, asked anew before each call;
/// one last call, with `eof`, carries the remaining 0 … maxInputSize() samples. With other block sizes samples may be
/// skipped at block borders (the stream then leaves the grid of 1024-sample hops) or a block may be refused with an
/// exception. At the end of the stream there are two limits on what is held with the last call's samples: where its
/// padding needs more than the model's 256 frames the call throws std::invalid_argument and nothing has changed; with
/// more than a whole model call, 265216 samples per channel on a fresh object and 263168 later, the process aborts.
///
/// The separated signal lags behind: the first calls return an empty vector, the last one what remains. Sample k of
/// the whole output belongs to sample k of the whole input. One object serves one stream; nothing resets it.
///
/// Threads: one thread at a time per object; objects on different threads may share a model. A call that completes a
/// block runs the model.
///
///     tavrin::TavrinProc proc({.modelTag = "vocals"});
///     while (remaining > proc.maxInputSize()) write(proc.process(next(proc.maxInputSize()), false));
///     write(proc.process(next(remaining), true));
class TAVRIN_EXPORT TavrinProc {
public:
    /// @throws std::runtime_error when no model is registered under the tag, or when `channels` is not 2.
    TavrinProc(TavrinProcConfig config);
    ~TavrinProc();
    TavrinProc(const TavrinProc&) = delete;
    TavrinProc& operator=(const TavrinProc&) = delete;

    /// Takes one block and returns the samples that have become final, possibly none, in the layout of the input.
    ///
    /// @param samples stereo float samples in the configured layout; 2 · n floats for n samples per channel.
    /// @param eof true for the last call of the stream.
    /// @throws std::invalid_argument for a planar vector of odd length, and for a last block that is too long for one
    ///         model call (nothing has changed then); std::runtime_error when the queue cannot take the block (nothing
    ///         has changed then); whatever the runtime throws while a model call is prepared. A model call that fails
    ///         while it runs is logged and leaves silence.
    std::vector<float> process(const std::vector<float>& samples, bool eof);

    /// The largest number of samples per channel that the next call should carry: 257024 on a fresh object, 254976
    /// after the first model call.
    std::size_t maxInputSize() const;

private:
    std::unique_ptr<TavrinProcImpl> _impl;
};

}  // namespace tavrin
