// Handles: 32-bit numbers that stand for an object of one kind. A number that was closed is never taken for the
// object that later gets its slot, so that a second close is seen.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "engine/values/status_error.h"

namespace embedded {

template<typename T>
class HandleTable {
public:
    /** `kind` is 1 to 15 and differs between tables, so that a handle of one is unknown to the others. */
    explicit HandleTable(DHANDLE kind) : kind_(kind << kindShift) {}

    /** Throws ERR_MEMORY when no slot is left. */
    DHANDLE Add(std::shared_ptr<T> object) {
        if (free_.empty()) {
            if (slots_.size() > slotMask) {
                throw StatusError(ERR_MEMORY, "too many open handles");
            }
            slots_.push_back({nullptr, 0});
            free_.push_back(static_cast<DHANDLE>(slots_.size() - 1));
        }
        const DHANDLE slot = free_.back();
        free_.pop_back();
        slots_[slot].object = std::move(object);
        return HandleAt(slot);
    }

    /** NULL for a handle that is not open; what it points to lives until the handle is closed. */
    [[nodiscard]] T* Find(DHANDLE handle) const noexcept {
        const Slot* slot = SlotOf(handle);
        return slot ? slot->object.get() : nullptr;
    }

    /** The first open handle whose object fits, NULLHANDLE when none does. */
    template<typename Predicate>
    [[nodiscard]] DHANDLE FindHandle(Predicate&& fits) const {
        for (size_t slot = 0; slot < slots_.size(); ++slot) {
            if (slots_[slot].object && fits(*slots_[slot].object)) {
                return HandleAt(static_cast<DHANDLE>(slot));
            }
        }
        return NULLHANDLE;
    }

    /** Closes the handle and gives its object, NULL for a handle that is not open. */
    std::shared_ptr<T> Take(DHANDLE handle) {
        Slot* slot = const_cast<Slot*>(SlotOf(handle));
        if (!slot) {
            return nullptr;
        }
        slot->generation = (slot->generation + 1) & generationMask;
        free_.push_back(handle & slotMask);
        return std::exchange(slot->object, nullptr);
    }

    [[nodiscard]] size_t size() const noexcept { return slots_.size() - free_.size(); }

    template<typename Visitor>
    void ForEach(Visitor&& visitor) const {
        for (const Slot& slot : slots_) {
            if (slot.object) {
                visitor(*slot.object);
            }
        }
    }

private:
    static constexpr unsigned kindShift = 28;
    static constexpr unsigned generationShift = 18;
    static constexpr DHANDLE generationMask = 0x3FF;
    static constexpr DHANDLE slotMask = 0x3FFFF;

    struct Slot {
        std::shared_ptr<T> object;
        DHANDLE generation;
    };

    [[nodiscard]] DHANDLE HandleAt(DHANDLE slot) const noexcept {
        return kind_ | slots_[slot].generation << generationShift | slot;
    }

    const Slot* SlotOf(DHANDLE handle) const noexcept {
        const size_t slot = handle & slotMask;
        if ((handle & ~(generationMask << generationShift | slotMask)) != kind_ || slot >= slots_.size() ||
            slots_[slot].generation != (handle >> generationShift & generationMask) || !slots_[slot].object) {
            return nullptr;
        }
        return &slots_[slot];
    }

    DHANDLE kind_;
    std::vector<Slot> slots_;
    std::vector<DHANDLE> free_;
};

} // namespace embedded
