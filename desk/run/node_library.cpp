#include "desk/run/node_library.h"

#include <elf.h>
#include <fmt/format.h>
#include <link.h>

#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "desk/base/usage_error.h"

namespace desk {
namespace {

/// Zero where the file ends before.
ElfW(Ehdr) HeaderOf(const std::filesystem::path& file) {
    ElfW(Ehdr) header = {};
    std::ifstream(file, std::ios::binary).read(reinterpret_cast<char*>(&header), sizeof(header));
    return header;
}

/// Why the loader would not take the file, or would fall with it; empty when it may try.
const char* ReasonAgainst(const std::filesystem::path& file) {
    if (!std::filesystem::is_regular_file(file)) {
        return "there is no such file";
    }
    const ElfW(Ehdr) header = HeaderOf(file);
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) {
        return "it is no ELF file";
    }
    if (header.e_machine != HeaderOf("/proc/self/exe").e_machine) {
        return "it is for another processor";
    }
    // The table of sections is a linker's last.
    const uint64_t end = header.e_shoff + uint64_t{header.e_shnum} * header.e_shentsize;
    return end > std::filesystem::file_size(file) ? "it is cut off" : "";
}

/// What the program loads lies in the build folder that the program itself lies in, in bin.
std::filesystem::path Built(const char* file) {
    const auto place = std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / file;
    if (!std::filesystem::exists(place)) {
        throw std::runtime_error(
            fmt::format("expected {}, which is built beside the program", place.string()));
    }
    return place;
}

constexpr const char* UsualLibrary = "lib/com.oxa.node.dewarp.so";

/// A library that was named is wrong use; the one that is built beside the program is the environment's
/// fault.
[[noreturn]] void Refuse(const std::filesystem::path& library, const std::string& why) {
    if (library == Built(UsualLibrary)) {
        throw std::runtime_error(why);
    }
    throw UsageError(why);
}

}  // namespace

std::filesystem::path NodeLibrary(const std::filesystem::path& named) {
    const std::filesystem::path library = named.empty() ? Built(UsualLibrary) : named;
    if (const std::string reason = ReasonAgainst(library); !reason.empty()) {
        Refuse(library,
               fmt::format("{} cannot be loaded: {}; expected a node library", library.string(), reason));
    }
    return std::filesystem::canonical(library);
}

std::string BuildId(const std::filesystem::path& library) {
    std::pair<std::string, std::string> found = {library.string(), ""};
    const auto look = [](dl_phdr_info* loaded, size_t /*size*/, void* data) {
        auto& [file, digits] = *static_cast<decltype(found)*>(data);
        for (size_t i = 0; file == loaded->dlpi_name && i < loaded->dlpi_phnum; i++) {
            const ElfW(Phdr)& segment = loaded->dlpi_phdr[i];
            const std::string_view notes(reinterpret_cast<const char*>(loaded->dlpi_addr + segment.p_vaddr),
                                         segment.p_type == PT_NOTE ? segment.p_memsz : 0);
            // A note is the sizes of its maker's name and of its text, its kind, the name and the text.
            static constexpr char Literal[] = "\3\0\0\0GNU";
            const std::string_view kindAndName(Literal, sizeof(Literal));
            if (const size_t at = notes.find(kindAndName); at != std::string_view::npos) {
                const auto size = static_cast<unsigned char>(notes[at - sizeof(ElfW(Word))]);
                for (const char byte : notes.substr(at + kindAndName.size(), size)) {
                    digits += fmt::format("{:02x}", static_cast<unsigned char>(byte));
                }
            }
        }
        return 0;
    };
    dl_iterate_phdr(look, &found);
    return found.second;
}

std::unique_ptr<DeskHost> OpenHost(const std::filesystem::path& library, const std::filesystem::path& dumpDir,
                                   std::ostream* log, uint32_t luxBits) {
    const HostOptions options = {library, Built("desk/system/lib64"), dumpDir, log, luxBits};
    try {
        return std::make_unique<DeskHost>(options);
    } catch (const std::runtime_error& error) {
        Refuse(library, error.what());
    }
}

}  // namespace desk
