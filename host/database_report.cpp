#include "database_report.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <functional>
#include <sstream>
#include <thread>

#include "common/ascii_text.h"
#include "embedded_notes.h"
#include "foundation/notes_scoped.h"
#include "foundation/notes_search.h"
#include "foundation/notes_text.h"
#include "foundation/product_databases.h"
#include "patch_entries.h"
#include "platform.h"
#include "server_folder.h"
#include "text_table.h"
#include "utf8_path.h"

namespace krxpatch {
namespace {

constexpr WORD textSize = 1024;
// A replication note belongs to the server's settings and not to the design that is signed.
constexpr WORD designClasses = NOTE_CLASS_ALLNONDATA & ~NOTE_CLASS_REPLFORMULA;

using NoteVisitor = std::function<void(NOTEHANDLE note, WORD noteClass)>;

STATUS VisitNotes(DBHANDLE database, WORD classMask, const NoteVisitor& visitor) {
    std::exception_ptr exception; // none may cross the search
    const auto visit = [&](const SEARCH_MATCH& found) -> STATUS {
        updkrx::ScopedNote note;
        if (const STATUS status = updkrx::OpenNote(note, database, found.ID.NoteID); status != NOERROR) {
            return status;
        }
        try {
            visitor(note.Get(), found.NoteClass);
            return NOERROR;
        } catch (...) {
            exception = std::current_exception();
            return ERR_MEMORY; // ends the search
        }
    };
    const STATUS status = updkrx::SearchNotes({"VisitNotes", database, NULLHANDLE, classMask}, visit);
    if (exception) {
        std::rethrow_exception(exception);
    }
    return status;
}

std::string ToLmbcs(const std::string& text) {
    char lmbcs[textSize];
    updkrx::ToLmbcs(platform::NativeFromUtf8(text).c_str(), lmbcs, sizeof lmbcs);
    return lmbcs;
}

/** Up to its first line break. */
std::string ItemText(NOTEHANDLE note, const char* item) {
    char lmbcs[textSize];
    (void)updkrx::GetItemText(note, item, lmbcs, sizeof lmbcs); // what cannot be read shows as empty
    char native[4 * textSize];
    updkrx::ToNative(lmbcs, native, sizeof native);
    return platform::Utf8FromNative(native);
}

bool IsLineEnd(char byte) {
    return static_cast<unsigned char>(byte) < 0x20;
}

/** The lines of an icon's title behind the first name the template that the database is ("#1NAME"), and the one that
 *  its design comes from ("#2NAME"). */
void ReadTemplateNames(NOTEHANDLE icon, DatabaseReport& report) {
    char lmbcs[textSize];
    const WORD length = updkrx::GetItemText(icon, "$TITLE", lmbcs, sizeof lmbcs); // without it there are none
    const std::string_view title(lmbcs, length);
    for (const auto& [mark, name] : {std::pair("#1", &report.templateName), std::pair("#2", &report.inheritsFrom)}) {
        if (const size_t at = title.find(mark); at != std::string_view::npos) {
            const auto begin = title.begin() + static_cast<std::ptrdiff_t>(at) + 2;
            *name = std::string(begin, std::find_if(begin, title.end(), IsLineEnd));
        }
    }
}

std::string StatusText(STATUS status) {
    char text[textSize];
    updkrx::GetStatusText(status, text, sizeof text);
    return text[0] != '\0' ? text : "status " + std::to_string(status & ERR_MASK);
}

std::string ReadTitle(const std::string& path) {
    char title[textSize];
    (void)EmbDatabaseTitle(path.c_str(), title, sizeof title); // the length of the whole title
    return title;
}

STATUS ReadSignatures(const std::string& path, DatabaseReport& report) {
    EMBSIGNATURES counts = {};
    char signers[4 * textSize] = "";
    const STATUS status = EmbSignatures(path.c_str(), designClasses, &counts, signers, sizeof signers);
    report.designNotes = counts.designNotes;
    report.signedNotes = counts.signedNotes;
    report.changedNotes = counts.changedNotes;
    std::istringstream lines(signers);
    for (std::string name; std::getline(lines, name);) {
        report.signers.push_back(name);
    }
    return status;
}

STATUS ReadOpenDatabase(DBHANDLE database, DatabaseReport& report) {
    DBREPLICAINFO info = {};
    const STATUS status = NSFDbReplicaInfoGet(database, &info);
    if (status != NOERROR) {
        return status;
    }
    report.designHidden = (info.Flags & REPLFLG_HIDDEN_DESIGN) != 0;
    return VisitNotes(database, NOTE_CLASS_ALLNONDATA, [&](NOTEHANDLE note, WORD noteClass) {
        report.formsAndViews += (noteClass & (NOTE_CLASS_FORM | NOTE_CLASS_VIEW)) != 0 ? 1 : 0;
        if ((noteClass & NOTE_CLASS_HELP) != 0) {
            report.builds.push_back(ItemText(note, "BuildNumber"));
        }
        if ((noteClass & NOTE_CLASS_ICON) != 0) {
            ReadTemplateNames(note, report);
        }
        if ((noteClass & NOTE_CLASS_REPLFORMULA) != 0) {
            report.replication.push_back(ItemText(note, "$TITLE"));
        }
    });
}

/** The number after the last "." of a build text; 0 when there is none. */
int32_t BuildNumber(const std::string& text) {
    const size_t dot = text.rfind('.');
    return dot == std::string::npos ? 0 : updkrx::NumberOf(text.substr(dot + 1));
}

bool Reaches(const DatabaseReport& report, int32_t build) {
    return report.error.empty() && std::all_of(report.builds.begin(), report.builds.end(),
                                               [&](const std::string& text) { return BuildNumber(text) >= build; });
}

DatabaseReport Missing(const std::string& name) {
    DatabaseReport report;
    report.name = name;
    report.missing = true;
    report.error = "missing";
    return report;
}

/** Asks some times whether something is so. */
template<class IsSo>
bool GoesAwaySoon(const IsSo& isSo) {
    constexpr int times = 10;
    for (int asked = 0; asked < times; ++asked) {
        if (!isSo()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

/** `path` is what the platform takes, and `file` what the system does, whose word for why it cannot be read counts
 *  more. */
DatabaseReport Read(const std::string& name, const std::string& path, const std::filesystem::path& file) {
    DatabaseReport report;
    report.name = name;
    report.offline = EmbIsOffline(path.c_str()) != 0;
    updkrx::ScopedDatabase database;
    STATUS status = NOERROR;
    (void)GoesAwaySoon([&] { // a check beside this one asks in the same moment whether the database is in use
        status = database.Open(NSFDbOpen, ToLmbcs(path).c_str());
        return (status & ERR_MASK) == EMB_ERR_BUSY;
    });
    if ((status & ERR_MASK) == ERR_NOEXIST) {
        return Missing(name);
    }
    if (status == NOERROR) {
        report.title = ReadTitle(path);
        status = ReadOpenDatabase(database.Get(), report);
    }
    if (status == NOERROR) {
        status = ReadSignatures(path, report);
    }
    if (status != NOERROR) {
        std::error_code ignored; // what is not there is told by the platform
        const std::string why =
            std::filesystem::is_regular_file(file, ignored) ? platform::WhyUnreadable(file) : std::string();
        report.error = why.empty() ? StatusText(status) : why;
    }
    return report;
}

} // namespace

bool IsKeptOpen(const std::filesystem::path& file) {
    return !GoesAwaySoon([&] { return platform::IsInUse(file); });
}

DatabaseReport ReadDatabaseFile(const std::string& name, const std::filesystem::path& file) {
    return Read(name, file.string(), file);
}

DatabaseReport ReadDatabase(const std::string& name) {
    char data[MAXPATH] = "";
    (void)OSGetDataDirectory(data); // its length; only for the cause, should there be one
    return Read(name, "krx/" + name, PathOf(data) / "krx" / name);
}

std::vector<DatabaseReport> ReadDatabases(const std::vector<std::string>& names) {
    std::vector<DatabaseReport> reports;
    reports.reserve(names.size());
    for (const std::string& name : names) {
        reports.push_back(ReadDatabase(name));
    }
    return reports;
}

std::string BuildsOf(const DatabaseReport& report) {
    if (!report.error.empty()) {
        return report.missing ? "missing" : "unknown";
    }
    std::vector<std::string> builds = report.builds;
    std::replace(builds.begin(), builds.end(), std::string(), std::string("none"));
    builds.erase(std::unique(builds.begin(), builds.end()), builds.end());
    return builds.empty() ? "none" : Join(builds);
}

int32_t HighestBuild(const std::vector<DatabaseReport>& reports) {
    int32_t highest = 0;
    for (const DatabaseReport& report : reports) {
        for (const std::string& build : report.builds) {
            highest = std::max(highest, BuildNumber(build));
        }
    }
    return highest;
}

std::string DescribeBuilds(const std::vector<DatabaseReport>& reports) {
    std::vector<std::string> builds;
    for (const DatabaseReport& report : reports) {
        const bool isProduct = std::ranges::any_of(
            updkrx::ProductDatabases, [&](const auto& product) { return report.name == product.databaseName; });
        if (isProduct && report.error.empty()) {
            builds.insert(builds.end(), report.builds.begin(), report.builds.end());
        }
    }
    std::erase(builds, "");
    if (builds.empty()) {
        return "none";
    }
    const auto [lowest, highest] = std::ranges::minmax_element(builds, {}, BuildNumber);
    return *lowest == *highest ? *lowest : *lowest + " to " + *highest;
}

UpgradeState CompareWithBuild(const std::vector<DatabaseReport>& reports, int32_t build) {
    UpgradeState state = {updkrx::ProductDatabases.size(), {}};
    for (const updkrx::ProductDatabase& product : updkrx::ProductDatabases) {
        const auto found = std::find_if(reports.begin(), reports.end(), [&](const DatabaseReport& report) {
            return report.name == product.databaseName;
        });
        const DatabaseReport report = found == reports.end() ? Missing(product.databaseName) : *found;
        if (!Reaches(report, build)) {
            state.behind.push_back(report);
        }
    }
    return state;
}

std::string DescribeError(const std::filesystem::path& folder, const std::vector<DatabaseReport>& reports) {
    const auto hasError = [](const DatabaseReport& report) {
        return !report.error.empty() && FindProduct(report.name) != nullptr;
    };
    const auto first = std::ranges::find_if(reports, hasError);
    if (first == reports.end()) {
        return {};
    }
    const auto others = std::ranges::count_if(first + 1, reports.end(), hasError);
    return (folder / first->name).string() + ": " + first->error +
           (others == 0 ? "" : " (and " + std::to_string(others) + " more)");
}

std::string DescribeBehind(const UpgradeState& state, int32_t build) {
    constexpr size_t named = 3;
    std::vector<std::string> texts;
    for (const DatabaseReport& report : state.behind) {
        texts.push_back(report.name + " (" + (report.error.empty() ? BuildsOf(report) : report.error) + ")");
    }
    if (texts.size() > named) {
        texts.resize(named);
        texts.emplace_back("...");
    }
    return std::to_string(state.behind.size()) + " of " + std::to_string(state.databases) +
           " product databases do not carry build " + BuildText(build) + ": " + Join(texts);
}

} // namespace krxpatch
