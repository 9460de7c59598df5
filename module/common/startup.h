// What the module sets up when it is loaded and tears down, in reverse order, when it is unloaded. Nobody calls it: the
// loader runs it, before any other code of the module and after all of it has finished.
#pragma once

#include <map>
#include <set>
#include <string>

namespace updkrx {

/** Always true: the answer is taken once, at load, and kept. The system is not asked. */
bool GetOSIf64Bit() noexcept;

// Collections of the whole process, empty after load. They order texts ascending by unsigned byte value, a text that
// another one begins with first.

/** From a UNID that has vanished to the one that took its place. */
extern std::map<std::string, std::string> gMap;
/** The UNIDs that have vanished. */
extern std::set<std::string> ObsoleteUNIDSet;
/** As gMap, of UNIDs of which it could not be found out whether they have vanished. */
extern std::map<std::string, std::string> DoubtfulUNIDMap;
/** The UNIDs of retired dictionary and entity documents. */
extern std::set<std::string> RetiredDocumentUNIDSet;

} // namespace updkrx
