// Any text as a dump file: the reader either takes a line or says where and why it does not.

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "desk/dump/dump_file.h"
#include "tests/support/fuzz.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::filesystem::path file =
        std::filesystem::temp_directory_path() / ("dewarp-fuzz-" + std::to_string(::getpid()));
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    try {
        desk::DumpReader reader(file);
        const size_t count =
            reader.Kind() == desk::DumpKind::Grid ? desk::GridValueCount : desk::MeshValueCount;
        for (bool isAtEnd = false; !isAtEnd;) {
            try {
                const std::optional<desk::DumpLine> line = reader.Next();
                isAtEnd = !line.has_value();
                Require(isAtEnd || line->values.size() == count, "a line has another number of values");
            } catch (const desk::DumpError& error) {
                Require(error.finding.line != 0 && !error.finding.text.empty(),
                        "an error does not say where or why");
            }
        }
    } catch (const desk::DumpError& error) {
        Require(!error.finding.text.empty(), "an error does not say why");
    }
    std::filesystem::remove(file);
    return 0;
}
