#include "api/plain_bytes.h"

#include <string>

namespace tavrin {

PlainBytes::PlainBytes(const ModelData& model) : _data(model.data), _size(static_cast<std::size_t>(model.size)) {
    if (!model.data || !model.key || model.key->empty()) return;
    const std::string& key = *model.key;
    _copy.resize(_size);
    for (std::size_t i = 0; i < _size; ++i)
        _copy[i] = static_cast<std::uint8_t>(model.data[i] ^ static_cast<std::uint8_t>(key[i % key.size()]));
    _data = _copy.empty() ? nullptr : _copy.data();
}

}  // namespace tavrin
