// Polls the preview file for a while, as the file-manager extension would, and
// counts what it sees: no file, a whole old or new file, a new file still being
// written (a proper beginning of one), or anything else (a mix).
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

int main(int argc, char* argv[])
{
    if (argc != 3)
        return 2;
    const std::string path = argv[1];
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(std::atoi(argv[2]));
    const std::string enabled = R"({"previewEnabled":true})";
    const std::string disabled = R"({"previewEnabled":false})";
    long missing = 0, whole = 0, partial = 0, mixed = 0;
    std::printf("polling\n");
    std::fflush(stdout);
    while (std::chrono::steady_clock::now() < until) {
        std::ifstream file(path, std::ios::binary);
        if (!file) {
            ++missing;
            continue;
        }
        const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        if (text == enabled || text == disabled)
            ++whole;
        else if (enabled.compare(0, text.size(), text) == 0 || disabled.compare(0, text.size(), text) == 0)
            ++partial;
        else
            ++mixed;
    }
    std::printf("missing=%ld whole=%ld partial=%ld mixed=%ld\n", missing, whole, partial, mixed);
    return mixed == 0 ? 0 : 1;
}
