#include "folder_view.h"

#include "embedded_notes.h"
#include "server_folder.h"

namespace krxpatch {

DatabaseFolder ViewServer(const std::filesystem::path& folder) {
    return ViewOf(ServerFolder(folder, ServerFolder::Access::readOnly));
}

DatabaseFolder ViewOf(const ServerFolder& server) {
    DatabaseFolder view{server.ProductFolder(), {}};
    for (const std::string& name : server.DatabaseNames()) {
        if (EmbIsOffline(("krx/" + name).c_str())) {
            view.offline.insert(name);
        }
    }
    return view;
}

} // namespace krxpatch
