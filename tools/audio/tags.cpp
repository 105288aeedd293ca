#include "audio/tags.h"

#include <strings.h>

#include <algorithm>

namespace tavrin::tool {

namespace {

auto find(auto& tags, const std::string& name) {
    return std::find_if(tags.begin(), tags.end(),
                        [&](const auto& tag) { return strcasecmp(tag.first.c_str(), name.c_str()) == 0; });
}

}  // namespace

std::string tagText(const Tags& tags, const std::string& name) {
    const auto tag = find(tags, name);
    return tag == tags.end() ? "" : tag->second;
}

void setTag(Tags& tags, const std::string& name, const std::string& text) {
    const auto tag = find(tags, name);
    if (tag == tags.end()) {
        tags.emplace_back(name, text);
    } else {
        tag->second = text;
    }
}

}  // namespace tavrin::tool
