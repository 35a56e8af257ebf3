#include "desk/host/import_redirect.h"

#include <elf.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <stdexcept>
#include <system_error>

namespace desk {
namespace {

#if defined(__x86_64__)
constexpr uint32_t JumpSlot = R_X86_64_JUMP_SLOT;
constexpr uint32_t GlobalData = R_X86_64_GLOB_DAT;
#elif defined(__aarch64__)
constexpr uint32_t JumpSlot = R_AARCH64_JUMP_SLOT;
constexpr uint32_t GlobalData = R_AARCH64_GLOB_DAT;
#else
#error "The desk runs on x86-64 and AArch64"
#endif

/// The parts of a loaded library that its imports are found and replaced by.
struct ImportTables {
    const void* inside = nullptr;  ///< an address in the library
    ElfW(Addr) loadAddress = 0;
    const ElfW(Dyn) * dynamic = nullptr;
    const ElfW(Sym) * symbols = nullptr;
    const char* names = nullptr;
    const ElfW(Rela) * calls = nullptr;
    size_t callBytes = 0;
    const ElfW(Rela) * others = nullptr;
    size_t otherBytes = 0;
    /// The pages that the loader made read-only after relocation.
    ElfW(Addr) readOnlyBegin = 0;
    ElfW(Addr) readOnlyEnd = 0;
};

/// glibc has already added the load address to the addresses in the dynamic section, Android's loader has
/// not.
template <typename T>
T At(const ImportTables& library, ElfW(Addr) address) {
    return reinterpret_cast<T>(address < library.loadAddress ? library.loadAddress + address : address);
}

void ReadTables(ImportTables& library) {
    for (const ElfW(Dyn)* entry = library.dynamic; entry->d_tag != DT_NULL; ++entry) {
        switch (entry->d_tag) {
            case DT_SYMTAB:
                library.symbols = At<const ElfW(Sym)*>(library, entry->d_un.d_ptr);
                break;
            case DT_STRTAB:
                library.names = At<const char*>(library, entry->d_un.d_ptr);
                break;
            case DT_JMPREL:
                library.calls = At<const ElfW(Rela)*>(library, entry->d_un.d_ptr);
                break;
            case DT_PLTRELSZ:
                library.callBytes = entry->d_un.d_val;
                break;
            case DT_RELA:
                library.others = At<const ElfW(Rela)*>(library, entry->d_un.d_ptr);
                break;
            case DT_RELASZ:
                library.otherBytes = entry->d_un.d_val;
                break;
            default:
                break;
        }
    }
}

ElfW(Addr) PageOf(ElfW(Addr) address) {
    return address & ~(static_cast<ElfW(Addr)>(::sysconf(_SC_PAGESIZE)) - 1);
}

/// Takes the segments' places from the library that `inside` lies in.
int FindSegments(dl_phdr_info* info, size_t, void* data) {
    auto* library = static_cast<ImportTables*>(data);
    const auto inside = reinterpret_cast<ElfW(Addr)>(library->inside);
    bool isFound = false;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr)& segment = info->dlpi_phdr[i];
        const ElfW(Addr) begin = info->dlpi_addr + segment.p_vaddr;
        isFound = isFound || (segment.p_type == PT_LOAD && inside - begin < segment.p_memsz);
    }
    for (int i = 0; isFound && i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr)& segment = info->dlpi_phdr[i];
        const ElfW(Addr) begin = info->dlpi_addr + segment.p_vaddr;
        if (segment.p_type == PT_DYNAMIC) {
            library->loadAddress = info->dlpi_addr;
            library->dynamic = reinterpret_cast<const ElfW(Dyn)*>(begin);
        } else if (segment.p_type == PT_GNU_RELRO) {
            // A last page that is only in part of the segment stays writable.
            library->readOnlyBegin = PageOf(begin);
            library->readOnlyEnd = PageOf(begin + segment.p_memsz);
        }
    }
    return isFound ? 1 : 0;
}

void Protect(ElfW(Addr) address, int protection) {
    if (::mprotect(reinterpret_cast<void*>(PageOf(address)), sizeof(void*), protection) != 0) {
        throw std::system_error(errno, std::generic_category(),
                                "the protection of the node library's import slots cannot be changed");
    }
}

void WriteSlot(ElfW(Addr) slot, void* target, const ImportTables& library) {
    const bool isReadOnly = slot >= library.readOnlyBegin && slot < library.readOnlyEnd;
    if (isReadOnly) {
        Protect(slot, PROT_READ | PROT_WRITE);
    }
    *reinterpret_cast<void**>(slot) = target;
    if (isReadOnly) {
        Protect(slot, PROT_READ);
    }
}

}  // namespace

int RedirectImports(const void* inside, const std::map<std::string, void*>& replacements) {
    ImportTables library;
    library.inside = inside;
    ::dl_iterate_phdr(FindSegments, &library);
    if (library.dynamic == nullptr) {
        throw std::runtime_error("the loader does not tell where the node library lies in memory");
    }
    ReadTables(library);
    if (library.symbols == nullptr || library.names == nullptr || library.calls == nullptr ||
        library.others == nullptr) {
        throw std::runtime_error("the node library has no symbol or relocation table to find its imports in");
    }

    int changed = 0;
    const auto redirect = [&](const ElfW(Rela) * relocations, size_t bytes) {
        for (size_t i = 0; i < bytes / sizeof(ElfW(Rela)); ++i) {
            const auto type = static_cast<uint32_t>(ELF64_R_TYPE(relocations[i].r_info));
            if (type != JumpSlot && type != GlobalData) {
                continue;
            }
            const char* name = library.names + library.symbols[ELF64_R_SYM(relocations[i].r_info)].st_name;
            const auto replacement = replacements.find(name);
            if (replacement != replacements.end()) {
                WriteSlot(library.loadAddress + relocations[i].r_offset, replacement->second, library);
                ++changed;
            }
        }
    };
    redirect(library.calls, library.callBytes);
    redirect(library.others, library.otherBytes);
    return changed;
}

}  // namespace desk
