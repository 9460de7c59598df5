// Default rules: each of five forms has one default document, which the product ships; copies of it are no default.
#pragma once

#include <string_view>

#include "notes_api.h"

namespace updkrx {

/** A document that is a default, known in every database by its form and the second half of its UNID. */
struct DefaultDocument {
    std::string_view form;
    TIMEDATE note;
};

inline constexpr DefaultDocument keptDefaultDocuments[] = {
    {"Policy", {{0x0066396D, 0xC1256E39}}},        {"MailConfiguration", {{0x0024ABCC, 0x48257582}}},
    {"LocalSettings", {{0x002368DD, 0x48256E16}}}, {"OrvixAgentSettings", {{0x002F965C, 0x4825751A}}},
    {"QUORsetting", {{0x00200EA2, 0x48257A23}}},
};

/** Removes the item DefaultRule from the documents of the open configuration database that have it at "1", except from
 *  the kept ones. Returns the search's status, or that of compiling its formula, which is logged. A document that
 *  cannot be opened is passed over. */
STATUS ClearDefaultRule(DBHANDLE database) noexcept;

} // namespace updkrx
