// Runs a fuzz target over the files of a corpus, without a fuzzer:
//   fuzz_library_replay [--changed=WHAT] FILE-OR-DIRECTORY...
// With --changed the target works against an expectation that was made wrong, and has to notice.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "difference.hpp"
#include "target.hpp"

namespace {

bool run_file(const std::filesystem::path &path)
{
    std::ifstream file{path, std::ios::binary};
    const std::vector<char> bytes{std::istreambuf_iterator<char>{file}, {}};
    if (file.bad()) {
        (void)std::fprintf(stderr, "%s: cannot be read\n", path.c_str());
        return false;
    }
    (void)std::fprintf(stderr, "%s\n", path.c_str());
    // A copy of its very size, so that AddressSanitizer sees a read beyond it.
    const std::vector<std::uint8_t> input{bytes.begin(), bytes.end()};
    LLVMFuzzerTestOneInput(input.data(), input.size());
    return true;
}

/** @return How many inputs ran; nothing could be read: 0. */
std::size_t run(const std::filesystem::path &path)
{
    if (!std::filesystem::is_directory(path)) {
        return run_file(path) ? 1 : 0;
    }
    std::size_t count = 0;
    for (const auto &entry : std::filesystem::directory_iterator{path}) {
        count += run(entry.path());
    }
    return count;
}

} // namespace

int main(int argc, char **argv)
{
    static constexpr std::string_view changed = "--changed=";
    bool has_to_differ = false;
    std::size_t count = 0;
    for (int index = 1; index < argc; ++index) {
        const std::string_view argument{argv[index]};
        if (!argument.starts_with(changed)) {
            count += run(argument);
            continue;
        }
        const auto change = olv_fuzz::expectation_changes.find(argument.substr(changed.size()));
        if (change == olv_fuzz::expectation_changes.end()) {
            (void)std::fprintf(stderr, "there is no '%s' to change\n", argv[index]);
            return 2;
        }
        change->second();
        has_to_differ = true;
        olv_fuzz::difference_is_expected = true;
    }
    (void)std::fprintf(stderr, "%zu inputs\n", count);
    if (has_to_differ) {
        (void)std::fprintf(stderr, "the changed expectation was not noticed\n");
    }
    return count == 0 || has_to_differ ? 1 : 0;
}
