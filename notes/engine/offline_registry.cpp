#include "engine/offline_registry.h"

#include <fstream>

#include "engine/caller_system.h"
#include "engine/status_error.h"

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
    std::error_code failed;
    if (databases.empty()) {
        std::filesystem::remove(file_, failed);
    } else {
        std::filesystem::path next = file_;
        next += ".new";
        std::ofstream out(next, std::ios::trunc);
        for (const std::string& database : databases)
            out << database << '\n';
        out.close();
        if (!out)
            failed = std::make_error_code(std::errc::io_error);
        else
            std::filesystem::rename(next, file_, failed);
    }
    if (failed)
        throw StatusError(EMB_ERR_DISK, pathForCaller(file_) + ": cannot be written");
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
