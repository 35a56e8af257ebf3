// Runs a fuzz target over the files of the folder named by the argument, and over no input at all.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "tests/support/fuzz.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        static_cast<void>(std::fprintf(stderr, "usage: %s CORPUS\n", argv[0]));
        return 2;
    }
    LLVMFuzzerTestOneInput(nullptr, 0);
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        std::ifstream file(entry.path(), std::ios::binary);
        std::vector<char> bytes(std::filesystem::file_size(entry.path()));
        file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        ++files;
    }
    std::printf("%d inputs replayed\n", files);
    return files == 0 ? 1 : 0;
}
