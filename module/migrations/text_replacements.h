// Many replacements in one text, with the outcome of searching for each key in turn but without doing so.
//
// The keys are taken in ascending order. The first occurrence of each, in the text as the keys before it have left it,
// is replaced; so a replacement may bring about an occurrence of a later key, or break one up.
//
// Searching for thousands of keys in every text is what this avoids: one pass finds which keys occur at all. It looks
// only where a key can stand, which is where no byte is one that no key contains, and looks up what stands there. After
// a replacement the bytes around it are searched the same way. All keys of one length take one pass together; UNID
// texts are of one length.
#pragma once

#include <algorithm>
#include <bitset>
#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace updkrx {

class TextReplacements {
public:
    using Pairs = std::map<std::string, std::string>;

    /** `pairs` must stay as it is for as long as this is in use. */
    explicit TextReplacements(const Pairs& pairs);

    /** True when some key occurs in the text. */
    [[nodiscard]] bool OccurIn(std::string_view text) const;

    /** Carries the replacements out; `onReplaced` is called after each one, with the place of its pair in the map. */
    template<class OnReplaced>
    void Apply(std::string& text, OnReplaced onReplaced) const;

private:
    /** The number of a key in ascending order. */
    using Rank = size_t;

    struct EqualLengthKeys {
        size_t length;
        std::bitset<256> bytes; // those that occur in a key
        std::unordered_map<std::string_view, Rank> ranks;
    };

    /** Calls `visit` with the rank of every key that occurs with its start in [first, end), until it returns true.
     *  Returns whether it did. */
    template<class Visit>
    static bool FindKeys(const EqualLengthKeys& keys, std::string_view text, size_t first, size_t end, Visit visit);

    std::vector<Pairs::const_iterator> pairs_; // by rank
    std::vector<EqualLengthKeys> lengths_;
};

template<class Visit>
bool TextReplacements::FindKeys(const EqualLengthKeys& keys, std::string_view text, size_t first, size_t end,
                                Visit visit) {
    size_t checked = first; // the bytes from `start` up to here can stand in a key
    for (size_t start = first; start < end && start + keys.length <= text.size();) {
        checked = std::max(checked, start);
        size_t unchecked = start + keys.length;
        while (unchecked > checked && keys.bytes[static_cast<unsigned char>(text[unchecked - 1])]) {
            --unchecked;
        }
        if (unchecked > checked) {
            start = checked = unchecked; // no key reaches across the byte in front of it
            continue;
        }
        checked = start + keys.length;
        const auto found = keys.ranks.find(text.substr(start, keys.length));
        if (found != keys.ranks.end() && visit(found->second)) {
            return true;
        }
        ++start;
    }
    return false;
}

template<class OnReplaced>
void TextReplacements::Apply(std::string& text, OnReplaced onReplaced) const {
    std::set<Rank> due; // the keys to come that occur, or did before an earlier replacement
    for (const EqualLengthKeys& keys : lengths_) {
        FindKeys(keys, text, 0, text.size() + 1, [&](Rank rank) {
            due.insert(rank);
            return false;
        });
    }
    while (!due.empty()) {
        const Rank rank = *due.begin();
        due.erase(due.begin());
        const auto& [key, value] = *pairs_[rank];
        const size_t position = text.find(key);
        if (position == std::string::npos) {
            continue;
        }
        text.replace(position, key.size(), value);
        onReplaced(pairs_[rank]);
        for (const EqualLengthKeys& keys : lengths_) {
            // What is new reaches into the replaced bytes, or across the gap that they have left.
            const size_t first = position - std::min(position, keys.length - std::min<size_t>(keys.length, 1));
            FindKeys(keys, text, first, position + value.size(), [&](Rank found) {
                if (found > rank) {
                    due.insert(found);
                }
                return false;
            });
        }
    }
}

} // namespace updkrx
