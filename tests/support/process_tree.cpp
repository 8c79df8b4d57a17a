#include "tests/support/process_tree.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <unistd.h>

namespace nimbrale::test {

namespace {

/// Of every process that the kernel shows, its parent.
std::map<pid_t, pid_t> parentsOfProcesses()
{
    std::map<pid_t, pid_t> parents;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const pid_t process = std::atoi(entry.path().filename().c_str());
        std::ifstream file(entry.path() / "stat");
        std::string text;
        if (process <= 0 || !std::getline(file, text))
            continue;
        // "12 (name) S 34 …", where the name may hold anything.
        const std::size_t name = text.rfind(')');
        if (name != std::string::npos && name + 4 < text.size())
            parents[process] = std::atoi(text.c_str() + name + 4);
    }
    return parents;
}

} // namespace

std::vector<pid_t> descendants()
{
    const std::map<pid_t, pid_t> parents = parentsOfProcesses();
    std::vector<pid_t> found{getpid()};
    for (std::size_t index = 0; index < found.size(); ++index) {
        for (const auto& [process, parent] : parents) {
            if (parent == found[index])
                found.push_back(process);
        }
    }
    found.erase(found.begin());
    return found;
}

} // namespace nimbrale::test
