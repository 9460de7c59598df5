// The commands that a server's console takes.
#pragma once

#include <string>
#include <string_view>

namespace embedded {

class Server;

/** What became of a command, UTF-8: for the transcript, and for who sent it (empty: nothing to say). */
struct Outcome {
    std::string transcript;
    std::string reply;
};

/** Carries out a command (UTF-8). A failure is an outcome too. */
Outcome CarryOut(Server& server, std::string_view command);

} // namespace embedded
