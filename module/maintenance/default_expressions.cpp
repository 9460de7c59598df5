#include "maintenance/default_expressions.h"

#include <algorithm>
#include <span>
#include <type_traits>

namespace updkrx {
namespace {

// A list says how long it is, so that a row cannot be lost or doubled unnoticed.

constexpr std::string_view virusHoaxes[28] = {
    ".(. fictional company .NEAR. Internet Western Associates. .). .AND. anti-virus",
    "A Virtual Card for You",
    "AOL4FREE .AND. virus",
    "An Internet flower for you .AND.  virus",
    "BUD FROGS .AND. SCREEN SAVER",
    "BUD FROGS .AND. SCREEN-SAVER",
    "BUD FROGS .AND. SCREENSAVER",
    "BUGGLST.ZIP .AND. virus",
    "CELLSAVER.EXE .AND. SCREENSAVER",
    "Death Ray .AND. virus",
    "Deeyenda .AND. virus",
    "FROGAPULT.EXE .AND. virus",
    "HOW TO GIVE A CAT A COLONIC .AND. virus",
    "Irina .AND. virus",
    "It Takes Guts to Say Jesus .AND. Virus",
    "JOIN THE CREW .AND.  virus",
    "Klingerman .AND. virus",
    "Lump of Coal...do .AND. virus...it",
    "NEW PICTURES OF FAMILY .AND. virus",
    "NaughtyRobot",
    "Orvane .AND. a.tolley@orvane.example.com",
    "PHANTOM MENACE .AND. VIRUSES",
    "SandMan",
    "VIRUS .NEAR. MOBILE PHONES",
    "WIN A HOLIDAY .AND. virus",
    "Wobbler .AND. virus",
    "erase .NEAR. IMIE and IMSI .AND. virus",
    "virus .AND.  erase .NEAR. hard drive.",
};

constexpr std::string_view chainLetters[14] = {
    ".WILD. forward this * to as many * as you can",
    "distribute this .NEAR. to as many as",
    "email this to everyone you know",
    "forward this .NEAR. to all your friends",
    "forward this .NEAR. to all your online friends",
    "forward this .NEAR. to anyone",
    "forward this .NEAR. to everyone",
    "pass on this .NEAR. to all your friends",
    "pass this on to everyone",
    "send it to as many .NEAR. as",
    "send this .NEAR. to every person",
    "send this to everyone",
    "this is not a chain letter",
    "this is not a joke",
};

constexpr std::string_view profanities[25] = {
    "arse",
    "bloody",
    "bollocks",
    "bonk",
    "erotic",
    "frigging",
    "horny",
    "kinky",
    "naked",
    "nude",
    "piss",
    "randy",
    "sexy",
    "smut",
    "sod",
    "turd",
    "boob .OR. boobs",
    "bugger .OR. buggered",
    "butt .OR. butts",
    "crap .OR. crappy",
    "dammit .OR. damn .OR. damnit",
    "fart .OR. farts",
    "goddam .OR. goddamn",
    "screw .OR. screwed",
    "suck .OR. sucks",
};

constexpr std::string_view sexualInsults[6] = {
    "floozy", "harlot", "hussy", "lecher", "strumpet", "trollop",
};

constexpr std::string_view ethnicSlurs[6] = {
    "canuck", "frenchy", "limey", "pommy", "taffy", "yank",
};

constexpr std::string_view scriptedHtml[1] = {
    "<html> .AND. <script .AND. </script .AND. text/html",
};

struct ExpressionKind {
    std::string_view unid;
    std::span<const std::string_view> expressions;
};

constexpr ExpressionKind kinds[] = {
    {"CCCD9A452EEE6AF248256E1600236933", virusHoaxes}, {"9CA8289B72BE6CE848256E1600236921", chainLetters},
    {"9679C1FA3EC9B30648256E16002368DE", profanities}, {"29FBCBA3EE0E297F48256E16002368FF", sexualInsults},
    {"2B41699AA621F29448256E16002368F8", ethnicSlurs}, {"48D8D19C551210C848256E1600236930", scriptedHtml},
};

consteval auto SortedTable() {
    std::remove_const_t<decltype(DefaultExpressionTable)> table;
    auto row = table.begin();
    for (const ExpressionKind& kind : kinds) {
        for (const std::string_view expression : kind.expressions) {
            *row++ = {expression, kind.unid};
        }
    }
    std::ranges::sort(table, {}, &DefaultExpression::expression);
    return table;
}

} // namespace

constexpr std::array<DefaultExpression, 80> DefaultExpressionTable = SortedTable();

static_assert(!DefaultExpressionTable.front().expression.empty(), "a list is shorter than it says");
static_assert(std::ranges::adjacent_find(DefaultExpressionTable, {}, &DefaultExpression::expression) ==
                  DefaultExpressionTable.end(),
              "an expression is there twice");

} // namespace updkrx
