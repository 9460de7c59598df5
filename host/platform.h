// The one seam of krxpatch to the operating system: platform_<system>.cpp implements it and the build picks one.
#pragma once

#include <filesystem>
#include <string>

namespace krxpatch::platform {

/** The file name of the upgrade module. */
extern const char* const moduleFile;

/** The folder that this program was started from. */
[[nodiscard]] std::filesystem::path ExecutableFolder();

/** A library loaded into this process, for as long as this object lives. */
class Library {
public:
    /** Throws Failure with the file and the cause, as something that is missing. */
    explicit Library(const std::filesystem::path& file);
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    /** The function that the library exports under this name; throws Failure when it exports none. */
    template<class Function>
    [[nodiscard]] Function* Find(const char* name) const {
        return reinterpret_cast<Function*>(FindAddress(name));
    }

private:
    [[nodiscard]] void* FindAddress(const char* name) const;

    std::filesystem::path file_;
    void* handle_;
};

} // namespace krxpatch::platform
