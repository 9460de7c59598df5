#include "dxl_file.h"

#include <iostream>
#include <utility>

#include "failure.h"
#include "platform.h"

namespace krxpatch {
namespace {

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

} // namespace

std::string ImportDxlFile(const std::filesystem::path& database, const std::filesystem::path& dxl, DWORD options) {
    std::string message(size_t{1} << 16, '\0');
    STATUS status = NOERROR;
    {
        const ImportWatch watch(dxl.string());
        status = EmbDxlImport(database.string().c_str(), dxl.string().c_str(), options, message.data(),
                              static_cast<DWORD>(message.size()));
    }
    message.resize(message.find('\0'));
    if (status == ERR_EXISTS) {
        throw Failure(notStarted,
                      database.string() + ": exists already (--force replaces it, --into adds the file's note to it)");
    }
    if (status != NOERROR) {
        throw Failure(status == EMB_ERR_CANCELLED ? interrupted : failed, message);
    }
    return message;
}

} // namespace krxpatch
