// The checks of notes.ini.
#include <algorithm>
#include <map>
#include <string_view>

#include "behaviours.h"
#include "checks.h"
#include "foundation/debug_log.h"
#include "path_checks.h"
#include "platform.h"
#include "utf8_path.h"

namespace krxpatch {
namespace {

namespace fs = std::filesystem;

size_t LineOf(const CheckSubject& subject, std::string_view key) {
    const auto line = subject.settings.Find("", key);
    return line ? line->number : 0;
}

/** Names without which the upgrade does its work in another name, or not. */
constexpr struct {
    const char* key;
    Level level;
    const char* without;
} names[] = {
    {"MailServer", Level::failure, "signed databases lose their replication settings, and get none for this server"},
    {"EmbeddedIDName", Level::warning, "the design is signed as the platform's default ID and not as this server"},
};

void CheckNames(const CheckSubject& subject, Findings& findings) {
    for (const auto& [key, level, without] : names) {
        if (const auto line = subject.settings.Find("", key); !line || line->value.empty()) {
            findings.Add({level,
                          {},
                          subject.server.IniFile(),
                          line ? line->number : 0,
                          std::string("no ") + key + "=: " + without,
                          std::string("add ") + key + "=CN=SERVER/O=ORGANISATION"});
        }
    }
}

void CheckRepeatedKeys(const CheckSubject& subject, Findings& findings) {
    std::map<std::string, const ConfigLine*> first;
    for (const ConfigLine& line : subject.settings.Lines()) {
        const std::string key = LowerCase(WithoutBlanks(line.key));
        if (key.empty() || key.starts_with(';')) {
            continue;
        }
        if (const auto [known, isNew] = first.try_emplace(key, &line); !isNew) {
            findings.Warn(subject.server.IniFile(), line.number,
                          "a second line " + WithoutBlanks(line.key) + "=, which does not count: line " +
                              std::to_string(known->second->number) + " does",
                          "remove one of the two");
        }
    }
}

void CheckProgramFolder(const CheckSubject& subject, Findings& findings) {
    const fs::path file = subject.server.IniFile();
    const auto line = subject.settings.Find("", "VarnholtInstallPath");
    if (!line || line->value.empty()) {
        findings.Fail(file, 0, "no VarnholtInstallPath=: nobody knows where the patch is",
                      "add the path of the folder that holds program/V5.8.0.NNNN");
    } else if (const fs::path path = PathOf(line->value); !path.is_absolute()) {
        findings.Fail(file, line->number, "VarnholtInstallPath=" + line->value + " is not an absolute path",
                      "write the whole path");
    } else if (!IsBelow(path, subject.server.Path())) {
        findings.Fail(file, line->number,
                      "VarnholtInstallPath=" + line->value +
                          " lies outside this server folder: a rehearsal would use another server's program folder",
                      "name a folder below " + subject.server.Path().string() +
                          ", or go on with --force if that is meant");
    }
}

void CheckLog(const CheckSubject& subject, Findings& findings) {
    const fs::path file = subject.server.IniFile();
    const fs::path folder = subject.server.LogFolder();
    if (!updkrx::IsDebugLogEnabled()) {
        findings.Warn(file, LineOf(subject, "KRX_ENABLE_KRENCY_LOG"),
                      "the module's log is off: no steps are shown, and nobody can say why something failed",
                      "write KRX_ENABLE_KRENCY_LOG=1");
        return;
    }
    std::error_code ignored; // what cannot be looked at is no folder
    if (!fs::is_directory(folder, ignored)) {
        findings.Warn(folder, 0,
                      std::string(fs::exists(folder, ignored) ? "is no folder" : "no such folder") +
                          ": the module's log, which is on, is lost",
                      "make the folder");
    } else if (const std::string why = platform::WhyUnwritable(folder); !why.empty()) {
        findings.Warn(folder, 0, why + ": the module's log, which is on, is lost", "let this user write there");
    }
    for (const fs::directory_entry& log : fs::directory_iterator(folder, ignored)) {
        if (const std::string why = platform::WhyUnwritable(log.path()); !why.empty()) {
            findings.Warn(log.path(), 0, why + ": on the day of this file the module's log, which is on, is lost",
                          "remove the file, or run krxpatch as the user whom it belongs to");
        }
    }
    constexpr size_t longest = 255 - std::string_view("/updkrx_20261123.dbg").size();
    const std::string path = folder.string();
    if (path.size() > longest) {
        findings.Warn(folder, 0, "the path is too long for the module's log", "use a shorter data directory");
    } else if (std::ranges::any_of(path, [](char byte) { return (byte & 0x80) != 0; })) {
        findings.Warn(folder, 0, "the module's log cannot be written under a name that is not all ASCII letters",
                      "use a data directory of ASCII letters");
    }
}

void CheckBehaviours(const CheckSubject& subject, Findings& findings) {
    if (const std::string behaviours = DescribeBehaviours(); !behaviours.empty()) {
        findings.Warn(subject.server.IniFile(), LineOf(subject, "EmbeddedBehaviour"),
                      "behaviours that are not the default are on: " + behaviours,
                      "remove the line EmbeddedBehaviour=, unless the server to be upgraded behaves so");
    }
}

constexpr CheckRow rows[] = {
    {"server's name", CheckNames}, {"repeated settings", CheckRepeatedKeys}, {"program folder", CheckProgramFolder},
    {"module's log", CheckLog},    {"behaviours", CheckBehaviours},
};

} // namespace

std::span<const CheckRow> SettingsChecks() {
    return rows;
}

} // namespace krxpatch
