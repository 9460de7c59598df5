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

void require(bool holds, const char* what) {
    if (!holds)
        throw std::runtime_error(what);
}

// ---- The notes: 19 text items and the form, which stands last, so that a note is walked as a whole.

std::string itemName(int item) {
    return item == itemCount - 1 ? "Form" : "Item" + std::to_string(item);
}

const std::vector<std::string>& itemNames() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> made;
        for (int item = 0; item < itemCount; ++item)
            made.push_back(itemName(item));
        return made;
    }();
    return names;
}

std::string_view itemText(int note, int item) {
    static const std::string filler = "some text of an item that is neither short nor long";
    static const std::vector<std::string> forms = [] {
        std::vector<std::string> made;
        for (int form = 0; form < formCount; ++form)
            made.push_back("form" + std::to_string(form));
        return made;
    }();
    if (item == itemCount - 1)
        return forms[static_cast<size_t>(note % formCount)];
    return std::string_view(filler).substr(0, 8 + static_cast<size_t>((note + item * 7) % 40));
}

// ---- A server folder with the databases

class Folder {
public:
    Folder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "platform_bench.XXXXXX").string();
        require(mkdtemp(pattern.data()) != nullptr, "cannot make a temporary folder");
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

    [[nodiscard]] std::string path(const std::string& name) const { return (path_ / name).string(); }
    [[nodiscard]] std::string data(const std::string& name) const { return (path_ / "data" / name).string(); }

    void makeEmptyDatabase(const std::string& name) const {
        char message[512] = "";
        require(EmbDxlImport(data(name).c_str(), path("empty.dxl").c_str(), EMB_DXL_REPLACE, message, sizeof message) ==
                    NOERROR,
                message);
    }

private:
    std::filesystem::path path_;
};

Folder& folder() {
    static Folder made;
    return made;
}

// ---- The platform's side

void check(STATUS status, const char* operation) {
    if (status != NOERROR)
        throw std::runtime_error(std::string(operation) + ": status " + std::to_string(status));
}

class Session {
public:
    Session() {
        char message[512] = "";
        require(EmbSessionBegin(folder().path("notes.ini").c_str(), 0, message, sizeof message) == NOERROR, message);
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session() { EmbSessionEnd(); }
};

DBHANDLE openDatabase(const char* name) {
    DBHANDLE database = NULLHANDLE;
    check(NSFDbOpen(name, &database), "NSFDbOpen");
    return database;
}

void createByPlatform(const char* name) {
    const DBHANDLE database = openDatabase(name);
    for (int i = 0; i < noteCount; ++i) {
        NOTEHANDLE note = NULLHANDLE;
        check(NSFNoteCreate(database, &note), "NSFNoteCreate");
        for (int item = 0; item < itemCount; ++item) {
            const std::string_view text = itemText(i, item);
            check(NSFItemSetText(note, itemNames()[static_cast<size_t>(item)].c_str(), text.data(),
                                 static_cast<WORD>(text.size())),
                  "NSFItemSetText");
        }
        check(NSFNoteUpdate(note, 0), "NSFNoteUpdate");
        check(NSFNoteClose(note), "NSFNoteClose");
    }
    check(NSFDbClose(database), "NSFDbClose");
}

STATUS LNCALLBACK collectMatch(void* ids, SEARCH_MATCH* match, ITEM_TABLE*) {
    if (match->SERetFlags & SE_FMATCH)
        static_cast<std::vector<NOTEID>*>(ids)->push_back(match->ID.NoteID);
    return NOERROR;
}

STATUS LNCALLBACK countMatch(void* count, SEARCH_MATCH* match, ITEM_TABLE*) {
    *static_cast<int*>(count) += match->SERetFlags & SE_FMATCH;
    return NOERROR;
}

int searchByPlatform(const char* name) {
    const DBHANDLE database = openDatabase(name);
    FORMULAHANDLE formula = NULLHANDLE;
    WORD size = 0, line = 0, column = 0, offset = 0, length = 0;
    STATUS error = NOERROR;
    check(
        NSFFormulaCompile(nullptr, 0, formulaText, MAXWORD, &formula, &size, &error, &line, &column, &offset, &length),
        "NSFFormulaCompile");
    int count = 0;
    check(NSFSearch(database, formula, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, countMatch, &count, nullptr),
          "NSFSearch");
    check(OSMemFree(formula), "OSMemFree");
    check(NSFDbClose(database), "NSFDbClose");
    return count;
}

std::vector<NOTEID> allIds(const char* name) {
    std::vector<NOTEID> ids;
    const DBHANDLE database = openDatabase(name);
    check(NSFSearch(database, NULLHANDLE, nullptr, 0, NOTE_CLASS_ALL, nullptr, collectMatch, &ids, nullptr),
          "NSFSearch");
    check(NSFDbClose(database), "NSFDbClose");
    return ids;
}

void updateByPlatform(const char* name, const std::vector<NOTEID>& ids, const std::string& text) {
    const DBHANDLE database = openDatabase(name);
    for (const NOTEID id : ids) {
        NOTEHANDLE note = NULLHANDLE;
        check(NSFNoteOpen(database, id, 0, &note), "NSFNoteOpen");
        check(NSFItemSetText(note, "Item4", text.data(), static_cast<WORD>(text.size())), "NSFItemSetText");
        check(NSFNoteUpdate(note, UPDATE_FORCE), "NSFNoteUpdate");
        check(NSFNoteClose(note), "NSFNoteClose");
    }
    check(NSFDbClose(database), "NSFDbClose");
}

// ---- The peer: SQLite and the bytes of the items, nothing else

class Peer {
public:
    explicit Peer(const std::string& file) {
        require(sqlite3_open_v2(file.c_str(), &database_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr) ==
                    SQLITE_OK,
                "the peer cannot open its file");
        execute("PRAGMA journal_mode=DELETE; PRAGMA synchronous=FULL; PRAGMA temp_store=MEMORY;");
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    ~Peer() {
        for (sqlite3_stmt* statement : statements_)
            sqlite3_finalize(statement);
        sqlite3_close(database_);
    }

    void execute(const char* sql) {
        require(sqlite3_exec(database_, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sqlite3_errmsg(database_));
    }
    sqlite3_stmt* prepare(const char* sql) {
        sqlite3_stmt* statement = nullptr;
        require(sqlite3_prepare_v2(database_, sql, -1, &statement, nullptr) == SQLITE_OK, sqlite3_errmsg(database_));
        statements_.push_back(statement);
        return statement;
    }
    void write(sqlite3_stmt* statement, size_t bytes) {
        require(sqlite3_step(statement) == SQLITE_DONE, sqlite3_errmsg(database_));
        sqlite3_reset(statement);
        if ((pending_ += bytes) > bytesPerCommit) {
            execute("COMMIT; BEGIN IMMEDIATE");
            pending_ = 0;
        }
    }

private:
    sqlite3* database_ = nullptr;
    std::vector<sqlite3_stmt*> statements_;
    size_t pending_ = 0;
};

template<typename T>
void bindBytes(sqlite3_stmt* statement, int index, const T& value) {
    sqlite3_bind_blob(statement, index, &value, sizeof value, SQLITE_STATIC);
}

std::string_view bytesOf(sqlite3_stmt* row, int column) {
    return {static_cast<const char*>(sqlite3_column_blob(row, column)),
            static_cast<size_t>(sqlite3_column_bytes(row, column))};
}

template<typename T>
void appendWord(std::string& bytes, T value) {
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

void appendTextItem(std::string& items, std::string_view name, std::string_view text) {
    appendWord(items, WORD{ITEM_SUMMARY});
    appendWord(items, WORD{TYPE_TEXT});
    appendWord(items, static_cast<WORD>(name.size()));
    appendWord(items, static_cast<DWORD>(text.size()));
    items += name;
    items += text;
}

TIMEDATE now() {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return embedded::timedateFromHundredths(std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count() /
                                            10);
}

void createByPeer(const std::string& file) {
    Peer peer(file);
    sqlite3_stmt* insert = peer.prepare("INSERT INTO note (id, class, unid, sequence, sequencetime, modified, deleted, "
                                        "items) VALUES (?1,?2,?3,?4,?5,?6,0,?7)");
    peer.execute("BEGIN IMMEDIATE");
    const TIMEDATE replicaId = now();
    std::string items;
    for (int i = 0; i < noteCount; ++i) {
        items.clear();
        for (int item = 0; item < itemCount; ++item)
            appendTextItem(items, itemNames()[static_cast<size_t>(item)], itemText(i, item));
        const TIMEDATE time = now();
        const UNID unid{embedded::generatedUnidFile(replicaId, static_cast<uint32_t>(i)), time};
        sqlite3_bind_int64(insert, 1, 0x8F6 + i * 4);
        sqlite3_bind_int(insert, 2, NOTE_CLASS_DOCUMENT);
        bindBytes(insert, 3, unid);
        sqlite3_bind_int64(insert, 4, 1);
        bindBytes(insert, 5, time);
        bindBytes(insert, 6, time);
        sqlite3_bind_blob(insert, 7, items.data(), static_cast<int>(items.size()), SQLITE_STATIC);
        peer.write(insert, items.size());
    }
    peer.execute("COMMIT");
}

int searchByPeer(const std::string& file) {
    Peer peer(file);
    sqlite3_stmt* select = peer.prepare("SELECT id, class, unid, sequence, sequencetime, modified, deleted, items "
                                        "FROM note ORDER BY id");
    int count = 0;
    while (sqlite3_step(select) == SQLITE_ROW) {
        if (!(sqlite3_column_int(select, 1) & NOTE_CLASS_DOCUMENT) || sqlite3_column_int(select, 6))
            continue;
        embedded::ItemCursor cursor(bytesOf(select, 7));
        for (embedded::ItemView item{}; cursor.next(item);)
            if (item.name == "Form") {
                count += item.type == TYPE_TEXT && item.value == wantedForm;
                break;
            }
    }
    return count;
}

void updateByPeer(const std::string& file, const std::vector<NOTEID>& ids, const std::string& text) {
    Peer peer(file);
    sqlite3_stmt* select = peer.prepare("SELECT sequence, items FROM note WHERE id=?1");
    sqlite3_stmt* update = peer.prepare("UPDATE note SET sequence=?2, sequencetime=?3, modified=?3, items=?4 "
                                        "WHERE id=?1");
    peer.execute("BEGIN IMMEDIATE");
    std::string items;
    for (const NOTEID id : ids) {
        sqlite3_bind_int64(select, 1, id);
        require(sqlite3_step(select) == SQLITE_ROW, "a note is missing");
        items.clear();
        const std::string_view stored = bytesOf(select, 1);
        size_t kept = 0; // the bytes before the old item and after it stay
        embedded::ItemCursor cursor(stored);
        for (embedded::ItemView item{}; cursor.next(item);) {
            const auto end = static_cast<size_t>(item.value.data() + item.value.size() - stored.data());
            if (item.name != "Item4")
                items += stored.substr(kept, end - kept);
            kept = end;
        }
        appendTextItem(items, "Item4", text);
        const TIMEDATE time = now();
        sqlite3_bind_int64(update, 1, id);
        sqlite3_bind_int64(update, 2, sqlite3_column_int64(select, 0) + 1);
        bindBytes(update, 3, time);
        sqlite3_bind_blob(update, 4, items.data(), static_cast<int>(items.size()), SQLITE_STATIC);
        sqlite3_reset(select);
        peer.write(update, items.size());
    }
    peer.execute("COMMIT");
}

// ---- Figures

/** In seconds; the processor's time counts this process alone, whatever else the machine does. */
struct Time {
    double wall = std::numeric_limits<double>::max();
    double cpu = std::numeric_limits<double>::max();
};

Time timeOf(const std::function<void()>& work) {
    const std::clock_t cpuStart = std::clock();
    const auto start = std::chrono::steady_clock::now();
    work();
    return {std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(),
            static_cast<double>(std::clock() - cpuStart) / CLOCKS_PER_SEC};
}

Time bestOf(const Time& a, const Time& b) {
    return {std::min(a.wall, b.wall), std::min(a.cpu, b.cpu)};
}

/** Measures both in turn, `prepare` (not measured) before each pair. */
void compare(benchmark::State& state, const std::function<void()>& prepare, const std::function<void()>& platform,
             const std::function<void()>& peer) {
    Time bestPlatform, bestPeer;
    for (auto _ : state) {
        prepare();
        const Time time = timeOf(platform);
        state.SetIterationTime(time.wall);
        bestPlatform = bestOf(bestPlatform, time);
        bestPeer = bestOf(bestPeer, timeOf(peer));
    }
    state.counters["platform_s"] = bestPlatform.wall;
    state.counters["peer_s"] = bestPeer.wall;
    state.counters["ratio"] = bestPlatform.wall / bestPeer.wall;
    state.counters["cpu_ratio"] = bestPlatform.cpu / bestPeer.cpu;
}

/** Two databases of the same bytes: one for the platform, one for the peer. */
void requireFilledDatabases() {
    static const bool filled = [] {
        folder().makeEmptyDatabase("platform.nsf");
        {
            const Session session;
            createByPlatform("platform.nsf");
        }
        std::filesystem::copy_file(folder().data("platform.nsf"), folder().data("peer.db"));
        return true;
    }();
    (void)filled;
}

/** The process's peak of resident memory in MiB since it was reset, baseline included. */
double peakMebibytes() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmHWM:"))
            return std::strtod(line.c_str() + 6, nullptr) / 1024;
    return 0;
}

void resetPeak() {
    std::ofstream clear("/proc/self/clear_refs");
    require(static_cast<bool>(clear << "5" << std::flush), "the peak of memory cannot be reset");
}

void searchByForm(benchmark::State& state) {
    requireFilledDatabases();
    const Session session;
    double peak = 0;
    const auto counted = [](int count) { require(count == noteCount / formCount, "a search missed notes"); };
    compare(
        state, resetPeak,
        [&] {
            counted(searchByPlatform("platform.nsf"));
            peak = std::max(peak, peakMebibytes());
        },
        [&] { counted(searchByPeer(folder().data("peer.db"))); });
    state.counters["peak_MiB"] = peak;
}

void updateEveryNote(benchmark::State& state) {
    requireFilledDatabases();
    const Session session;
    const std::vector<NOTEID> ids = allIds("platform.nsf");
    std::string text = "text of round 0";
    compare(
        state, [&] { ++text.back(); }, [&] { updateByPlatform("platform.nsf", ids, text); },
        [&] { updateByPeer(folder().data("peer.db"), ids, text); });
}

void createNotes(benchmark::State& state) {
    const Session session;
    compare(
        state,
        [] {
            folder().makeEmptyDatabase("new.nsf");
            std::filesystem::copy_file(folder().data("new.nsf"), folder().data("new.db"),
                                       std::filesystem::copy_options::overwrite_existing);
        },
        [] { createByPlatform("new.nsf"); }, [] { createByPeer(folder().data("new.db")); });
}

BENCHMARK(searchByForm)->Iterations(7)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(updateEveryNote)->Iterations(5)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(createNotes)->Iterations(5)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    try {
        benchmark::Initialize(&argc, argv);
        if (benchmark::ReportUnrecognizedArguments(argc, argv))
            return 2;
        benchmark::RunSpecifiedBenchmarks();
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "platform_bench: %s\n", error.what());
        return 1;
    }
}
