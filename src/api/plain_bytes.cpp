#include "api/plain_bytes.h"

#include <stdexcept>
#include <string>
#include <vector>

std::shared_ptr<IInference> withPlainBytes(
    const tavrin::ModelData& model,
    const std::function<std::shared_ptr<IInference>(const void* data, size_t size)>& create) {
    if (!model.data) {
        if (model.size > 0) throw std::invalid_argument("model data is null");
        return create(nullptr, 0);
    }
    if (!model.key || model.key->empty()) return create(model.data, model.size);
    const std::string& key = *model.key;
    std::vector<std::uint8_t> plain(model.size);
    for (size_t i = 0; i < plain.size(); ++i)
        plain[i] = static_cast<std::uint8_t>(model.data[i] ^ static_cast<std::uint8_t>(key[i % key.size()]));
    return create(plain.empty() ? nullptr : plain.data(), plain.size());
}
