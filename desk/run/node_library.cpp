#include "desk/run/node_library.h"

#include <elf.h>
#include <fmt/format.h>
#include <link.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "desk/base/usage_error.h"

namespace desk {
namespace {

using Bytes = std::string;

/// What lies at a place of a file; zero where the file ends before.
template <typename Record>
Record At(const Bytes& bytes, size_t place) {
    Record record = {};
    if (place <= bytes.size() && bytes.size() - place >= sizeof(record)) {
        std::memcpy(&record, bytes.data() + place, sizeof(record));
    }
    return record;
}

Bytes Read(const std::filesystem::path& file) {
    std::ostringstream bytes;
    bytes << std::ifstream(file, std::ios::binary).rdbuf();
    return bytes.str();
}

std::vector<ElfW(Phdr)> SegmentsOf(const Bytes& bytes) {
    const auto header = At<ElfW(Ehdr)>(bytes, 0);
    std::vector<ElfW(Phdr)> segments;
    for (size_t i = 0; i < header.e_phnum; i++) {
        segments.push_back(At<ElfW(Phdr)>(bytes, header.e_phoff + i * sizeof(ElfW(Phdr))));
    }
    return segments;
}

/// Why the loader would not take the file, or would fall with it; empty when it may try.
const char* ReasonAgainst(const std::filesystem::path& file) {
    if (!std::filesystem::is_regular_file(file)) {
        return "there is no such file";
    }
    const Bytes bytes = Read(file);
    const auto header = At<ElfW(Ehdr)>(bytes, 0);
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) {
        return "it is no ELF file";
    }
    const auto own = At<ElfW(Ehdr)>(Read("/proc/self/exe"), 0);
    if (header.e_ident[EI_CLASS] != own.e_ident[EI_CLASS] || header.e_machine != own.e_machine) {
        return "it is for another processor";
    }
    if (header.e_type != ET_DYN) {
        return "it is no shared library";
    }
    for (const ElfW(Phdr) & segment : SegmentsOf(bytes)) {
        if (segment.p_offset > bytes.size() || segment.p_filesz > bytes.size() - segment.p_offset) {
            return "it is cut off";
        }
    }
    return "";
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

}  // namespace

std::filesystem::path NodeLibrary(const std::filesystem::path& named) {
    if (named.empty()) {
        return Built("lib/com.oxa.node.dewarp.so");
    }
    if (const std::string reason = ReasonAgainst(named); !reason.empty()) {
        throw UsageError(
            fmt::format("{} cannot be loaded: {}; expected a node library", named.string(), reason));
    }
    return std::filesystem::canonical(named);
}

std::string BuildId(const std::filesystem::path& library) {
    const Bytes bytes = Read(library);
    std::string digits;
    for (const ElfW(Phdr) & segment : SegmentsOf(bytes)) {
        const size_t end = segment.p_type == PT_NOTE ? segment.p_offset + segment.p_filesz : 0;
        const auto padded = [](size_t size) { return (size + 3) / 4 * 4; };
        for (size_t at = segment.p_offset; at < end;) {
            const auto note = At<ElfW(Nhdr)>(bytes, at);
            const size_t text = at + sizeof(note) + padded(note.n_namesz);
            for (size_t i = 0; note.n_type == NT_GNU_BUILD_ID && i < note.n_descsz && text + i < bytes.size();
                 i++) {
                digits += fmt::format("{:02x}", static_cast<unsigned char>(bytes[text + i]));
            }
            at = text + padded(note.n_descsz);
        }
    }
    return digits;
}

std::unique_ptr<DeskHost> OpenHost(const std::filesystem::path& library, const std::filesystem::path& dumpDir,
                                   std::ostream* log, uint32_t luxBits) {
    const HostOptions options = {library, Built("desk/system/lib64"), dumpDir, log, luxBits};
    try {
        return std::make_unique<DeskHost>(options);
    } catch (const std::runtime_error& error) {
        throw UsageError(error.what());
    }
}

}  // namespace desk
