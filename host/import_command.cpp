#include <iostream>

#include "commands.h"
#include "embedded_notes.h"
#include "hold.h"
#include "path_checks.h"
#include "platform.h"
#include "recovery_copy.h"

namespace krxpatch {
namespace {

/** The next run is going to put back the product's folder, with the database that is about to be made in it. */
void RequireNoDeadRun(std::filesystem::path folder, const std::string& database) {
    for (; folder.has_relative_path(); folder = folder.parent_path()) {
        if (const auto copy = UnendedCopyOf(folder)) {
            throw Failure(failed, database + ": would be lost, because an earlier run died (" + copy->run +
                                      ") and the next one puts back " + folder.string() +
                                      ": do that first, with `krxpatch restore`");
        }
    }
}

/** Tells on a terminal how far the import is, and ends it when somebody asks this process to end. */
class ImportWatch {
public:
    explicit ImportWatch(std::string file) : file_(std::move(file)), shown_(platform::ErrorIsTerminal()) {
        EmbDxlProgressSet(Hear, this);
    }
    ImportWatch(const ImportWatch&) = delete;
    ImportWatch& operator=(const ImportWatch&) = delete;
    ~ImportWatch() {
        EmbDxlProgressSet(nullptr, nullptr);
        if (percent_ >= 0) {
            std::cerr << "\r\x1b[K" << std::flush; // what is told next has the line for itself
        }
    }

private:
    static STATUS LNCALLBACK Hear(void* self, uint64_t done, uint64_t total) {
        static_cast<ImportWatch*>(self)->Show(total == 0 ? 100 : static_cast<int>(done * 100 / total));
        return platform::IsInterrupted() ? EMB_ERR_CANCELLED : NOERROR;
    }

    void Show(int percent) {
        if (shown_ && percent != percent_) {
            percent_ = percent;
            std::cerr << '\r' << file_ << ": " << percent << " %" << std::flush;
        }
    }

    std::string file_;
    bool shown_;
    int percent_ = -1;
};

void MakeDatabase(const ImportOptions& options) {
    std::string message(size_t{1} << 16, '\0');
    const DWORD flags = options.into ? EMB_DXL_INTO : options.force ? EMB_DXL_REPLACE : 0;
    STATUS status = NOERROR;
    {
        const ImportWatch watch(options.dxl.string());
        status = EmbDxlImport(options.database.string().c_str(), options.dxl.string().c_str(), flags, message.data(),
                              static_cast<DWORD>(message.size()));
    }
    message.resize(message.find('\0'));
    if (status == ERR_EXISTS) {
        throw Failure(failed, options.database.string() +
                                  ": exists already (--force replaces it, --into adds the file's note to it)");
    }
    if (status != NOERROR) {
        throw Failure(status == EMB_ERR_CANCELLED ? interrupted : failed, message);
    }
    std::cout << message;
}

} // namespace

ExitCode Import(const ImportOptions& options) {
    RequirePlaceForFile(options.database);
    RequirePlaceForFile(options.dxl);
    const std::filesystem::path folder =
        std::filesystem::canonical(std::filesystem::absolute(options.database).parent_path());
    std::optional<platform::HeldFile> hold;
    if (const auto dataDirectory = DataDirectoryAround(folder)) {
        hold.emplace(Hold(*dataDirectory, DescribeThis("import")));
        RequireNoDeadRun(folder, options.database.string());
    }
    MakeDatabase(options);
    return succeeded;
}

} // namespace krxpatch
