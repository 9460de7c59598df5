// Everything that is constructed at load stands in this one file, in the order of construction.
#include "common/startup.h"

#include "common/common_log.h"
#include "common/name_texts.h"
#include "os/os.h"

namespace updkrx {

RwLock CommonLogLock;

constinit CommonLogRecord CommonLogSettings;

namespace {

/** The steps that leave nothing to tear down. */
struct LoadSteps {
    LoadSteps() noexcept {
        CommonLogSettings.is64Bit = GetOSIf64Bit();
        for (char* text : StringPool) {
            ReplaceCharacters(text, CharPairTable);
        }
        os::PutEnvironment("BQ_DISABLE_EM", "1");
    }
};

const LoadSteps loadSteps;

} // namespace

std::map<std::string, std::string> gMap;
std::set<std::string> ObsoleteUNIDSet;
std::map<std::string, std::string> DoubtfulUNIDMap;
std::set<std::string> RetiredDocumentUNIDSet;

bool GetOSIf64Bit() noexcept {
    static constinit int32_t cached = -1;
    if (cached == -1) {
        CommonLogWrite("..\\common\\BqCommon", 1284, 3, "GetOSIf64Bit() _first time");
        cached = 1;
        return true;
    }
    return cached == 1;
}

} // namespace updkrx
