#include "engine/server/offline_registry.h"

#include <fstream>

#include "engine/system/caller_system.h"
#include "engine/system/replacement_file.h"
#include "engine/values/status_error.h"

namespace embedded {

std::set<std::string> OfflineRegistry::read() const {
    std::set<std::string> databases;
    std::ifstream in(file_);
    for (std::string line; std::getline(in, line);)
        if (!line.empty())
            databases.insert(line);
    return databases;
}

void OfflineRegistry::write(const std::set<std::string>& databases) const {
    if (databases.empty()) {
        std::error_code failed;
        std::filesystem::remove(file_, failed);
        if (failed)
            throw StatusError(EMB_ERR_DISK, pathForCaller(file_) + ": cannot be removed: " + failed.message());
        return;
    }
    ReplacementFile next(file_, ".new");
    std::ofstream out(next.path(), std::ios::trunc);
    for (const std::string& database : databases)
        out << database << '\n';
    out.close();
    if (!out)
        throw StatusError(EMB_ERR_DISK, pathForCaller(file_) + ": cannot be written");
    next.commit();
}

bool OfflineRegistry::contains(const std::filesystem::path& database) const {
    return read().contains(database.string());
}

void OfflineRegistry::add(const std::filesystem::path& database) {
    auto databases = read();
    if (databases.insert(database.string()).second)
        write(databases);
}

void OfflineRegistry::remove(const std::filesystem::path& database) {
    auto databases = read();
    if (databases.erase(database.string()) != 0)
        write(databases);
}

} // namespace embedded
