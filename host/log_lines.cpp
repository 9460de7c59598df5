#include "log_lines.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <regex>

#include "embedded_notes.h"

namespace krxpatch {
namespace {

using enum LineKind;

constexpr LogLine table[] = {
    // The run begins.
    {"===============Begin update database========", step, "begin", "A run begins."},
    {"Cannot get the latest path!", ending, nullptr,
     "There is no program folder V5.8.0.NNNN below VarnholtInstallPath; nothing was touched."},
    {"Cannot get the build number from path.", ending, nullptr,
     "The name of the newest program folder has no build number; nothing was touched."},
    {"Cannot open the file. (*", ending, nullptr, "krxpatch.ini is missing or cannot be read; nothing was touched."},
    {"Cannot get the value in configuration file. (Config:Databases)", ending, nullptr,
     "krxpatch.ini has no line Databases=, so nothing is replaced, stamped or signed."},
    {"Cannot get the value in configuration file. (*", ending, nullptr,
     "krxpatch.ini lacks the key that the line names; nothing was touched."},
    {"Error, Cannot get the running KRX version", ending, nullptr,
     "The run ended before it touched a database; the line above says why."},
    {"Database signing will be skiped.", news, nullptr, "SkipDbSign= in krxpatch.ini: replaced files are not signed."},
    {"The running KRX build is *", news, nullptr, "The build of the newest program folder."},
    {"The running KRX database build is *", step, "expressions",
     "The build that krmsg.nsf carries; it alone decides whether there is anything to do. Expressions come first."},
    {"The database build is large than build number of the patch, so return.*", ending, nullptr,
     "Nothing to do, because krmsg.nsf carries the build; what an earlier run left undone stays so."},
    {"Error: Get build number failed", failure, nullptr,
     "The build that krmsg.nsf carries could not be read and counts as 0."},

    // Each file of the patch.
    {"Error: The server's data directory is not known*", ending, nullptr, "Nothing was replaced or stamped."},
    {"Error: The path of the database folder is too long*", ending, nullptr, "Nothing was replaced or stamped."},
    {"Error: The name of a database is too long for a path*", failure, nullptr,
     "This entry of Databases= was passed over."},
    {"Enter dlpStr switch.", step, "replace policy", "The DLP policy file is replaced."},
    {"Copy the dlp template to KRX database folder!*", news, nullptr, "The DLP policy file was replaced."},
    {"Copy the dlp template error.*", failure, nullptr, "The DLP policy file was not replaced; the old one is there."},
    {"Database does not exist, do not bring it offline. (*", step, "replace",
     "A file that was not there is installed."},
    {"Bring database offline successfully. (*", step, "replace", "A file was taken offline, to be replaced."},
    {"DB in use, waiting*", wait, nullptr, "Somebody has the database open; the run tries again for a while."},
    {"Bring database offline. (*", ending, nullptr,
     "The database stayed in use, or could not be taken offline, and that ended the run: nothing behind it was done."},
    {"Copy the database to KRX database folder! (*", news, nullptr,
     "The file was replaced; without this line between offline and online the old one is still there."},
    {"Bring database online. (*):(0)", news, nullptr, "The replaced file is online."},
    {"Bring database online. (*", failure, nullptr, "The database is still offline, and nobody can open it."},
    {"Error: * is damaged. Its old content is kept. (*", failure, nullptr,
     "Replacing the file failed half-way; what it held before stands beside it."},
    {"A file may be damaged. Its old content is put back. (*", news, nullptr,
     "A run died while it replaced the DLP policy; this one replaces it again."},
    {"Error: A kept content cannot be removed. (*", failure, nullptr, "A file beside the DLP policy stays behind."},
    {"Error: The database keeps the access control list that it came with. (*", failure, nullptr,
     "The list that the database had could not be stored in the replaced one."},
    {"Error: The design stays visible. (*", failure, nullptr, "The replaced file's design could not be hidden."},
    {"Read ACL error. (*", failure, nullptr,
     "The encyclopedia's access control list could not be read, so a replaced database keeps the list it came with."},
    {"Write ACL error. (*", failure, nullptr, "The replaced database keeps the access control list it came with."},
    {"Info: Start to hide design of *", detail, nullptr, "The replaced file's design is hidden."},
    {"Run command load convert *", step, "convert", "The server gives a database the design of its new template."},
    {"Run command load design *", step, "refresh design of", "The server refreshes the design of a database."},

    // The documents of the configuration database.
    {"UpgradeDLPDocumentFromNTFtoNSF IN", step, "DLP documents of krconf.nsf",
     "The DLP documents of the template go into the configuration database."},
    {"===========ObsoleteUNIDSet start*", step, "references in krconf.nsf",
     "References to documents that are gone are taken out."},
    {"Error: Not all names of * documents can be read, so none is added.", failure, nullptr,
     "New documents of that form are missing, since one of them might be the double of the unread one."},
    {"Error: An item cannot be read. *", failure, nullptr, "What depends on it was left as it was."},
    {"Error: The name of a document cannot be translated. *", failure, nullptr, "The document was left as it was."},
    {"Error: It cannot be found out which document has a UNID. *", failure, nullptr,
     "The document was left as it was."},
    {"Error: The kept documents cannot be *", failure, nullptr,
     "krx/krconf.updkrx-kept.nsf, where DLP documents are kept while they are replaced, cannot be used."},
    {"Error: A document is missing, not complete, or there twice. *", failure, nullptr,
     "It could not be written back: krx/krconf.updkrx-kept.nsf has it, and the next run puts it back."},
    {"A document that an earlier run has kept is put back. * sError is 0", news, nullptr,
     "A DLP document that a dead run had out is there again."},
    {"A document that an earlier run has kept is put back. *", failure, nullptr, "It is not; it stays kept."},
    {"Restore original dlp template success*", failure, nullptr,
     "A DLP document could not be replaced; the old one is back. It is tried once more."},
    {"Restore original dlp template error*", failure, nullptr,
     "A DLP document could not be replaced, and the old one is not back: krx/krconf.updkrx-kept.nsf has it."},
    {"Error: References to replaced documents may dangle.", failure, nullptr,
     "Not all of them could be repaired: verify names them. The end of the run, and the next one, try again."},
    {"Error: The references that are to be repaired cannot be *", failure, nullptr,
     "krx/krconf.updkrx-references, which hands vanished UNIDs to the next run, cannot be used."},
    {"Error: The references that were repaired cannot be forgotten. *", failure, nullptr,
     "krx/krconf.updkrx-references stays; repairing again does no harm."},
    {"Error: Replicas may take the deletion of a document for newer *", failure, nullptr,
     "The document is upgraded here; after the next replication look whether it is still there."},
    {"*cannot be found in ori ntf doc*", detail, nullptr, "A reference is carried over; this is no failure."},
    {"cannot open krconf.ntf*", failure, nullptr,
     "The configuration database's template is not there or not readable; its documents were left as they were."},
    {"open krconfntf failed.", failure, nullptr, "The configuration database's template is not readable."},

    // The encyclopedia.
    {"krency.nsf is old format, recreate it", step, "make krency.nsf anew", "The encyclopedia is made anew, once."},
    {"Success created new krency.nsf", news, nullptr, "The new encyclopedia stands in the old one's place."},
    {"The old krency.nsf is put back.", failure, nullptr, "The encyclopedia was not made anew; the old one is back."},
    {"Failed to recreate krency.nsf, Error: 103", failure, nullptr,
     "Its template krency.ntf is not there. Early in a run after a dead one this comes again later and is no failure."},
    {"Failed to recreate krency.nsf, *", failure, nullptr,
     "The encyclopedia was not made anew; the old one is there, or the next lines say where."},
    {"Failed to delete original KRX V3 krency.nsf, *", failure, nullptr,
     "The old encyclopedia could not be taken away, so it was not made anew."},
    {"Error: krency.nsf cannot be kept, so it is not recreated.*", failure, nullptr,
     "There is no place for a copy of the old encyclopedia, so nothing was done to it."},
    {"Error: The old krency.nsf cannot be put back.*", failure, nullptr,
     "krx/krency.nsf.updkrx-kept is the old encyclopedia; the next run puts it back."},
    {"Error: The new krency.nsf may lack *", failure, nullptr,
     "The new encyclopedia lacks its access control list or replica ID; krency.nsf.updkrx-old is the old one."},
    {"Error: * krency.nsf cannot be removed. *", failure, nullptr, "A file beside krency.nsf stays behind."},

    // The end.
    {"Info: Begin process databases.", step, "stamp the build", "Every product database gets the new build."},
    {"Info: start to set build number -'*", step, "stamp", "This database gets the new build."},
    {"Error: Set build number failed -'*", failure, nullptr, "The database lacks the new build, or part of it."},
    {"Info: Have processed all KRX databases.", news, nullptr, "Every product database has been stamped."},
    {"SignDatabase Enter", step, "sign all databases", "The design of every product database is signed."},
    {"Start to sign - *", step, "sign", "The design of this database is signed."},
    {"Error: A note stays expanded and is not saved. *", failure, nullptr, "A design note lacks its signature."},
    {"Error: An old replication formula stays. *", failure, nullptr,
     "The database has two replication settings: delete the old one."},
    {"Error: The replication settings cannot be made. *", failure, nullptr,
     "The database has no replication settings."},
    {"Error: Sign database failed - *", failure, nullptr, "The database lacks signatures."},
    {"Failed to sign *", failure, nullptr, "The database lacks signatures."},
    {"Signning failed!!!", failure, nullptr, "A design note lacks its signature."},
    {"*NSFNotesSign error: *", failure, nullptr, "A design note lacks its signature."},
    {"Failed to open * - *", failure, nullptr,
     "A database or template is not there or not readable; the run went on without it."},
    {"SignDatabase Leave", news, nullptr, "All is signed; the run is through but for the restart of the product."},

    // Anywhere.
    {"Error: The server did not take a command. (*", failure, nullptr,
     "What the command was for is to be done at the server's console."},
    {"Error: A search was broken off, *", failure, nullptr, "What the search did not reach was left as it was."},
    {"Error: *: A note cannot be saved and keeps what it had. *", failure, nullptr, "The note was left as it was."},
    {"* Cannot compile the formula! *", failure, nullptr, "A search was left out, and what it was for."},
    {"\t*", detail, nullptr, "A table, for support."},
};

bool Fits(std::string_view pattern, std::string_view text) {
    if (pattern.empty()) {
        return text.empty();
    }
    if (pattern.front() == '*') {
        return Fits(pattern.substr(1), text) || (!text.empty() && Fits(pattern, text.substr(1)));
    }
    return !text.empty() && pattern.front() == text.front() && Fits(pattern.substr(1), text.substr(1));
}

/** What a message of a failure holds somewhere. */
constexpr std::string_view failureWords[] = {"ailed", "rror", "ERROR", "ERR:", "Cannot ", "Fail to "};

bool TellsOfFailure(std::string_view message) {
    const LineKind kind = KindOf(message);
    return kind == failure || kind == ending;
}

/** The status in a message: hexadecimal in parentheses at its end or after "Error: ", decimal behind "sError is",
 *  "error" and their like. */
std::string StatusIn(const std::string& message) {
    static const std::regex hexadecimal(R"((?:\(|Error: )([0-9A-Fa-f]+)\)?\s*$)");
    static const std::regex decimal(R"((?:sError is|rror number is|error:?) ?\[?(\d+))");
    std::smatch found;
    if (std::regex_search(message, found, hexadecimal)) {
        return ExplainStatus(found[1], false);
    }
    return std::regex_search(message, found, decimal) ? ExplainStatus(found[1], true) : "";
}

} // namespace

std::span<const LogLine> LogLines() {
    return table;
}

const LogLine* FindLogLine(std::string_view message) {
    while (message.ends_with(' ')) {
        message.remove_suffix(1);
    }
    const auto found = std::ranges::find_if(table, [&](const LogLine& line) { return Fits(line.pattern, message); });
    return found == std::end(table) ? nullptr : &*found;
}

LineKind KindOf(std::string_view message) {
    if (const LogLine* line = FindLogLine(message)) {
        return line->kind;
    }
    return std::ranges::any_of(failureWords, [&](auto word) { return message.find(word) != std::string_view::npos; })
               ? failure
               : detail;
}

std::string FileIn(std::string_view message) {
    static const std::regex name(R"([A-Za-z]+\.(?:nsf|ntf|dat)\b)");
    std::match_results<std::string_view::const_iterator> found;
    return std::regex_search(message.begin(), message.end(), found, name) ? found.str() : "";
}

std::string ExplainStatus(const std::string& text, bool decimal) {
    char* end = nullptr;
    const unsigned long number = std::strtoul(text.c_str(), &end, decimal ? 10 : 16);
    char meaning[256] = "";
    if (text.empty() || *end != '\0' || number > 0xFFFF ||
        EmbStatusText(static_cast<STATUS>(number), meaning, sizeof meaning) == 0) {
        return {};
    }
    std::array<char, 8> code = {};
    (void)std::snprintf(code.data(), code.size(), "%lX", number & ERR_MASK);
    return std::string(code.data()) + ": " + meaning;
}

std::string Explain(std::string_view message) {
    const LogLine* line = FindLogLine(message);
    if (line == nullptr) {
        return {};
    }
    const std::string status = line->kind == failure || line->kind == ending ? StatusIn(std::string(message)) : "";
    return line->meaning + (status.empty() ? "" : " Status " + status + (status.ends_with('.') ? "" : "."));
}

std::string FindCause(const std::vector<std::string>& messages, const std::vector<std::string>& databases) {
    const auto endsRun = [](std::string_view message) { return KindOf(message) == ending; };
    const auto namesOne = [&](std::string_view message) {
        return TellsOfFailure(message) && std::ranges::any_of(databases, [&](const std::string& database) {
                   return message.find(database) != std::string_view::npos;
               });
    };
    const auto first = [&](const auto& tells) {
        const auto found = std::ranges::find_if(messages, tells);
        return found == messages.end() ? std::string() : *found;
    };
    std::string cause = first(endsRun);
    if (cause.empty()) {
        cause = first(namesOne);
    }
    return cause.empty() ? first(TellsOfFailure) : cause;
}

} // namespace krxpatch
