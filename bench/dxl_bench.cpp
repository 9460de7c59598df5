// How much importing DXL costs over what it cannot do without: a bare parse of the file, and an insert of the rows that
// come of it. Its peer does these two, with the same parser and the same table, in the same run. Both are measured in
// turn; "ratio" is the import's best time over the peer's best. The goal is 2.0.
//
// In front of that, the largest memory of a process that does nothing but import a file of a size, and of one that does
// nothing but export. dxl_bench [MB...]: the sizes, 10 and 100 without any.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <expat.h>
#include <sqlite3.h>

#include "embedded_notes.h"

namespace {

constexpr int noteCount = 100'000;
constexpr int itemCount = 10;
constexpr int rounds = 5;
constexpr size_t bytesPerCommit = size_t{64} << 20; // as the platform bounds its journal

void Require(bool holds, const char* what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

class Folder {
public:
    Folder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "dxl_bench.XXXXXX").string();
        Require(mkdtemp(pattern.data()) != nullptr, "cannot make a temporary folder");
        path_ = pattern;
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    [[nodiscard]] std::string Path(const char* name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

// ---- The file: documents as a server writes them, with texts, numbers, times and a list

void WriteNote(std::ostream& out, int note) {
    char info[512];
    std::snprintf(info, sizeof info,
                  "<note class='document'><noteinfo noteid='%x' unid='%08X64B4D0C1C12589A1003471AA' sequence='3'>"
                  "<created><datetime>20240112T103012,07+01</datetime></created>"
                  "<modified><datetime>20240207T081402,55+01</datetime></modified>"
                  "<revised><datetime>20240207T081402,54+01</datetime></revised></noteinfo>\n"
                  "<updatedby><name>CN=Ada Berg/O=Varnholt</name></updatedby>\n",
                  0x8F6 + 4 * note, note + 1);
    out << info << "<item name='Form'><text>Policy</text></item>\n";
    const std::string filler = "some text of an item that is neither short nor long, with an \xC3\xA4 in it";
    for (int item = 0; item < itemCount; ++item) {
        out << "<item name='Item" << item << "'><text>"
            << filler.substr(0, 10 + static_cast<size_t>((note + item) % 40)) << "</text></item>\n";
    }
    out << "<item name='Priority'><number>" << note % 17 << "</number></item>\n"
        << "<item name='Valid'><datetime>20240601T120000,00+02</datetime></item>\n"
        << "<item name='Names' names='true'><textlist><text>CN=Ada Berg/O=Varnholt</text><text>*@example.com</text>"
           "</textlist></item></note>\n";
}

void WriteFile(const std::string& file, const std::function<bool(int note, std::ostream& out)>& more) {
    std::ofstream out(file, std::ios::binary);
    out << "<?xml version='1.0' encoding='utf-8'?>\n<database xmlns='http://www.lotus.com/dxl' "
           "replicaid='C12589A100345F20' title='bench'>\n";
    for (int note = 0; more(note, out); ++note) {
        WriteNote(out, note);
    }
    out << "</database>\n";
    Require(out.good(), "cannot write the file");
}

void Import(const std::string& database, const std::string& dxl) {
    char message[512] = "";
    Require(EmbDxlImport(database.c_str(), dxl.c_str(), EMB_DXL_REPLACE, message, sizeof message) == NOERROR, message);
}

void Export(const std::string& database, const std::string& dxl) {
    char message[512] = "";
    Require(EmbDxlExport(database.c_str(), dxl.c_str(), 0, message, sizeof message) == NOERROR, message);
}

// ---- The peer

using Row = std::array<std::string, 4>; // the values that are bytes
struct Rows {
    std::vector<Row> bytes;
    std::vector<std::array<sqlite3_int64, 4>> numbers;
};

constexpr int numberColumns[] = {0, 1, 3, 6};
constexpr int byteColumns[] = {2, 4, 5, 7};

void Sql(sqlite3* database, const char* sql) {
    Require(sqlite3_exec(database, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sqlite3_errmsg(database));
}

Rows ReadRows(const std::string& file) {
    Rows rows;
    sqlite3* database = nullptr;
    sqlite3_stmt* select = nullptr;
    Require(sqlite3_open_v2(file.c_str(), &database, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK, "cannot open");
    Require(sqlite3_prepare_v2(database,
                               "SELECT id, class, unid, sequence, sequencetime, modified, deleted, items FROM note", -1,
                               &select, nullptr) == SQLITE_OK,
            sqlite3_errmsg(database));
    while (sqlite3_step(select) == SQLITE_ROW) {
        auto& numbers = rows.numbers.emplace_back();
        Row& bytes = rows.bytes.emplace_back();
        for (size_t i = 0; i < numbers.size(); ++i) {
            numbers[i] = sqlite3_column_int64(select, numberColumns[i]);
            bytes[i].assign(static_cast<const char*>(sqlite3_column_blob(select, byteColumns[i])),
                            static_cast<size_t>(sqlite3_column_bytes(select, byteColumns[i])));
        }
    }
    sqlite3_finalize(select);
    sqlite3_close(database);
    return rows;
}

void Parse(const std::string& file) {
    constexpr size_t block = size_t{1} << 16;
    const XML_Parser parser = XML_ParserCreate(nullptr);
    std::ifstream in(file, std::ios::binary);
    for (bool more = true; more;) {
        in.read(static_cast<char*>(XML_GetBuffer(parser, block)), block);
        more = !in.eof();
        Require(XML_ParseBuffer(parser, static_cast<int>(in.gcount()), !more) == XML_STATUS_OK, "cannot parse");
    }
    XML_ParserFree(parser);
}

void InsertRows(const std::string& file, const Rows& rows) {
    std::filesystem::remove(file);
    sqlite3* database = nullptr;
    sqlite3_stmt* insert = nullptr;
    Require(sqlite3_open(file.c_str(), &database) == SQLITE_OK, "cannot open");
    Sql(database, "PRAGMA journal_mode=DELETE; PRAGMA synchronous=FULL; PRAGMA temp_store=MEMORY; BEGIN IMMEDIATE;"
                  "CREATE TABLE note (id INTEGER PRIMARY KEY, unid BLOB NOT NULL UNIQUE, class INTEGER NOT NULL,"
                  " sequence INTEGER NOT NULL, sequencetime BLOB NOT NULL, modified BLOB NOT NULL,"
                  " deleted INTEGER NOT NULL, items BLOB NOT NULL)");
    Require(sqlite3_prepare_v2(database,
                               "INSERT INTO note (id, class, unid, sequence, sequencetime, modified, deleted, items) "
                               "VALUES (?1,?2,?3,?4,?5,?6,?7,?8)",
                               -1, &insert, nullptr) == SQLITE_OK,
            sqlite3_errmsg(database));
    size_t pending = 0;
    for (size_t row = 0; row < rows.bytes.size(); ++row) {
        for (size_t i = 0; i < rows.bytes[row].size(); ++i) {
            const std::string& bytes = rows.bytes[row][i];
            sqlite3_bind_int64(insert, numberColumns[i] + 1, rows.numbers[row][i]);
            sqlite3_bind_blob64(insert, byteColumns[i] + 1, bytes.data(), bytes.size(), SQLITE_STATIC);
            pending += bytes.size();
        }
        Require(sqlite3_step(insert) == SQLITE_DONE, sqlite3_errmsg(database));
        sqlite3_reset(insert);
        if (pending > bytesPerCommit) {
            Sql(database, "COMMIT; BEGIN IMMEDIATE");
            pending = 0;
        }
    }
    Sql(database, "COMMIT");
    sqlite3_finalize(insert);
    sqlite3_close(database);
}

// ---- The table

double SecondsOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/** Of a process of its own, in MiB. */
long PeakMemoryOf(const std::function<void()>& work) {
    const pid_t child = fork();
    Require(child >= 0, "cannot fork");
    if (child == 0) {
        try {
            work();
        } catch (const std::exception&) {
            _exit(1);
        }
        _exit(0);
    }
    int status = 0;
    rusage usage{};
    Require(wait4(child, &status, 0, &usage) == child && status == 0, "the child failed");
    return usage.ru_maxrss / 1024;
}

void PrintMemory(const Folder& folder, long megabytes) {
    const std::string dxl = folder.Path("memory.dxl");
    WriteFile(dxl, [&](int, std::ostream& out) { return out.tellp() < std::streamoff{megabytes} << 20; });
    const std::string database = folder.Path("memory.nsf");
    const long import = PeakMemoryOf([&] { Import(database, dxl); });
    const long whole = PeakMemoryOf([&] { Export(database, folder.Path("memory.out.dxl")); });
    std::printf("%6ld MB   import %4ld MiB   export %4ld MiB\n", megabytes, import, whole);
    std::fflush(stdout);
}

void PrintTimes(const Folder& folder) {
    const std::string dxl = folder.Path("a.dxl"), database = folder.Path("a.nsf"), peer = folder.Path("peer.db");
    WriteFile(dxl, [](int note, std::ostream&) { return note < noteCount; });
    Import(database, dxl);
    const Rows rows = ReadRows(database);
    double import = 1e9, parse = 1e9, insert = 1e9;
    for (int round = 0; round < rounds; ++round) {
        import = std::min(import, SecondsOf([&] { Import(database, dxl);
    }));
    parse = std::min(parse, SecondsOf([&] { Parse(dxl); }));
    insert = std::min(insert, SecondsOf([&] { InsertRows(peer, rows); }));
}
std::printf("%d documents, %.0f MB: import %.2f s, peer %.2f s (parse %.2f, insert %.2f), ratio %.2f\n", noteCount,
            static_cast<double>(std::filesystem::file_size(dxl)) / 1e6, import, parse + insert, parse, insert,
            import / (parse + insert));
} // namespace

} // namespace

int main(int argc, char** argv) {
    try {
        const Folder folder;
        std::vector<long> sizes(argv + 1 == argv + argc ? std::vector<long>{10, 100} : std::vector<long>());
        for (int i = 1; i < argc; ++i) {
            sizes.push_back(std::strtol(argv[i], nullptr, 10));
        }
        for (const long size : sizes) {
            PrintMemory(folder, size); // first, while this process is small itself
        }
        PrintTimes(folder);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "dxl_bench: %s\n", error.what());
        return 1;
    }
}
