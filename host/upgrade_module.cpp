#include "upgrade_module.h"

#include <chrono>
#include <future>

namespace krxpatch {

void UpgradeModule::Run(const std::function<void()>& look) const {
    constexpr auto interval = std::chrono::milliseconds(50);
    const std::future<STATUS> call = std::async(std::launch::async, entry_);
    while (call.wait_for(interval) != std::future_status::ready) {
        look();
    }
    look();
}

} // namespace krxpatch
