#include "patch/patch_config.h"

#include "common/ascii_text.h"
#include "foundation/debug_log.h"
#include "foundation/ini_file.h"
#include "patch/program_folder.h"

namespace updkrx {
namespace {

constexpr size_t valueSize = 4096; // more than the store's lines can hold

bool ReadValue(const IniFile& file, const char* key, char (&value)[valueSize]) {
    int size = sizeof value;
    return file.GetValue("Config", key, value, &size) == IDD_ERR_ZERO;
}

/** ReadValue for a key whose absence is logged. */
bool ReadExpectedValue(const IniFile& file, const char* key, char (&value)[valueSize]) {
    const bool found = ReadValue(file, key, value);
    if (!found) {
        DebugLog(level::progress, "Cannot get the value in configuration file. (Config:%s)", key);
    }
    return found;
}

} // namespace

STATUS ReadPatchConfig(PatchRunContext& context) {
    if (!FindProgramFolder(context)) {
        return 1;
    }
    const std::string path = context.programFolder + "/krxpatch.ini";
    IniFile file;
    if (file.Load(path.c_str()) != IDD_ERR_ZERO) {
        DebugLog(level::progress, "Cannot open the file. (%s)", path.c_str());
        return 1;
    }

    char value[valueSize];
    if (!ReadExpectedValue(file, "Files", value)) {
        return 1;
    }
    SplitCommaList(context.fileList, value);

    if (!ReadExpectedValue(file, "BuildNumber", value)) {
        return 1;
    }
    context.patchBuild = NumberOf(value);

    if (ReadExpectedValue(file, "Databases", value)) {
        SplitCommaList(context.databaseList, value);
    }

    context.updateExtension = 0;
    if (!ReadValue(file, "UpdateExt", value)) {
        DebugLog(level::progress, "Needn't update extesion manager.");
    } else if (NumberOf(value) != 0) {
        context.updateExtension = 1;
    }

    context.skipDbSign = 0;
    if (ReadValue(file, "SkipDbSign", value) && NumberOf(value) != 0) {
        context.skipDbSign = 1;
        DebugLog(level::progress, "Database signing will be skiped.");
    }

    DebugLog(level::progress, "The build number in patch configuration is %d", context.patchBuild);
    return 0;
}

} // namespace updkrx
