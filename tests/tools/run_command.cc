#include "tests/tools/run_command.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/wait.h>

t_temp_folder::t_temp_folder()
{
    std::string pattern = std::filesystem::temp_directory_path() / "tarnd-test-XXXXXX";
    folder = mkdtemp(pattern.data()) != nullptr ? pattern : "";
}

t_temp_folder::~t_temp_folder()
{
    std::error_code ignored;
    if (!folder.empty())
        std::filesystem::remove_all(folder, ignored);
}

std::string t_temp_folder::path(std::string_view name) const
{
    return folder + '/' + std::string(name);
}

std::string t_temp_folder::write(std::string_view name, std::string_view text) const
{
    std::ofstream(path(name), std::ios::binary) << text;
    return path(name);
}

std::vector<std::string> t_temp_folder::names() const
{
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

std::string read_file(const std::string &path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

t_command_result run_command(const std::string &command)
{
    t_temp_folder output;
    std::string line = '{' + (' ' + command) + "\n} > " + output.path("out") + " 2> " + output.path("err");
    int status = std::system(line.c_str());
    int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return {code, read_file(output.path("out")), read_file(output.path("err"))};
}
