#include "engine/server/offline_registry.h"

#include <fstream>

#include "engine/system/caller_system.h"
#include "engine/system/replacement_file.h"
#include "engine/values/status_error.h"

namespace embedded {

std::set<std::string> OfflineRegistry::Read() const {
    std::set<std::string> databases;
    std::ifstream in(file_);
    for (std::string line; std::getline(in, line);) {
        if (!line.empty()) {
            databases.insert(line);
        }
    }
    return databases;
}

void OfflineRegistry::Write(const std::set<std::string>& databases) const {
    if (databases.empty()) {
        std::error_code failed;
        std::filesystem::remove(file_, failed);
        if (failed) {
            throw StatusError(EMB_ERR_DISK, PathForCaller(file_) + ": cannot be removed: " + failed.message());
        }
        return;
    }
    ReplacementFile next(file_, ".new");
    std::ofstream out(next.Path(), std::ios::trunc);
    for (const std::string& database : databases) {
        out << database << '\n';
    }
    out.close();
    if (!out) {
        throw StatusError(EMB_ERR_DISK, PathForCaller(file_) + ": cannot be written");
    }
    next.Commit();
}

bool OfflineRegistry::Contains(const std::filesystem::path& database) const {
    return Read().contains(database.string());
}

void OfflineRegistry::Add(const std::filesystem::path& database) {
    auto databases = Read();
    if (databases.insert(database.string()).second) {
        Write(databases);
    }
}

void OfflineRegistry::Remove(const std::filesystem::path& database) {
    auto databases = Read();
    if (databases.erase(database.string()) != 0) {
        Write(databases);
    }
}

} // namespace embedded
