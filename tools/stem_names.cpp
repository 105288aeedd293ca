#include "stem_names.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <sstream>

#include "failure.h"

namespace tavrin::tool {

namespace {

using Names = std::vector<std::string>;

// What each stem answers to, its own name first. Names of several stems stand for all of them.
const std::array<Names, kStemCount> names = {{
    {"vocals", "vocal", "voice", "voices", "all"},
    {"drums", "drum", "all"},
    {"bass", "all"},
    {"piano", "keys", "keyboard", "keyboards", "all"},
    {"acoustic_guitar", "acoustic", "guitar", "guitars", "all"},
    {"electric_guitar", "electric", "guitar", "guitars", "all"},
}};

// What remains of a name however it is spelt: "Acoustic Guitar", "acoustic-guitar", "acousticGuitar".
std::string bare(const std::string& name) {
    std::string letters;
    for (const char c : name) {
        if (c != ' ' && c != '-' && c != '_') letters += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return letters;
}

bool answersTo(const Names& stem, const std::string& name) {
    return std::any_of(stem.begin(), stem.end(), [&](const std::string& own) { return bare(own) == bare(name); });
}

}  // namespace

const std::string& nameOf(Stem stem) { return names[static_cast<std::size_t>(stem)].front(); }

std::string stemList() {
    std::string list;
    for (const Names& stem : names) list += (list.empty() ? "" : "\n") + stem.front();
    return list;
}

std::vector<Stem> stemsNamed(const std::string& list) {
    std::array<bool, kStemCount> wanted{};
    // The comma at the end keeps an empty last name, or an empty list, from passing unseen.
    std::istringstream rest(list + ",");
    for (std::string name; std::getline(rest, name, ',');) {
        bool known = false;
        for (std::size_t stem = 0; stem < kStemCount; ++stem) {
            if (!answersTo(names[stem], name)) continue;
            wanted[stem] = known = true;
        }
        if (!known) {
            throw Failure(ExitCode::wrongUsage,
                          "--stems: \"" + name + "\" is no stem; tavrin-separate --list-stems shows their names");
        }
    }
    std::vector<Stem> stems;
    for (std::size_t stem = 0; stem < kStemCount; ++stem) {
        if (wanted[stem]) stems.push_back(static_cast<Stem>(stem));
    }
    return stems;
}

}  // namespace tavrin::tool
