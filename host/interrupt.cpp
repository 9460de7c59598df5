#include "interrupt.h"

#include <csignal>

namespace krxpatch {
namespace {

volatile std::sig_atomic_t asked = 0;

extern "C" void NoteInterrupt(int) {
    asked = 1;
}

} // namespace

InterruptWatch::InterruptWatch()
    : interrupt_(std::signal(SIGINT, NoteInterrupt)), terminate_(std::signal(SIGTERM, NoteInterrupt)) {
    asked = 0;
}

InterruptWatch::~InterruptWatch() {
    (void)std::signal(SIGINT, interrupt_);
    (void)std::signal(SIGTERM, terminate_);
}

bool InterruptWatch::IsAsked() noexcept {
    return asked != 0;
}

} // namespace krxpatch
