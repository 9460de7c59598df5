// What a server may do where the platform's reference leaves it open: a table of behaviours, each with the values that
// it can have. The first value is the default. docs/formats.md says what each decides, and what is known about it.
#pragma once

#include <bitset>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace embedded {

/** The values that are not defaults, those of one behaviour in the order of its row. */
enum class Deviation : unsigned {
    copyUnidKeptIfFree,
    copyUnidHalf,
    copyUnidNew,
    stubUnidTaken,
    unidChangeRefused,
    unidChangeIgnored,
    deletedPathOffline,
    offlinePathFull,
    appendToTextRefused,
    entriesOfTextNone,
    idleDelayQuit,
    privateDesignRefused,
    searchAll,
    updatedNoteAgain,
    signAgainAppends,
    deleteItemFirst,
    getTextSizeWithTerminator,
    translateResultWithTerminator,
    failedHandlesKept,
    failedHandlesGarbage,
    softDeletionOn,
    searchOrderDescending,
    searchOrderShuffled,
    count,
};

struct Behaviour {
    const char* name;
    std::span<const char* const> values; // the default first
    Deviation first;                     // of the second value
};

[[nodiscard]] std::span<const Behaviour> KnownBehaviours() noexcept;
/** NULL for an unknown name. */
[[nodiscard]] const Behaviour* FindBehaviour(std::string_view name) noexcept;

/** The behaviours of one session. */
class Behaviours {
public:
    [[nodiscard]] bool Has(Deviation deviation) const noexcept { return deviations_[static_cast<size_t>(deviation)]; }

    /** Sets one; nothing as the value is its default. Throws EMB_ERR_ARGUMENT and names what there is not. */
    void Set(std::string_view name, std::optional<std::string_view> value);
    /** Sets several, "name=value,name=value"; blanks around them do not count. Throws as Set() does. */
    void SetAll(std::string_view list);

    [[nodiscard]] const char* InForce(const Behaviour& behaviour) const noexcept;

private:
    std::bitset<static_cast<size_t>(Deviation::count)> deviations_;
};

} // namespace embedded
