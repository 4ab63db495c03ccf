#include "moxphone/CatalogueLocation.h"

#include <filesystem>
#include <system_error>

namespace moxphone {

namespace fs = std::filesystem;

std::string CatalogueLocation::directory() {
    return choose(runningExecutable(), MOXPHONE_INSTALLED_CATALOG_DIR, MOXPHONE_CATALOG_DIR);
}

std::string CatalogueLocation::choose(const std::string& executable, const std::string& installed,
                                      const std::string& built) {
    if (executable.empty()) {
        return built;
    }
    std::error_code error;
    const fs::path candidate = fs::path(executable).parent_path() / installed;
    if (!fs::is_regular_file(candidate / "sample.json", error)) {
        return built;
    }
    const fs::path canonical = fs::canonical(candidate, error);
    return error ? built : canonical.string();
}

std::string CatalogueLocation::runningExecutable() {
    std::error_code error;
    const fs::path self = fs::read_symlink("/proc/self/exe", error);
    return error ? std::string() : self.string();
}

}  // namespace moxphone
