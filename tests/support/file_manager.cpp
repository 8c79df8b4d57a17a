#include "tests/support/file_manager.h"

#include <fstream>
#include <iterator>

namespace nimbrale::test {

namespace {

std::filesystem::path notesIn(const std::filesystem::path& folder)
{
    return folder / "revealed";
}

} // namespace

std::string putFileManager(const std::filesystem::path& folder, const std::string& path)
{
    const std::filesystem::path programs = folder / "file-manager";
    std::filesystem::create_directories(programs);
    const std::filesystem::path program = programs / "xdg-open";
    std::ofstream(program) << "#!/bin/sh\necho \"$1\" >> '" << notesIn(folder).string() << "'\n";
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    return programs.string() + ":" + path;
}

std::string revealedTo(const std::filesystem::path& folder)
{
    std::ifstream file(notesIn(folder));
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace nimbrale::test
