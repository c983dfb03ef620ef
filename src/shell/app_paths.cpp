#include "shell/app_paths.h"

#include <cstdlib>
#include <filesystem>
#include <pwd.h>
#include <unistd.h>

namespace fs = std::filesystem;

std::string WithTrailingSlash(const std::string& folder)
{
    if (folder.empty() || folder.back() == '/') return folder;
    return folder + "/";
}

std::string ExecutableDirectory()
{
    std::error_code ec;
    fs::path exe = fs::read_symlink("/proc/self/exe", ec);
    if (ec) return WithTrailingSlash(fs::current_path(ec).string());
    return WithTrailingSlash(exe.parent_path().string());
}

std::string FindWorkDir(const std::vector<std::string>& candidates)
{
    std::error_code ec;
    for (const std::string& c : candidates) {
        if (c.empty()) continue;
        if (fs::is_regular_file(fs::path(c) / "skin" / "btnst.bmp", ec)) {
            fs::path canonical = fs::weakly_canonical(fs::path(c), ec);
            return WithTrailingSlash(ec ? c : canonical.string());
        }
    }
    return candidates.empty() ? std::string() : WithTrailingSlash(candidates.front());
}

std::string ConfigDirectory()
{
    const char* xdg = std::getenv("XDG_CONFIG_HOME");
    if (xdg && xdg[0] == '/') return xdg;
    const char* home = std::getenv("HOME");
    std::string h;
    if (home && *home) {
        h = home;
    } else if (const passwd* pw = getpwuid(getuid())) {
        h = pw->pw_dir;
    } else {
        h = "/tmp";
    }
    return h + "/.config";
}

std::string DefaultProfilePath()
{
    return ConfigDirectory() + "/velmorando/Velmorando.ini";
}

std::string FindOnPath(const std::string& name)
{
    if (name.empty()) return {};
    if (name.find('/') != std::string::npos) return access(name.c_str(), X_OK) == 0 ? name : std::string();
    const char* path = std::getenv("PATH");
    if (!path) return {};
    std::string all = path;
    size_t start = 0;
    while (start <= all.size()) {
        size_t end = all.find(':', start);
        if (end == std::string::npos) end = all.size();
        std::string dir = all.substr(start, end - start);
        if (!dir.empty()) {
            std::string candidate = WithTrailingSlash(dir) + name;
            std::error_code ec;
            if (fs::is_regular_file(candidate, ec) && access(candidate.c_str(), X_OK) == 0) return candidate;
        }
        start = end + 1;
    }
    return {};
}
