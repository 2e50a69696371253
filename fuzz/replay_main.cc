// Replays stored inputs through a fuzz target, for builds without libFuzzer.
//
// Each argument is a file or a folder of files. Prints how many inputs ran; none at all is a failure, so that
// a corpus that moved is noticed.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *p_data, size_t size);

static void run_file(const std::filesystem::path &path)
{
    std::ifstream file(path, std::ios::binary);
    std::vector<char> content((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::vector<uint8_t> input(content.begin(), content.end());
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

static size_t run_path(const std::filesystem::path &path)
{
    if (std::filesystem::is_regular_file(path)) {
        run_file(path);
        return 1;
    }
    size_t count = 0;
    std::error_code no_folder;
    for (const auto &item : std::filesystem::recursive_directory_iterator(path, no_folder)) {
        if (!item.is_regular_file())
            continue;
        run_file(item.path());
        count++;
    }
    return count;
}

int main(int argc, char **argv)
{
    size_t count = 0;
    for (int i = 1; i < argc; i++)
        count += run_path(argv[i]);
    fprintf(stderr, "%zu inputs replayed\n", count);
    return count == 0 ? 1 : 0;
}
