// Whether somebody asked this process to end, by Ctrl-C or by a signal, while it does what must not be left half done.
#pragma once

namespace krxpatch {

/** While it lives such a request is noted and does nothing else; what was there before comes back behind it. */
class InterruptWatch {
public:
    InterruptWatch();
    ~InterruptWatch();
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

    [[nodiscard]] static bool IsAsked() noexcept;

private:
    using Handler = void (*)(int);
    Handler interrupt_;
    Handler terminate_;
};

} // namespace krxpatch
