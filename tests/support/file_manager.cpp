#include "tests/support/file_manager.h"

#include <fstream>
#include <iterator>

namespace nimbrale::test {

namespace {

std::filesystem::path notesOf(const PrivateDesktop& desktop)
{
    return desktop.folder() / "revealed";
}

} // namespace

std::string putFileManager(const PrivateDesktop& desktop)
{
    const std::filesystem::path folder = desktop.folder() / "file-manager";
    std::filesystem::create_directories(folder);
    const std::filesystem::path program = folder / "xdg-open";
    std::ofstream(program) << "#!/bin/sh\necho \"$1\" >> '" << notesOf(desktop).string() << "'\n";
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    return folder.string() + ":" + desktop.environment().at("PATH");
}

std::string revealedOn(const PrivateDesktop& desktop)
{
    std::ifstream file(notesOf(desktop));
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace nimbrale::test
