#include "foundation/pause.h"

#include <chrono>
#include <thread>

namespace updkrx {

void Pause(DWORD milliseconds) noexcept {
    if (AddInIdleDelay(milliseconds) != 0) { // told to end: then it does not wait
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    }
}

} // namespace updkrx
