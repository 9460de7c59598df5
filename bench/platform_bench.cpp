// How much the Notes API costs over plain SQLite. Each figure does the same work twice in the same run, through the
// platform and through a loop over prepared statements, its peer, on files of the same content and settings.
//
// Both sides are measured in turn, several times; "ratio" is the platform's best time over the peer's best, which a
// busy machine disturbs least, and "cpu_ratio" the same of processor time. The goal is a ratio of at most 1.5, and
// for a search at most 100 MiB of resident memory.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include "embedded_notes.h"
#include "engine/values/item_codec.h"
#include "engine/values/timedate.h"
#include "engine/values/unid.h"

namespace {

constexpr int noteCount = 100'000;
constexpr int itemCount = 20;
constexpr int formCount = 10; // every tenth note is of the form that is looked for
constexpr const char* formulaText = "Form = \"form3\"";
constexpr std::string_view wantedForm = "form3";
constexpr size_t bytesPerCommit = size_t{64} << 20; // as the platform bounds its journal

void Require(bool holds, const char* what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

// ---- The notes: 19 text items and the form, which stands last, so that a note is walked as a whole.

std::string ItemName(int item) {
    return item == itemCount - 1 ? "Form" : "Item" + std::to_string(item);
}

const std::vector<std::string>& ItemNames() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> made;
        for (int item = 0; item < itemCount; ++item) {
            made.push_back(ItemName(item));
        }
        return made;
    }();
    return names;
}

std::string_view ItemText(int note, int item) {
    static const std::string filler = "some text of an item that is neither short nor long";
    static const std::vector<std::string> forms = [] {
        std::vector<std::string> made;
        for (int form = 0; form < formCount; ++form) {
            made.push_back("form" + std::to_string(form));
        }
        return made;
    }();
    if (item == itemCount - 1) {
        return forms[static_cast<size_t>(note % formCount)];
    }
    return std::string_view(filler).substr(0, 8 + static_cast<size_t>((note + item * 7) % 40));
}

// ---- A server folder with the databases

class Folder {
public:
    Folder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "platform_bench.XXXXXX").string();
        Require(mkdtemp(pattern.data()) != nullptr, "cannot make a temporary folder");
        path_ = pattern;
        std::filesystem::create_directory(path_ / "data");
        std::ofstream(path_ / "notes.ini") << "Directory=data\n";
        std::ofstream(path_ / "empty.dxl") << "<database xmlns='http://www.lotus.com/dxl' title='bench'/>\n";
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    [[nodiscard]] std::string Path(const std::string& name) const { return (path_ / name).string(); }
    [[nodiscard]] std::string data(const std::string& name) const { return (path_ / "data" / name).string(); }

    void MakeEmptyDatabase(const std::string& name) const {
        char message[512] = "";
        Require(EmbDxlImport(data(name).c_str(), Path("empty.dxl").c_str(), EMB_DXL_REPLACE, message, sizeof message) ==
                    NOERROR,
                message);
    }

private:
    std::filesystem::path path_;
};

Folder& BenchFolder() {
    static Folder made;
    return made;
}

// ---- The platform's side

void Check(STATUS status, const char* operation) {
    if (status != NOERROR) {
        throw std::runtime_error(std::string(operation) + ": status " + std::to_string(status));
    }
}

class Session {
public:
    Session() {
        char message[512] = "";
        Require(EmbSessionBegin(BenchFolder().Path("notes.ini").c_str(), 0, message, sizeof message) == NOERROR,
                message);
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session() { EmbSessionEnd(); }
};

DBHANDLE OpenDatabase(const char* name) {
    DBHANDLE database = NULLHANDLE;
    Check(NSFDbOpen(name, &database), "NSFDbOpen");
    return database;
}

void CreateByPlatform(const char* name) {
    const DBHANDLE database = OpenDatabase(name);
    for (int i = 0; i < noteCount; ++i) {
        NOTEHANDLE note = NULLHANDLE;
        Check(NSFNoteCreate(database, &note), "NSFNoteCreate");
        for (int item = 0; item < itemCount; ++item) {
            const std::string_view text = ItemText(i, item);
            Check(NSFItemSetText(note, ItemNames()[static_cast<size_t>(item)].c_str(), text.data(),
                                 static_cast<WORD>(text.size())),
                  "NSFItemSetText");
        }
        Check(NSFNoteUpdate(note, 0), "NSFNoteUpdate");
        Check(NSFNoteClose(note), "NSFNoteClose");
    }
    Check(NSFDbClose(database), "NSFDbClose");
}

STATUS LNCALLBACK CollectMatch(void* ids, SEARCH_MATCH* match, ITEM_TABLE*) {
    if (match->SERetFlags & SE_FMATCH) {
        static_cast<std::vector<NOTEID>*>(ids)->push_back(match->ID.NoteID);
    }
    return NOERROR;
}

STATUS LNCALLBACK CountMatch(void* count, SEARCH_MATCH* match, ITEM_TABLE*) {
    *static_cast<int*>(count) += match->SERetFlags & SE_FMATCH;
    return NOERROR;
}

int SearchByPlatform(const char* name) {
    const DBHANDLE database = OpenDatabase(name);
    FORMULAHANDLE formula = NULLHANDLE;
    WORD size = 0, line = 0, column = 0, offset = 0, length = 0;
    STATUS error = NOERROR;
    Check(
        NSFFormulaCompile(nullptr, 0, formulaText, MAXWORD, &formula, &size, &error, &line, &column, &offset, &length),
        "NSFFormulaCompile");
    int count = 0;
    Check(NSFSearch(database, formula, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, CountMatch, &count, nullptr),
          "NSFSearch");
    Check(OSMemFree(formula), "OSMemFree");
    Check(NSFDbClose(database), "NSFDbClose");
    return count;
}

std::vector<NOTEID> AllIds(const char* name) {
    std::vector<NOTEID> ids;
    const DBHANDLE database = OpenDatabase(name);
    Check(NSFSearch(database, NULLHANDLE, nullptr, 0, NOTE_CLASS_ALL, nullptr, CollectMatch, &ids, nullptr),
          "NSFSearch");
    Check(NSFDbClose(database), "NSFDbClose");
    return ids;
}

void UpdateByPlatform(const char* name, const std::vector<NOTEID>& ids, const std::string& text) {
    const DBHANDLE database = OpenDatabase(name);
    for (const NOTEID id : ids) {
        NOTEHANDLE note = NULLHANDLE;
        Check(NSFNoteOpen(database, id, 0, &note), "NSFNoteOpen");
        Check(NSFItemSetText(note, "Item4", text.data(), static_cast<WORD>(text.size())), "NSFItemSetText");
        Check(NSFNoteUpdate(note, UPDATE_FORCE), "NSFNoteUpdate");
        Check(NSFNoteClose(note), "NSFNoteClose");
    }
    Check(NSFDbClose(database), "NSFDbClose");
}

// ---- The peer: SQLite and the bytes of the items, nothing else

class Peer {
public:
    explicit Peer(const std::string& file) {
        Require(sqlite3_open_v2(file.c_str(), &database_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr) ==
                    SQLITE_OK,
                "the peer cannot open its file");
        Execute("PRAGMA journal_mode=DELETE; PRAGMA synchronous=FULL; PRAGMA temp_store=MEMORY;");
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    ~Peer() {
        for (sqlite3_stmt* statement : statements_) {
            sqlite3_finalize(statement);
        }
        sqlite3_close(database_);
    }

    void Execute(const char* sql) {
        Require(sqlite3_exec(database_, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sqlite3_errmsg(database_));
    }
    sqlite3_stmt* Prepare(const char* sql) {
        sqlite3_stmt* statement = nullptr;
        Require(sqlite3_prepare_v2(database_, sql, -1, &statement, nullptr) == SQLITE_OK, sqlite3_errmsg(database_));
        statements_.push_back(statement);
        return statement;
    }
    void Write(sqlite3_stmt* statement, size_t bytes) {
        Require(sqlite3_step(statement) == SQLITE_DONE, sqlite3_errmsg(database_));
        sqlite3_reset(statement);
        if ((pending_ += bytes) > bytesPerCommit) {
            Execute("COMMIT; BEGIN IMMEDIATE");
            pending_ = 0;
        }
    }

private:
    sqlite3* database_ = nullptr;
    std::vector<sqlite3_stmt*> statements_;
    size_t pending_ = 0;
};

template<typename T>
void BindBytes(sqlite3_stmt* statement, int index, const T& value) {
    sqlite3_bind_blob(statement, index, &value, sizeof value, SQLITE_STATIC);
}

std::string_view BytesOf(sqlite3_stmt* row, int column) {
    return {static_cast<const char*>(sqlite3_column_blob(row, column)),
            static_cast<size_t>(sqlite3_column_bytes(row, column))};
}

template<typename T>
void AppendWord(std::string& bytes, T value) {
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

void AppendTextItem(std::string& items, std::string_view name, std::string_view text) {
    AppendWord(items, WORD{ITEM_SUMMARY});
    AppendWord(items, WORD{TYPE_TEXT});
    AppendWord(items, static_cast<WORD>(name.size()));
    AppendWord(items, static_cast<DWORD>(text.size()));
    items += name;
    items += text;
}

TIMEDATE Now() {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return embedded::TimedateFromHundredths(std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count() /
                                            10);
}

void CreateByPeer(const std::string& file) {
    Peer peer(file);
    sqlite3_stmt* insert = peer.Prepare("INSERT INTO note (id, class, unid, sequence, sequencetime, modified, deleted, "
                                        "items) VALUES (?1,?2,?3,?4,?5,?6,0,?7)");
    peer.Execute("BEGIN IMMEDIATE");
    const TIMEDATE replicaId = Now();
    std::string items;
    for (int i = 0; i < noteCount; ++i) {
        items.clear();
        for (int item = 0; item < itemCount; ++item) {
            AppendTextItem(items, ItemNames()[static_cast<size_t>(item)], ItemText(i, item));
        }
        const TIMEDATE time = Now();
        const UNID unid{embedded::GeneratedUnidFile(replicaId, static_cast<uint32_t>(i)), time};
        sqlite3_bind_int64(insert, 1, 0x8F6 + i * 4);
        sqlite3_bind_int(insert, 2, NOTE_CLASS_DOCUMENT);
        BindBytes(insert, 3, unid);
        sqlite3_bind_int64(insert, 4, 1);
        BindBytes(insert, 5, time);
        BindBytes(insert, 6, time);
        sqlite3_bind_blob(insert, 7, items.data(), static_cast<int>(items.size()), SQLITE_STATIC);
        peer.Write(insert, items.size());
    }
    peer.Execute("COMMIT");
}

int SearchByPeer(const std::string& file) {
    Peer peer(file);
    sqlite3_stmt* select = peer.Prepare("SELECT id, class, unid, sequence, sequencetime, modified, deleted, items "
                                        "FROM note ORDER BY id");
    int count = 0;
    while (sqlite3_step(select) == SQLITE_ROW) {
        if (!(sqlite3_column_int(select, 1) & NOTE_CLASS_DOCUMENT) || sqlite3_column_int(select, 6)) {
            continue;
        }
        embedded::ItemCursor cursor(BytesOf(select, 7));
        for (embedded::ItemView item{}; cursor.Next(item);) {
            if (item.name == "Form") {
                count += item.type == TYPE_TEXT && item.value == wantedForm;
                break;
            }
        }
    }
    return count;
}

void UpdateByPeer(const std::string& file, const std::vector<NOTEID>& ids, const std::string& text) {
    Peer peer(file);
    sqlite3_stmt* select = peer.Prepare("SELECT sequence, items FROM note WHERE id=?1");
    sqlite3_stmt* update = peer.Prepare("UPDATE note SET sequence=?2, sequencetime=?3, modified=?3, items=?4 "
                                        "WHERE id=?1");
    peer.Execute("BEGIN IMMEDIATE");
    std::string items;
    for (const NOTEID id : ids) {
        sqlite3_bind_int64(select, 1, id);
        Require(sqlite3_step(select) == SQLITE_ROW, "a note is missing");
        items.clear();
        const std::string_view stored = BytesOf(select, 1);
        size_t kept = 0; // the bytes before the old item and after it stay
        embedded::ItemCursor cursor(stored);
        for (embedded::ItemView item{}; cursor.Next(item);) {
            const auto end = static_cast<size_t>(item.value.data() + item.value.size() - stored.data());
            if (item.name != "Item4") {
                items += stored.substr(kept, end - kept);
            }
            kept = end;
        }
        AppendTextItem(items, "Item4", text);
        const TIMEDATE time = Now();
        sqlite3_bind_int64(update, 1, id);
        sqlite3_bind_int64(update, 2, sqlite3_column_int64(select, 0) + 1);
        BindBytes(update, 3, time);
        sqlite3_bind_blob(update, 4, items.data(), static_cast<int>(items.size()), SQLITE_STATIC);
        sqlite3_reset(select);
        peer.Write(update, items.size());
    }
    peer.Execute("COMMIT");
}

// ---- Figures

/** In seconds; the processor's time counts this process alone, whatever else the machine does. */
struct Time {
    double wall = std::numeric_limits<double>::max();
    double cpu = std::numeric_limits<double>::max();
};

Time TimeOf(const std::function<void()>& work) {
    const std::clock_t cpuStart = std::clock();
    const auto start = std::chrono::steady_clock::now();
    work();
    return {std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(),
            static_cast<double>(std::clock() - cpuStart) / CLOCKS_PER_SEC};
}

Time BestOf(const Time& a, const Time& b) {
    return {std::min(a.wall, b.wall), std::min(a.cpu, b.cpu)};
}

/** Measures both in turn, `prepare` (not measured) before each pair. */
void Compare(benchmark::State& state, const std::function<void()>& prepare, const std::function<void()>& platform,
             const std::function<void()>& peer) {
    Time bestPlatform, bestPeer;
    for (auto _ : state) {
        prepare();
        const Time time = TimeOf(platform);
        state.SetIterationTime(time.wall);
        bestPlatform = BestOf(bestPlatform, time);
        bestPeer = BestOf(bestPeer, TimeOf(peer));
    }
    state.counters["platform_s"] = bestPlatform.wall;
    state.counters["peer_s"] = bestPeer.wall;
    state.counters["ratio"] = bestPlatform.wall / bestPeer.wall;
    state.counters["cpu_ratio"] = bestPlatform.cpu / bestPeer.cpu;
}

/** Two databases of the same bytes: one for the platform, one for the peer. */
void RequireFilledDatabases() {
    static const bool filled = [] {
        BenchFolder().MakeEmptyDatabase("platform.nsf");
        {
            const Session session;
            CreateByPlatform("platform.nsf");
        }
        std::filesystem::copy_file(BenchFolder().data("platform.nsf"), BenchFolder().data("peer.db"));
        return true;
    }();
    (void)filled;
}

/** The process's peak of resident memory in MiB since it was reset, baseline included. */
double PeakMebibytes() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmHWM:")) {
            return std::strtod(line.c_str() + 6, nullptr) / 1024;
        }
    }
    return 0;
}

void ResetPeak() {
    std::ofstream clear("/proc/self/clear_refs");
    Require(static_cast<bool>(clear << "5" << std::flush), "the peak of memory cannot be reset");
}

void SearchByForm(benchmark::State& state) {
    RequireFilledDatabases();
    const Session session;
    double peak = 0;
    const auto counted = [](int count) { Require(count == noteCount / formCount, "a search missed notes"); };
    Compare(
        state, ResetPeak,
        [&] {
            counted(SearchByPlatform("platform.nsf"));
            peak = std::max(peak, PeakMebibytes());
        },
        [&] { counted(SearchByPeer(BenchFolder().data("peer.db"))); });
    state.counters["peak_MiB"] = peak;
}

void UpdateEveryNote(benchmark::State& state) {
    RequireFilledDatabases();
    const Session session;
    const std::vector<NOTEID> ids = AllIds("platform.nsf");
    std::string text = "text of round 0";
    Compare(
        state, [&] { ++text.back(); }, [&] { UpdateByPlatform("platform.nsf", ids, text); },
        [&] { UpdateByPeer(BenchFolder().data("peer.db"), ids, text); });
}

void CreateNotes(benchmark::State& state) {
    const Session session;
    Compare(
        state,
        [] {
            BenchFolder().MakeEmptyDatabase("new.nsf");
            std::filesystem::copy_file(BenchFolder().data("new.nsf"), BenchFolder().data("new.db"),
                                       std::filesystem::copy_options::overwrite_existing);
        },
        [] { CreateByPlatform("new.nsf"); }, [] { CreateByPeer(BenchFolder().data("new.db")); });
}

BENCHMARK(SearchByForm)->Iterations(7)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(UpdateEveryNote)->Iterations(5)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(CreateNotes)->Iterations(5)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    try {
        benchmark::Initialize(&argc, argv);
        if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
            return 2;
        }
        benchmark::RunSpecifiedBenchmarks();
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "platform_bench: %s\n", error.what());
        return 1;
    }
}
