// Which databases are offline. Kept in a file of the server folder, so that a database stays offline across
// processes: one path a line, sorted; no file when none is offline.
#pragma once

#include <filesystem>
#include <set>
#include <string>

namespace embedded {

class OfflineRegistry {
public:
    explicit OfflineRegistry(std::filesystem::path file) : file_(std::move(file)) {}

    [[nodiscard]] bool Contains(const std::filesystem::path& database) const;
    /** Both throw EMB_ERR_DISK, and the registry is then as it was. */
    void Add(const std::filesystem::path& database);
    void Remove(const std::filesystem::path& database);

private:
    [[nodiscard]] std::set<std::string> Read() const;
    void Write(const std::set<std::string>& databases) const;

    std::filesystem::path file_;
};

} // namespace embedded
