// The design of a database: its forms, views, agents and the like, and the template that it comes from.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "engine/database/database.h"

namespace embedded {

/** Whether a note is part of the design. Access control list, replication formulas and private notes are the
 *  database's own. */
bool IsDesignNote(const NoteHead& head) noexcept;

/** The name under which a template is known, empty when the database is none. UTF-8, as are all names here. */
std::string TemplateName(Database& database);
/** The name of the template that the database's design comes from, empty when it has none. */
std::string InheritedTemplate(Database& database);

struct DesignExchange {
    size_t added = 0;
    size_t changed = 0;
    size_t deleted = 0;
    size_t unchanged = 0;
};

/**
 * Gives the database the design of the template, and has it inherit from that template from now on. Documents,
 * access control list, replica ID and title stay. A design note is the same in both when it has the template
 * note's UNID, or else its class and title; it then keeps its own identity. Notes that are as the template has them
 * are not touched. All of it is stored, or, with an exception, nothing.
 */
DesignExchange ExchangeDesign(Database& database, Database& designTemplate);

/** A note of which a database's design is not the template's. */
struct DesignDifference {
    enum class Kind { missing, different, surplus };
    Kind kind;
    WORD noteClass;
    std::string title; // its first line, UTF-8
};

/** What ExchangeDesign() would change. Writes nothing. */
std::vector<DesignDifference> CompareDesign(Database& database, Database& designTemplate);

} // namespace embedded
