#include "migrations/text_replacements.h"

namespace updkrx {

TextReplacements::TextReplacements(const Pairs& pairs) {
    for (auto pair = pairs.begin(); pair != pairs.end(); ++pair) {
        const std::string_view key = pair->first;
        auto keys = std::ranges::find(lengths_, key.size(), &EqualLengthKeys::length);
        if (keys == lengths_.end()) {
            keys = lengths_.insert(lengths_.end(), {key.size(), {}, {}});
        }
        for (const char character : key) {
            keys->bytes.set(static_cast<unsigned char>(character));
        }
        keys->ranks.emplace(key, pairs_.size());
        pairs_.push_back(pair);
    }
}

bool TextReplacements::OccurIn(std::string_view text) const {
    return std::ranges::any_of(lengths_, [&](const EqualLengthKeys& keys) {
        return FindKeys(keys, text, 0, text.size() + 1, [](Rank) { return true; });
    });
}

} // namespace updkrx
