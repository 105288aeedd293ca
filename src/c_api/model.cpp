#include "c_api/model.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "c_api/call.h"

using tavrin::c_api::guarded;
using tavrin::c_api::required;

namespace {

std::vector<const char*> pointers(const std::vector<std::string>& strings) {
    std::vector<const char*> result;
    result.reserve(strings.size());
    for (const std::string& string : strings) result.push_back(string.c_str());
    return result;
}

}  // namespace

tavrin_model::tavrin_model(const tavrin::Model& loaded)
    : model(loaded), stems(pointers(model.info().stems)), notUsed(pointers(model.info().notUsed)) {}

tavrin_status tavrin_model_create(const void* data, size_t size, const tavrin_model_options* options,
                                  tavrin_model** model) {
    return guarded(TAVRIN_MODEL_REFUSED, [&] {
        required(model, "model") = nullptr;
        const auto* bytes = &required(static_cast<const std::uint8_t*>(data), "data");
        const tavrin_model_options wanted = tavrin::c_api::orDefaults(options, "options");
        std::string key;
        if (wanted.key_size > 0)
            key.assign(&required(static_cast<const char*>(wanted.key), "options->key"), wanted.key_size);
        *model = new tavrin_model(tavrin::Model(
            {bytes, size, &key}, {tavrin::c_api::names(wanted.providers, wanted.provider_count, "options->providers"),
                                  wanted.strict != 0, wanted.threads}));
    });
}

void tavrin_model_destroy(tavrin_model* model) { delete model; }

tavrin_status tavrin_model_get_info(const tavrin_model* model, tavrin_model_info* info) {
    return guarded(TAVRIN_INVALID_ARGUMENT, [&] {
        const size_t size = required(info, "info").struct_size;
        if (size < sizeof *info)
            throw std::invalid_argument("info->struct_size is " + std::to_string(size) + "; set it to sizeof *info");
        std::memset(info, 0, size);
        const tavrin::ModelInfo& from = required(model, "model").model.info();
        *info = {size,
                 model->stems.data(),
                 model->stems.size(),
                 from.sampleRate,
                 from.frameLength,
                 from.hop,
                 from.window.c_str(),
                 from.frames,
                 from.bins,
                 from.context,
                 from.title.c_str(),
                 from.licence.c_str(),
                 from.source.c_str(),
                 from.provider.c_str(),
                 model->notUsed.data(),
                 model->notUsed.size()};
    });
}
