// Kinds of servers: what each does where the platform's reference leaves it open.
#pragma once

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "oracle.h"

namespace sweep {

/** Behaviours in the form of notes.ini, "name=value,name=value"; those that are not named are the defaults. */
using ServerKind = std::string;

/** All combinations of the behaviours that touch documents. */
[[nodiscard]] std::vector<ServerKind> KindsOfDocuments();
/** Every other behaviour by itself, and in pairs with every one of all. */
[[nodiscard]] std::vector<ServerKind> PairsOfKinds();
/** Each value that is not a default, by itself. */
[[nodiscard]] std::vector<ServerKind> SingleKinds();
/** A value for every behaviour. */
[[nodiscard]] ServerKind DrawKind(std::mt19937_64& random);

/** Runs the upgrade undisturbed on a server of each kind, `jobs` at a time, and reports how it ends. */
void WalkKinds(const Reference& reference, const std::vector<ServerKind>& kinds, size_t jobs,
               const std::filesystem::path& work,
               const std::function<void(const ServerKind& kind, const Outcome& outcome)>& report);

} // namespace sweep
