// What a server carries, taken apart into facets that can be compared one by one.
#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>

namespace sweep {

/**
 * Facets and their values; times, note IDs and sequence numbers are left out.
 *
 *   copy..., copies                krxpatch's safety copies: every file, and how many there are
 *   file/PATH                      every file, but for logs, notes.ini and what krxpatch notes about a run
 *   DATABASE/error                 why it cannot be read
 *   DATABASE/content               its design and documents, without what follows; of krconf.nsf the design only
 *   DATABASE/$Signature, /BuildNumber, /replication, /title, /replicaid, /replicaflags, /acl, /attributes
 *   krconf.nsf/FORM/UNID/content   a document without the items that follow; in the DLP forms the lists of references
 *                                  are in it, as sets and with the vanished UNIDs taken out or replaced
 *   krconf.nsf/FORM/UNID/ITEM      an item that a migration changes by itself, or a list of references as it is
 *   krconf.nsf/dangling/UNID       there for each UNID that a DLP document refers to and that no document has
 */
using State = std::map<std::string, std::string>;

/** Vanished UNIDs, and those that took their places. */
using Replacements = std::map<std::string, std::string>;

[[nodiscard]] State ReadState(const std::filesystem::path& server, const Replacements& replacements);

/** The value of a facet, "" when it is not there. */
[[nodiscard]] std::string ValueOf(const State& state, const std::string& facet);
/** The facets in which two states differ. */
[[nodiscard]] std::set<std::string> Differences(const State& a, const State& b);

/** Has every database recovered that a process was writing to when it died, as happens when it is opened next. */
void RecoverDatabases(const std::filesystem::path& server);

/** A digest of all that a run can find on a server: equal digests, equal bytes. */
[[nodiscard]] std::string DigestOf(const std::filesystem::path& server);

[[nodiscard]] std::string ReadFile(const std::filesystem::path& file);

} // namespace sweep
