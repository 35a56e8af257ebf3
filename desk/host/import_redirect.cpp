#include "desk/host/import_redirect.h"

#include <dlfcn.h>
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

/// The parts of a loaded library's dynamic section that name its imports.
struct ImportTables {
    const ElfW(Sym) * symbols = nullptr;
    const char* names = nullptr;
    const ElfW(Rela) * calls = nullptr;
    size_t callBytes = 0;
    const ElfW(Rela) * others = nullptr;
    size_t otherBytes = 0;
};

// The loader has already added the load address to the addresses in the dynamic section.
template <typename T>
T At(ElfW(Addr) address) {
    return reinterpret_cast<T>(address);
}

ImportTables ReadTables(const link_map& library) {
    ImportTables tables;
    for (const ElfW(Dyn)* entry = library.l_ld; entry->d_tag != DT_NULL; ++entry) {
        switch (entry->d_tag) {
            case DT_SYMTAB:
                tables.symbols = At<const ElfW(Sym)*>(entry->d_un.d_ptr);
                break;
            case DT_STRTAB:
                tables.names = At<const char*>(entry->d_un.d_ptr);
                break;
            case DT_JMPREL:
                tables.calls = At<const ElfW(Rela)*>(entry->d_un.d_ptr);
                break;
            case DT_PLTRELSZ:
                tables.callBytes = entry->d_un.d_val;
                break;
            case DT_RELA:
                tables.others = At<const ElfW(Rela)*>(entry->d_un.d_ptr);
                break;
            case DT_RELASZ:
                tables.otherBytes = entry->d_un.d_val;
                break;
            default:
                break;
        }
    }
    return tables;
}

/// The pages that the loader made read-only after relocation.
struct ReadOnlyRange {
    ElfW(Addr) loadAddress = 0;
    ElfW(Addr) begin = 0;
    ElfW(Addr) end = 0;
};

ElfW(Addr) PageOf(ElfW(Addr) address) {
    return address & ~(static_cast<ElfW(Addr)>(::sysconf(_SC_PAGESIZE)) - 1);
}

int FindReadOnlyRange(dl_phdr_info* info, size_t, void* data) {
    auto* range = static_cast<ReadOnlyRange*>(data);
    if (info->dlpi_addr != range->loadAddress) {
        return 0;
    }
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr)& segment = info->dlpi_phdr[i];
        if (segment.p_type == PT_GNU_RELRO) {
            // A last page that is only in part of the segment stays writable.
            const ElfW(Addr) begin = info->dlpi_addr + segment.p_vaddr;
            range->begin = PageOf(begin);
            range->end = PageOf(begin + segment.p_memsz);
        }
    }
    return 1;
}

void Protect(ElfW(Addr) address, int protection) {
    if (::mprotect(reinterpret_cast<void*>(PageOf(address)), sizeof(void*), protection) != 0) {
        throw std::system_error(errno, std::generic_category(),
                                "the protection of the node library's import slots cannot be changed");
    }
}

void WriteSlot(ElfW(Addr) slot, void* target, const ReadOnlyRange& readOnly) {
    const bool isReadOnly = slot >= readOnly.begin && slot < readOnly.end;
    if (isReadOnly) {
        Protect(slot, PROT_READ | PROT_WRITE);
    }
    *reinterpret_cast<void**>(slot) = target;
    if (isReadOnly) {
        Protect(slot, PROT_READ);
    }
}

}  // namespace

int RedirectImports(void* library, const std::map<std::string, void*>& replacements) {
    link_map* map = nullptr;
    if (::dlinfo(library, RTLD_DI_LINKMAP, &map) != 0 || map == nullptr) {
        throw std::runtime_error("the loader does not tell where the node library lies in memory");
    }
    const ImportTables tables = ReadTables(*map);
    if (tables.symbols == nullptr || tables.names == nullptr || tables.calls == nullptr ||
        tables.others == nullptr) {
        throw std::runtime_error("the node library has no symbol or relocation table to find its imports in");
    }
    ReadOnlyRange readOnly = {map->l_addr};
    ::dl_iterate_phdr(FindReadOnlyRange, &readOnly);

    int changed = 0;
    const auto redirect = [&](const ElfW(Rela) * relocations, size_t bytes) {
        for (size_t i = 0; i < bytes / sizeof(ElfW(Rela)); ++i) {
            const auto type = static_cast<uint32_t>(ELF64_R_TYPE(relocations[i].r_info));
            if (type != JumpSlot && type != GlobalData) {
                continue;
            }
            const char* name = tables.names + tables.symbols[ELF64_R_SYM(relocations[i].r_info)].st_name;
            const auto replacement = replacements.find(name);
            if (replacement != replacements.end()) {
                WriteSlot(map->l_addr + relocations[i].r_offset, replacement->second, readOnly);
                ++changed;
            }
        }
    };
    redirect(tables.calls, tables.callBytes);
    redirect(tables.others, tables.otherBytes);
    return changed;
}

}  // namespace desk
