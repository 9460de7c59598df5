// The configuration database's migrations.
//
// replaceReferences: the text work of replacing obsolete UNIDs in rule texts, its index included, for several numbers
// of UNIDs and documents; where "speedup" stands, beside a search for each UNID in each entry, whose result must be the
// same. The goal is 20.
//
// migrateConfiguration: the whole migration of a large database. "own_share" is the part of the time that is spent in
// the module and not in the Notes API; the goal is at most 0.15.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "common/startup.h"
#include "embedded_notes.h"
#include "foundation/unid_text.h"
#include "migrations/conf_migration.h"
#include "migrations/dlp_upgrade.h"
#include "migrations/text_replacements.h"
#include "platform_time.h"

namespace {

using Clock = std::chrono::steady_clock;
using updkrx::TextReplacements;

double Seconds(Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

void Require(bool holds, const char* what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

void Check(STATUS status, const char* operation) {
    if (status != NOERROR) {
        throw std::runtime_error(std::string(operation) + ": status " + std::to_string(status));
    }
}

// ---- Texts

std::mt19937_64& RandomNumbers() {
    static std::mt19937_64 engine(5'8'0);
    return engine;
}

size_t RandomBelow(size_t end) {
    return RandomNumbers()() % end;
}

UNID RandomUnid() {
    UNID unid;
    for (DWORD* word : {&unid.File.Innards[0], &unid.File.Innards[1], &unid.Note.Innards[0], &unid.Note.Innards[1]}) {
        *word = static_cast<DWORD>(RandomNumbers()());
    }
    return unid;
}

std::string UnidText(const UNID& unid) {
    char text[updkrx::unidTextSize];
    updkrx::FormatUnidText(unid, text);
    return text;
}

/** A rule of 80 to 200 characters that names two documents, one time in thirty an obsolete one. */
std::string RuleText(const std::vector<std::string>& obsolete) {
    const auto reference = [&] {
        return RandomBelow(60) == 0 && !obsolete.empty() ? obsolete[RandomBelow(obsolete.size())]
                                                         : UnidText(RandomUnid());
    };
    std::string text = "ENTITY(" + reference() + ") >= 5 AND DICTIONARY(" + reference() + ") >= 1";
    static const std::string filler = " AND Subject CONTAINS any of the words in the list of the customer's own terms "
                                      "BEFORE 2026 or FACE value above 1000";
    return text + filler.substr(0, RandomBelow(std::min<size_t>(filler.size(), 200 - text.size()) + 1));
}

// ---- The text work

using Pairs = TextReplacements::Pairs;
using Document = std::vector<std::string>; // the entries of its rule

struct TextCase {
    Pairs pairs;
    std::vector<Document> documents;
};

TextCase MakeTextCase(size_t keys, size_t documents) {
    constexpr size_t entries = 50;
    TextCase made;
    std::vector<std::string> obsolete;
    while (obsolete.size() < keys) {
        obsolete.push_back(UnidText(RandomUnid()));
        made.pairs.emplace(obsolete.back(), UnidText(RandomUnid()));
    }
    // One pair in ten brings about what may be a later key.
    for (size_t i = 0; i + 1 < obsolete.size(); i += 10) {
        made.pairs[obsolete[i]] = obsolete[i + 1];
    }
    made.documents.resize(documents);
    for (Document& document : made.documents) {
        while (document.size() < entries) {
            document.push_back(RuleText(obsolete));
        }
    }
    return made;
}

bool ReplaceIn(Document& document, const TextReplacements& replacements) {
    if (std::ranges::none_of(document, [&](const std::string& entry) { return replacements.OccurIn(entry); })) {
        return false;
    }
    for (std::string& entry : document) {
        replacements.Apply(entry, [](auto) {});
    }
    return true;
}

/** The peer: each key is searched for in each entry. */
bool SearchEachKeyIn(Document& document, const Pairs& pairs) {
    const auto isObsolete = [&](const std::string& entry) {
        return std::ranges::any_of(pairs,
                                   [&](const auto& pair) { return entry.find(pair.first) != std::string::npos; });
    };
    if (std::ranges::none_of(document, isObsolete)) {
        return false;
    }
    for (std::string& entry : document) {
        for (const auto& [key, value] : pairs) {
            if (const size_t position = entry.find(key); position != std::string::npos) {
                entry.replace(position, key.size(), value);
            }
        }
    }
    return true;
}

void ReplaceReferences(benchmark::State& state) {
    const TextCase texts = MakeTextCase(static_cast<size_t>(state.range(0)), static_cast<size_t>(state.range(1)));
    std::vector<Document> documents;
    double best = 0;
    size_t changed = 0;
    for (auto _ : state) {
        documents = texts.documents;
        changed = 0;
        const auto start = Clock::now();
        const TextReplacements replacements(texts.pairs);
        for (Document& document : documents) {
            changed += ReplaceIn(document, replacements);
        }
        const double time = Seconds(Clock::now() - start);
        state.SetIterationTime(time);
        best = best == 0 ? time : std::min(best, time);
    }
    state.counters["ns_per_entry"] = best * 1e9 / static_cast<double>(50 * documents.size());
    state.counters["changed"] = static_cast<double>(changed);
    if (state.range(2) == 0) {
        return;
    }
    std::vector<Document> expected = texts.documents;
    const auto start = Clock::now();
    for (Document& document : expected) {
        SearchEachKeyIn(document, texts.pairs);
    }
    const double peer = Seconds(Clock::now() - start);
    Require(documents == expected, "the replacements differ from those of a search for each key");
    state.counters["peer_s"] = peer;
    state.counters["speedup"] = peer / best;
}

// ---- The whole migration

/** A server folder with a session on it. */
class Server {
public:
    Server() {
        std::string pattern = (std::filesystem::temp_directory_path() / "conf_bench.XXXXXX").string();
        Require(mkdtemp(pattern.data()) != nullptr, "cannot make a temporary folder");
        path_ = pattern;
        std::filesystem::create_directories(path_ / "data/krx");
        std::ofstream(path_ / "notes.ini") << "Directory=data\n";
        std::ofstream(path_ / "empty.dxl") << "<database xmlns='http://www.lotus.com/dxl' title='bench'/>\n";
        char message[512] = "";
        Require(EmbSessionBegin((path_ / "notes.ini").c_str(), 0, message, sizeof message) == NOERROR, message);
        EmbClockSetVirtual(int64_t{1'800'000'000} * 100);
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    ~Server() {
        EmbSessionEnd();
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    [[nodiscard]] DBHANDLE NewDatabase(const char* name) const {
        char message[512] = "";
        Require(EmbDxlImport((path_ / "data" / name).c_str(), (path_ / "empty.dxl").c_str(), EMB_DXL_REPLACE, message,
                             sizeof message) == NOERROR,
                message);
        DBHANDLE database = NULLHANDLE;
        Check(NSFDbOpen(name, &database), "NSFDbOpen");
        return database;
    }

private:
    std::filesystem::path path_;
};

void SetText(NOTEHANDLE note, const char* item, const std::string& text) {
    Check(NSFItemSetText(note, item, text.c_str(), static_cast<WORD>(text.size())), "NSFItemSetText");
}

void SetList(NOTEHANDLE note, const char* item, const std::vector<std::string>& entries) {
    for (const std::string& entry : entries) {
        Check(NSFItemAppendTextList(note, item, entry.c_str(), static_cast<WORD>(entry.size()), 0),
              "NSFItemAppendTextList");
    }
}

struct DlpDocument {
    const char* form;
    std::string name;
    UNID unid;
    bool predefined;
};

/** Writes a document that refers to four others, of the list or, one time in fifteen, obsolete. */
void WriteDocument(DBHANDLE database, const DlpDocument& document, const std::vector<DlpDocument>& others,
                   const std::vector<std::string>& obsolete) {
    const auto references = [&] {
        std::vector<std::string> made;
        while (made.size() < 4) {
            made.push_back(RandomBelow(60) == 0 ? obsolete[RandomBelow(obsolete.size())]
                                                : UnidText(others[RandomBelow(others.size())].unid));
        }
        return made;
    };
    NOTEHANDLE note = NULLHANDLE;
    Check(NSFNoteCreate(database, &note), "NSFNoteCreate");
    OID oid = {document.unid.File, document.unid.Note, 1, {}};
    NSFNoteSetInfo(note, _NOTE_OID, &oid);
    SetText(note, "Form", document.form);
    SetText(note, "name", document.name);
    SetText(note, "pre-defined", document.predefined ? "true" : "false");
    SetText(note, "description", "What this document is for, in a sentence or two, as the administrator sees it.");
    SetList(note, "words", {"Rechnung", "invoice", "facture", "Kontonummer", "account", "compte"});
    SetList(note, "ReferDocs", references());
    SetList(note, "UseDocs", references());
    if (document.form == std::string("template")) {
        std::vector<std::string> rules;
        while (rules.size() < 20) {
            rules.push_back(RuleText(obsolete));
        }
        SetList(note, "matchRule", rules);
    }
    Check(NSFNoteUpdate(note, 0), "NSFNoteUpdate");
    Check(NSFNoteClose(note), "NSFNoteClose");
}

/** 20,000 documents of all forms. The template has 2,000 of them under the same UNID, 500 under another one, 500 that
 *  are the customer's own, and 1,000 new ones. */
void MakeDatabases(const Server& server) {
    constexpr size_t count = 20'000, same = 2'000, different = 500, own = 500, added = 1'000;
    std::vector<DlpDocument> documents;
    std::vector<DlpDocument> shipped;
    std::vector<std::string> obsolete;
    for (size_t i = 0; i < count + added; ++i) {
        const char* form = updkrx::DlpForms[i % std::size(updkrx::DlpForms)];
        const bool customers = i >= same + different && i < count;
        const DlpDocument document = {form, "Document " + std::to_string(i), RandomUnid(), !customers};
        if (i < count) {
            documents.push_back(document);
        }
        if (i >= same + different + own && i < count) {
            continue;
        }
        shipped.push_back(document);
        if (i >= same && i < same + different) {
            shipped.back().unid = RandomUnid();
            obsolete.push_back(UnidText(shipped.back().unid));
        }
    }
    for (const auto& [path, written] :
         {std::pair{"krx/krconf.nsf", &documents}, std::pair{"krx/krconf.ntf", &shipped}}) {
        const DBHANDLE database = server.NewDatabase(path);
        for (const DlpDocument& document : *written) {
            WriteDocument(database, document, documents, obsolete);
        }
        Check(NSFDbClose(database), "NSFDbClose");
    }
}

void MigrateConfiguration(benchmark::State& state) {
    const Server server;
    for (auto _ : state) {
        MakeDatabases(server);
        updkrx::gMap.clear();
        updkrx::ObsoleteUNIDSet.clear();
        platform_time::Start();
        Check(updkrx::MigrateConfDatabase(), "MigrateConfDatabase");
        const auto [ownTime, platformTime] = platform_time::TimeSpent();
        Require(updkrx::gMap.size() == 500, "the migration did not replace what it should");
        const double own = Seconds(ownTime);
        const double platform = Seconds(platformTime);
        state.SetIterationTime(own + platform);
        state.counters["own_s"] = own;
        state.counters["platform_s"] = platform;
        state.counters["own_share"] = own / (own + platform);
    }
}

// Numbers of UNIDs and of documents; 1 where the peer is measured too.
BENCHMARK(ReplaceReferences)
    ->Args({50, 10'000, 0})
    ->Args({500, 1'000, 0})
    ->Args({500, 10'000, 1})
    ->Args({5'000, 10'000, 0})
    ->Iterations(3)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(MigrateConfiguration)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

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
        std::fprintf(stderr, "conf_bench: %s\n", error.what());
        return 1;
    }
}
