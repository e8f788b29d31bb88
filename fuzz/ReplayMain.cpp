// Runs a fuzz target over files and folders of saved inputs, so the ordinary
// test builds replay every seed and every input that once failed.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

std::vector<std::filesystem::path> inputsUnder(const std::filesystem::path& root)
{
    std::vector<std::filesystem::path> inputs;
    if (std::filesystem::is_directory(root)) {
        for (const auto& entry : std::filesystem::directory_iterator(root)) {
            if (entry.is_regular_file())
                inputs.push_back(entry.path());
        }
        std::sort(inputs.begin(), inputs.end());
    } else {
        inputs.push_back(root);
    }
    return inputs;
}

} // namespace

int main(int argc, char* argv[])
{
    LLVMFuzzerInitialize(&argc, &argv);
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& path : inputsUnder(argv[i])) {
            std::ifstream file(path, std::ios::binary);
            if (!file) {
                std::fprintf(stderr, "cannot read %s\n", path.c_str());
                return 1;
            }
            const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
            LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
            ++replayed;
        }
    }
    std::printf("replayed %d inputs\n", replayed);
    return replayed > 0 ? 0 : 1; // no inputs means the corpus went missing
}
